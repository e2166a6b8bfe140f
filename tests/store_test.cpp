// The store's objects and its database wrapper, on real files.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/store/database.h"
#include "platform/store/store.h"

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
using platform::store::Access;
using platform::store::Database;
using platform::store::Transaction;
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

// Runs something in a process of its own, which must not be begun while this one has a database open: SQLite
// doesn't survive a fork.
pid_t begin(const std::function<void()>& work) {
  const pid_t process = ::fork();
  if (process != 0) return process;
  work();
  ::_exit(testing::Test::HasFailure() ? 1 : 0);
}
// How it ended, as waitpid tells.
int awaitEnd(pid_t process) {
  int status = -1;
  ::waitpid(process, &status, 0);
  return status;
}

class Store : public testing::Test {
 protected:
  using Rows = std::vector<std::string>;

  Store() {
    platform::store::registerStore();
    std::string name = (fs::temp_directory_path() / "storeXXXXXX").string();
    folder_ = ::mkdtemp(name.data());
    path_ = folder_ / "store.db";
    makeTables(path_);
  }
  ~Store() override {
    platform::store::setLockWait(std::chrono::seconds(5));
    platform::store::releaseIdle();
    fs::remove_all(folder_);
  }

  static void makeTables(const fs::path& path) {
    Database::create(path).execute(
        "create table tblSites([Server name] text collate nocase, [Site] text collate nocase, [Status] text);"
        "create table tblOther(a text, b text)");
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

  // Every row as "server|site|status", null as "-", as an outsider reads the file.
  Rows rows() const {
    Database database = Database::openExisting(path_, Access::kReadOnly);
    auto statement = database.prepare("select * from tblSites order by rowid");
    Rows all;
    while (statement.step()) {
      all.push_back(statement.columnText(0).value_or("-"));
      for (int column = 1; column < statement.columnCount(); ++column) {
        all.back() += '|' + statement.columnText(column).value_or("-");
      }
    }
    return all;
  }

  fs::path folder_;
  fs::path path_;
};

TEST_F(Store, SavesRowsAndKeepsTheRulesOfAPendingOne) {
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

TEST_F(Store, StateDecidesWhatIsAllowed) {
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

TEST_F(Store, CountsAndWalksRows) {
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

TEST_F(Store, RunsOneStatementAsItStandsOrNone) {
  const ObjectRef connection = connect();
  addRow(selectNone(connection), "WEB01", "O'Brien");
  for (const std::string& sql :
       {std::string("Update tblSites set Status= 'Custom' Where [Site]= 'O'Brien')!0x80040E14"),
        std::string("Update tblSites set Status= 'x'; delete from tblSites)!0x80040E14"),
        std::string("delete from tblSites\0 where 1=2)!0x80040E14", 43),
        std::string("Update tblNone set Status= 'x')!0x80040E37"), std::string("  )!0x80040E0C"),
        std::string("begin)!3219")}) {
    play(connection, "Execute(" + sql);
  }
  EXPECT_EQ(rows(), Rows{"WEB01|O'Brien|-"});
  play(connection, "Execute(Update tblSites set Status= 'x' Where [Server name] ='web01' ; )");
  EXPECT_EQ(rows(), Rows{"WEB01|O'Brien|x"});
}

TEST_F(Store, KeepsAnyText) {
  const std::string odd("a\0b \xE2\x82\xAC\xF0\x9F\x98\x80", 11);
  const ObjectRef connection = connect();
  const ObjectRef added = selectNone(connection);
  addRow(added, odd, "Z\xC3\xBCrich");
  play(select(connection, "Select * from tblSites"), "Server name?" + odd + ", Site?Z\xC3\xBCrich");
  play(added, "Server name?" + odd + ", AddNew");
  writeIndexed(added, u"Collect", u"Site", Text(1, char16_t{0xD800}) + u"x");
  play(added, "Update, Site?\xEF\xBF\xBDx");
}

TEST_F(Store, ConnectionsAndTheOwnerOfTheTablesWorkSideBySide) {
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
  Database owner = Database::openExisting(path_, Access::kReadWrite);
  owner.execute("delete from tblSites; alter table tblSites add column [Added] text");
  const ObjectRef wider = selectNone(outer);
  play(wider, "AddNew, Added=x, Update");
  EXPECT_EQ(rows(), Rows{"-|-|-|x"});
  owner.execute("drop table tblSites");
  play(wider, "AddNew, Update!0x80040E37");
}

TEST_F(Store, AFileThatCannotBeUsedFailsAtOpenWithItsOwnMessage) {
  const std::string folder = folder_.string();
  std::ofstream(folder + "/text.db") << "These are not rows";
  connection("Open(" + folder + "/missing.db)!0x80004005 missing.db': there is no such file");
  EXPECT_FALSE(fs::exists(folder + "/missing.db"));
  connection("Open(" + folder + ")!0x80004005 is a directory");
  connection("Open(" + folder + "/text.db)!0x80004005 is not a database");
}

TEST_F(Store, AFileThatGoesOrIsReplacedWhileNobodyHasItOpenIsNoticed) {
  const fs::path moved = folder_ / "moved.db";
  addRow(selectNone(connect()), "WEB01", "old");
  fs::rename(path_, moved);
  connection(openStep() + "!0x80004005 no such file");
  EXPECT_FALSE(fs::exists(path_));

  fs::rename(moved, path_);
  ObjectRef stale = selectNone(connect());
  addRow(stale, "WEB01", "older still");
  makeTables(folder_ / "new.db");
  fs::rename(path_, moved);
  fs::rename(folder_ / "new.db", path_);
  addRow(selectNone(connect()), "WEB01", "new");
  play(stale, "AddNew, Update!0x80004005");
  EXPECT_EQ(rows(), Rows{"WEB01|new|-"});
  stale = nullptr;
  path_ = moved;
  EXPECT_EQ(rows(), (Rows{"WEB01|old|-", "WEB01|older still|-"}));
}

TEST_F(Store, AFullDatabaseFailsTheRowAndKeepsItPending) {
  const ObjectRef connection = connect();
  const ObjectRef added = selectNone(connection);
  play(connection, "Execute(pragma max_page_count = 4)");
  play(added, "AddNew, Site=" + std::string(100000, 'x') + ", Update!0x80004005 full");
  play(added, "AddNew!0x80004005 full, Close!3219, Site=small, Update");
  EXPECT_EQ(rows(), Rows{"-|small|-"});
}

TEST_F(Store, SavedRowsSurviveTheDeathOfTheProcess) {
  const pid_t process = begin([&] {
    const ObjectRef added = selectNone(connect());
    for (int row = 0; row < 500; ++row) addRow(added, "WEB01", "saved");
    play(added, "AddNew, Site=pending");
    ::kill(::getpid(), SIGKILL);
  });
  EXPECT_TRUE(WIFSIGNALED(awaitEnd(process)));
  EXPECT_EQ(rows(), Rows(500, "WEB01|saved|-"));
  addRow(selectNone(connect()), "WEB01", "after");
}

TEST_F(Store, ALongLogIsMovedIntoTheFileWhileRowsAreAdded) {
  const ObjectRef added = selectNone(connect());
  for (int row = 0; row < 150; ++row) addRow(added, "WEB01", std::string(1 << 20, 'x'));
  EXPECT_GT(fs::file_size(path_), 120u << 20);
  EXPECT_LT(fs::file_size(path_.string() + "-wal"), 80u << 20);
}

TEST_F(Store, ALockOfSomebodyElseIsWaitedForOnceAndThenFailsUntilItIsFree) {
  for (const bool atOpen : {true, false}) {
    platform::store::setLockWait(std::chrono::milliseconds(50));
    ObjectRef connection = atOpen ? CreateObject(u"ADODB.Connection") : connect();
    ObjectRef added = atOpen ? nullptr : selectNone(connection);
    const ObjectRef waiting = atOpen ? connection : added;
    const std::string attempt = atOpen ? openStep() : "Update";
    Database other = Database::openExisting(path_, Access::kReadWrite);
    std::optional<Transaction> lock(std::in_place, other);
    if (!atOpen) {
      play(added, "AddNew, Site=waited");
      EXPECT_EQ(countAll(connection), "1");
    }
    play(waiting, attempt + "!0x80004005 locked");
    // A second wait of this length would never end within the test's patience.
    platform::store::setLockWait(std::chrono::hours(24));
    play(waiting, attempt + "!0x80004005 locked");
    lock.reset();
    play(waiting, attempt);
    // From then on a lock is waited for again.
    if (atOpen) added = selectNone(connection);
    lock.emplace(other);
    std::thread release([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      lock.reset();
    });
    play(added, "AddNew, Site=next, Update");
    release.join();
  }
  EXPECT_EQ(rows(), (Rows{"-|next|-", "-|waited|-", "-|next|-"}));
}

TEST_F(Store, ProcessesAndThreadsWriteAtTheSameTime) {
  constexpr int kRows = 300;
  const auto collect = [&](const std::string& server) {
    for (int row = 0; row < kRows; ++row) {
      const ObjectRef connection = connect();
      addRow(selectNone(connection), server, "x");
      play(connection,
           "Execute(Update tblSites set Status= 'y' Where [Server name]= '" + server + "'), Close");
    }
    platform::store::releaseIdle();
  };
  const auto work = [&] { collect("process"); };
  const pid_t processes[] = {begin(work), begin(work)};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) threads.emplace_back(collect, std::to_string(thread));
  for (std::thread& thread : threads) thread.join();
  for (const pid_t process : processes) EXPECT_EQ(awaitEnd(process), 0);
  const Rows all = rows();
  EXPECT_EQ(all.size(), 10u * kRows);
  const auto isChanged = [](const std::string& row) { return row.ends_with("|y"); };
  EXPECT_TRUE(std::all_of(all.begin(), all.end(), isChanged));
  // Two processes that let go in the same moment may both leave the log to the next one.
  Database::openExisting(path_, Access::kReadWrite);
  EXPECT_FALSE(fs::exists(path_.string() + "-wal")) << "the last one leaves a single plain file";
  Database reader = Database::openExisting(path_, Access::kReadOnly);
  auto journal = reader.prepare("pragma journal_mode");
  ASSERT_TRUE(journal.step());
  EXPECT_EQ(journal.columnText(0), "delete") << "readers need no log beside it";
}

TEST_F(Store, TransactionsAndStatementsOfTheWrapper) {
  Database database = Database::openExisting(path_, Access::kReadWrite);
  auto insert = database.prepare("insert into tblOther values (?, ?)");
  insert.bind(1, std::string_view("a\0b", 3));
  for (const bool kept : {false, true}) {
    Transaction transaction(database);
    insert.bind(2, std::int64_t{42});
    EXPECT_FALSE(insert.step());
    insert.bindNull(2);
    EXPECT_FALSE(insert.step());
    if (kept) transaction.commit();
  }
  auto query = database.prepare("select a, b from tblOther order by rowid");
  ASSERT_TRUE(query.step());
  EXPECT_EQ(query.columnText(0), std::string("a\0b", 3));
  EXPECT_EQ(query.columnInt64(1), 42);
  ASSERT_TRUE(query.step());
  EXPECT_EQ(query.columnText(1), std::nullopt);
  EXPECT_FALSE(query.step());
  EXPECT_THROW(database.prepare("select 1; select 2"), Failure);
}

}  // namespace
