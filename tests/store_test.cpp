// The store's objects and the database wrapper below them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/store/private_database.h"
#include "platform/store/store.h"
#include "tests/support/folder.h"

namespace {

using automation::call;
using automation::CreateObject;
using automation::Failure;
using automation::fromUtf8;
using automation::ObjectRef;
using automation::Text;
using automation::Variant;
using automation::write;
using automation::writeIndexed;
using platform::store::Loan;
using platform::store::PrivateDatabase;
using sqlite::Database;
namespace fs = std::filesystem;

// A property, ".Name", or a column of the current row; null as "-".
std::string valueOf(const ObjectRef& object, const std::string& name) {
  const Variant value = name.front() == '.' ? automation::read(object, fromUtf8(name.substr(1)))
                                            : automation::readIndexed(object, u"Collect", fromUtf8(name));
  return value.isNull() ? "-" : automation::toUtf8(automation::toText(value));
}

void take(const ObjectRef& object, const std::string& step, std::size_t mark) {
  const Text name = fromUtf8(step.substr(0, mark));
  if (mark == step.size()) {
    call(object, name);
  } else if (step[mark] == '(') {
    call(object, name, fromUtf8(step.substr(mark + 1, step.size() - mark - 2)));
  } else if (step[mark] == '?') {
    EXPECT_EQ(valueOf(object, step.substr(0, mark)), step.substr(mark + 1)) << step;
  } else if (name.front() == u'.') {
    write(object, name.substr(1), fromUtf8(step.substr(mark + 1)));
  } else {
    writeIndexed(object, u"Collect", name, fromUtf8(step.substr(mark + 1)));
  }
}

// Takes steps at a connection or a recordset, with commas between them: "Method", "Method(text)",
// "name=text", and "name?text" for a value that must be there. Behind a step that must fail stand "!", the
// failure's number and, where it matters, a piece of its message.
void play(const ObjectRef& object, const std::string& script) {
  std::istringstream steps(script);
  for (std::string step; std::getline(steps >> std::ws, step, ',');) {
    const std::size_t end = std::min(step.rfind('!'), step.size());
    std::string fragment = end < step.size() ? step.substr(end + 1) : "0";
    std::size_t length = 0;
    const auto expected = std::stoul(fragment, &length, 0);
    fragment.erase(0, length + 1);
    std::uint32_t number = 0;
    std::string message;
    try {
      take(object, step.substr(0, end), std::min(step.find_first_of("(=?"), end));
    } catch (const Failure& caught) {
      number = static_cast<std::uint32_t>(caught.number());
      message = automation::toUtf8(caught.description());
    }
    EXPECT_EQ(number, expected) << step << ": " << message;
    EXPECT_NE(message.find(fragment), std::string::npos) << step << ": " << message;
  }
}

class Store : public testing::Test {
 protected:
  using Rows = std::vector<std::string>;

  // A database file, or a private database on loan under its name, whose rows may wait.
  enum class Kind { kFile, kPrivate, kWaiting };

  explicit Store(Kind kind = Kind::kFile) {
    platform::store::registerStore();
    if (kind != Kind::kFile) {
      private_ = std::make_unique<PrivateDatabase>(path_.string());
      loan_.emplace(*private_);
    }
    makeTables(*openDatabase());
    if (kind != Kind::kWaiting) return;
    for (const char* table : {"tblSites", "tblOther"}) private_->letRowsWait(table);
  }
  ~Store() override { platform::store::setLockWait(std::chrono::seconds(5)); }

  static void makeTables(Database& database) {
    database.execute(
        "create table tblSites([Server name] text collate nocase, [Site] text collate nocase, [Status] text);"
        "create table tblOther(a text, b text)");
  }

  // The database as its owner has it.
  std::shared_ptr<Database> openDatabase() const {
    if (private_ != nullptr) return {std::shared_ptr<void>(), &private_->database()};
    return std::make_shared<Database>(path_, Database::Mode::kCreate, std::chrono::hours(1));
  }

  // A connection that takes this step, and one to the database.
  static ObjectRef connection(const std::string& step) {
    ObjectRef made = CreateObject(u"ADODB.Connection");
    play(made, ".Provider=Any.Provider.1, " + step);
    return made;
  }
  std::string openStep() const { return "Open(" + path_.string() + ")"; }
  ObjectRef connect() const { return connection(openStep()); }

  // The rows of a query; not counted unless told.
  static ObjectRef select(const ObjectRef& connection, const std::string& sql, bool counted = false) {
    ObjectRef rows = CreateObject(u"ADODB.Recordset");
    write(rows, u"ActiveConnection", connection);
    play(rows, counted ? ".CursorLocation=3, .CursorType=2" : ".CursorLocation=2, .CursorType=0");
    play(rows, ".LockType=3, Open(" + sql + ")");
    return rows;
  }
  static ObjectRef selectNone(const ObjectRef& connection) {
    return select(connection, "Select * from tblSites where 1=2");
  }
  static std::string countAll(const ObjectRef& connection) {
    return valueOf(select(connection, "Select * from tblSites", true), ".Recordcount");
  }

  static void addRow(const ObjectRef& rows, const std::string& server, const std::string& site) {
    play(rows, "AddNew, Server name=" + server + ", Site=" + site + ", Update");
  }

  // Every row as "server|site|status", null as "-".
  Rows rows() const {
    const auto database = openDatabase();
    auto statement = database->prepare("select * from tblSites order by rowid");
    Rows all;
    while (statement.step()) {
      std::string& row = all.emplace_back(statement.text(0).value_or("-"));
      for (int column = 1; column < statement.columnCount(); ++column) {
        row.append("|").append(statement.text(column).value_or("-"));
      }
    }
    return all;
  }

  test::Folder folder_;
  fs::path path_ = folder_ / "store.db";
  std::unique_ptr<PrivateDatabase> private_;
  std::optional<Loan> loan_;
};

// Over each of the three.
class EachStore : public Store, public testing::WithParamInterface<int> {
 protected:
  EachStore() : Store(static_cast<Kind>(GetParam())) {}
};
constexpr const char* kKinds[] = {"DatabaseFile", "PrivateDatabase", "PrivateDatabaseWhoseRowsWait"};
INSTANTIATE_TEST_SUITE_P(The, EachStore, testing::Range(0, 3),
                         [](const auto& each) { return std::string(kKinds[each.param]); });

TEST_P(EachStore, SavesRowsAndKeepsTheRulesOfAPendingOne) {
  const ObjectRef added = selectNone(connect());
  play(added, ".EOF?True, Site=x!3021, Update!3021, CancelUpdate!3219");
  play(added, "AddNew, SERVER NAME=WEB01, Servername=x!3265, server name?WEB01, Site?-");
  EXPECT_EQ(rows(), Rows{});
  // A second one saves the first, and a failed Close leaves the recordset as it was.
  play(added, "addnew, Status=7, Close!3219, Status?7");
  EXPECT_EQ(rows(), Rows{"WEB01|-|-"});
  // Nothing of a cancelled row, or of the one before, gets into the next.
  play(added, "CancelUpdate, Server name?WEB01, AddNew, Server name=x");
  writeIndexed(added, u"Collect", u"Server name", automation::Null);
  writeIndexed(added, u"Collect", u"Site", true);
  play(added, "Update, Site=x!3251, Close");
  EXPECT_EQ(rows(), (Rows{"WEB01|-|-", "-|True|-"}));
}

TEST_P(EachStore, StateDecidesWhatIsAllowed) {
  const ObjectRef connection = CreateObject(u"ADODB.Connection");
  const ObjectRef opened = CreateObject(u"ADODB.Recordset");
  play(connection, "Close!3704, Execute(Select 1)!3704");
  play(opened, "Open(Select * from tblSites)!3709, AddNew!3704");
  EXPECT_THROW(write(opened, u"ActiveConnection", opened), Failure);
  write(opened, u"ActiveConnection", connection);
  play(opened, "Open(Select * from tblSites)!3709");
  play(connection, openStep() + ", " + openStep() + "!3705");
  play(opened, "Open(Select * from tblNone)!0x80040E37, Open(Select * frm tblSites)!0x80040E14");
  play(opened, "Open(Select * from tblSites), .CursorType=2!3705, AddOld!438, Close(now)!450");
  play(opened, "AddNew!3251");  // Read-only unless a lock type is set.

  // A connection takes its recordsets with it, also when it has been opened anew since.
  const ObjectRef adding = selectNone(connection);
  play(adding, "AddNew");
  play(connection, "Close, .State?0, " + openStep());
  play(adding, ".State?0, Update!3704");
  EXPECT_EQ(rows(), Rows{});
}

TEST_P(EachStore, CountsAndWalksRows) {
  const ObjectRef connection = connect();
  const ObjectRef added = selectNone(connection);
  for (const char* site : {"A", "B", "C"}) addRow(added, "web01", site);
  addRow(added, "WEB02", "D");
  const ObjectRef counted = select(connection, "Select * from tblSites where [Server name] = 'Web01'", true);
  play(counted, ".Recordcount?3, AddNew, Server name=WEB01, Site=E, Update, .RecordCount?4, Site?E");
  const ObjectRef walked =
      select(connection, "Select Distinct [Site] from tblSites where [Server name] = 'WEB01' ");
  play(walked, ".RecordCount?-1");
  std::string sites;
  for (; valueOf(walked, ".EOF") == "False"; play(walked, "MoveNext")) {
    sites += valueOf(walked, "site");
    // Changes in the middle of the walk neither fail nor disturb it.
    play(connection, "Execute(Delete from tblSites Where [Site]= '" + sites + "')");
  }
  EXPECT_EQ(sites, "ABCE");
  play(walked, "MoveNext!3021");
  EXPECT_EQ(rows(), (Rows{"web01|B|-", "web01|C|-", "WEB02|D|-", "WEB01|E|-"}));
}

TEST_P(EachStore, RunsOneStatementAsItStandsOrNone) {
  const ObjectRef connection = connect();
  addRow(selectNone(connection), "WEB01", "O'Brien");
  for (const std::string& sql :
       {std::string("Update tblSites set Status= 'Custom' Where [Site]= 'O'Brien')!0x80040E14"),
        std::string("Update tblSites set Status= 'x'; delete from tblSites)!0x80040E14"),
        std::string("delete from tblSites\0 where 1=2)!0x80040E14", 43),
        std::string("Update tblNone set Status= 'x')!0x80040E37"), std::string("  )!0x80040E0C"),
        std::string(private_ ? "begin)!0x80040E14" : "begin)!3219")}) {
    play(connection, "Execute(" + sql);
  }
  EXPECT_EQ(rows(), Rows{"WEB01|O'Brien|-"});
  play(connection, "Execute(Update tblSites set Status= 'x' Where [Server name] ='web01' ; )");
  EXPECT_EQ(rows(), Rows{"WEB01|O'Brien|x"});
}

TEST_P(EachStore, KeepsAnyText) {
  const std::string odd("a\0b \xE2\x82\xAC\xF0\x9F\x98\x80", 11);
  const ObjectRef connection = connect();
  const ObjectRef added = selectNone(connection);
  addRow(added, odd, "Z\xC3\xBCrich");
  play(select(connection, "Select * from tblSites"), "Server name?" + odd + ", Site?Z\xC3\xBCrich");
  play(added, "Server name?" + odd + ", AddNew");
  writeIndexed(added, u"Collect", u"Site", Text(1, char16_t{0xD800}) + u"x");
  play(added, "Update, Site?\xEF\xBF\xBDx");
}

TEST_P(EachStore, ConnectionsAndTheOwnerOfTheTablesWorkSideBySide) {
  const ObjectRef outer = connect();
  const ObjectRef pending = selectNone(outer);
  play(pending, "AddNew, Site=outer");
  const ObjectRef inner = connect();
  addRow(selectNone(inner), "WEB01", "inner");
  EXPECT_EQ(countAll(outer), "1");
  play(inner, "Close");
  play(pending, "Update");
  EXPECT_EQ(countAll(connect()), "2");

  // The next recordset sees a changed table.
  const auto owner = openDatabase();
  owner->execute("delete from tblSites; alter table tblSites add column [Added] text");
  const ObjectRef wider = selectNone(outer);
  play(wider, "AddNew, Added=x, Update");
  EXPECT_EQ(rows(), Rows{"-|-|-|x"});
  owner->execute("drop table tblSites");
  play(wider, "AddNew, Update!0x80040E37");
}

TEST_F(Store, AFullFileFailsTheRowAndKeepsItPending) {
  const ObjectRef connection = connect();
  const ObjectRef added = selectNone(connection);
  play(connection, "Execute(pragma max_page_count = 4)");
  play(added, "AddNew, Site=" + std::string(100000, 'x') + ", Update!0x80004005 full");
  play(added, "AddNew!0x80004005 full, Close!3219, Site=small, Update");
  EXPECT_EQ(rows(), Rows{"-|small|-"});
}

TEST_F(Store, AFileThatCannotBeUsedFailsAtOpenWithItsOwnMessage) {
  const std::string folder = folder_.path().string();
  folder_.file("text.db", "These are not rows");
  connection("Open(" + folder + "/missing.db)!0x80004005 missing.db': there is no such file");
  EXPECT_FALSE(fs::exists(folder + "/missing.db"));
  connection("Open(" + folder + ")!0x80004005 is a directory");
  connection("Open(" + folder + "/text.db)!0x80004005 is not a database");
}

TEST_F(Store, AFileIsNotWrittenToWhenAnotherHasTakenItsName) {
  const ObjectRef stale = selectNone(connect());
  addRow(stale, "WEB01", "old");
  fs::rename(path_, folder_ / "moved.db");
  makeTables(*openDatabase());
  addRow(selectNone(connect()), "WEB01", "new");
  play(stale, "AddNew, Update!0x80004005");
  EXPECT_EQ(rows(), Rows{"WEB01|new|-"});
  path_ = folder_ / "moved.db";
  EXPECT_EQ(rows(), Rows{"WEB01|old|-"});
}

TEST_F(Store, SavedRowsSurviveTheDeathOfTheProcess) {
  const pid_t process = ::fork();
  if (process == 0) {
    const ObjectRef added = selectNone(connect());
    for (int row = 0; row < 500; ++row) addRow(added, "WEB01", "saved");
    play(added, "AddNew, Site=pending");
    ::kill(::getpid(), SIGKILL);
  }
  ::waitpid(process, nullptr, 0);
  EXPECT_EQ(rows(), Rows(500, "WEB01|saved|-"));
}

TEST_F(Store, ALockOfSomebodyElseIsWaitedFor) {
  for (const bool atOpen : {true, false}) {
    platform::store::setLockWait(std::chrono::milliseconds(10));
    const auto other = openDatabase();
    const ObjectRef connection = atOpen ? CreateObject(u"ADODB.Connection") : connect();
    const ObjectRef added = atOpen ? connection : selectNone(connection);
    if (!atOpen) play(added, "AddNew, Site=waited");
    std::optional<sqlite::Transaction> lock(std::in_place, *other);
    if (!atOpen) {
      EXPECT_EQ(countAll(connection), "0");
    }
    play(added, (atOpen ? openStep() : "Update") + "!0x80004005 locked");
    lock.reset();

    platform::store::setLockWait(std::chrono::hours(1));
    const ObjectRef patient = atOpen ? nullptr : selectNone(connect());
    lock.emplace(*other);
    std::thread release([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      lock.reset();
    });
    atOpen ? play(added, openStep()) : play(patient, "AddNew, Site=next, Update");
    release.join();
  }
  EXPECT_EQ(rows(), Rows{"-|next|-"});
}

TEST_F(Store, ThreadsWriteAtTheSameTime) {
  constexpr int kRows = 100;
  platform::store::setLockWait(std::chrono::hours(1));
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, server = std::to_string(thread)] {
      for (int row = 0; row < kRows; ++row) {
        const ObjectRef connection = connect();
        addRow(selectNone(connection), server, "x");
        play(connection, "Execute(Update tblSites set Status= 'y' Where [Server name]= '" + server + "')");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const Rows all = rows();
  EXPECT_EQ(all.size(), 8u * kRows);
  const auto isChanged = [](const std::string& row) { return row.ends_with("|y"); };
  EXPECT_TRUE(std::all_of(all.begin(), all.end(), isChanged));
}

TEST_F(Store, TheFileIsMeantByWhoeverHasNoPrivateDatabaseOfItsName) {
  PrivateDatabase lent(path_.string());
  makeTables(lent.database());
  const auto lentRows = [&] { return lent.database().value("select count(*) from tblSites"); };
  for (int turn = 1; turn <= 2; ++turn) {
    {
      const Loan loan(lent);
      const ObjectRef connection = connect();
      addRow(selectNone(connection), "WEB01", "private");
      std::thread([&] { addRow(selectNone(connect()), "WEB01", "elsewhere"); }).join();
      path_ = folder_ / "." / "store.db";
      addRow(selectNone(connect()), "WEB01", "under another name");
      path_ = folder_ / "store.db";
      EXPECT_EQ(countAll(connection), "1");
    }
    EXPECT_EQ(countAll(connect()), std::to_string(2 * turn));
    EXPECT_EQ(lentRows(), "1");
    // The tables stay for the next turn.
    lent.empty();
    EXPECT_EQ(lentRows(), "0");
  }
}

}  // namespace
