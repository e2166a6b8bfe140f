// The store's objects and the database wrapper below them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/store/private_database.h"
#include "platform/store/store.h"
#include "tests/support/failures.h"
#include "tests/support/folder.h"

namespace {

using namespace automation;
using platform::store::ConnectionRedirect;
using platform::store::PrivateDatabase;
using sqlite::Database;
namespace fs = std::filesystem;

// A value as text, null as "-".
std::string shown(const Variant& value) {
  return value.isNull() ? "-" : toUtf8(toText(value));
}

struct Connection {
  ObjectRef object = CreateObject(u"ADODB.Connection");

  void open(const fs::path& file) const { call(object, u"Open", fromUtf8(file.string())); }
  void execute(std::string_view sql) const { call(object, u"Execute", fromUtf8(sql)); }
  void close() const { call(object, u"Close"); }
};

struct Recordset {
  ObjectRef object = CreateObject(u"ADODB.Recordset");

  void open(std::string_view sql) const { call(object, u"Open", fromUtf8(sql)); }
  void addNew() const { call(object, u"AddNew"); }
  void update() const { call(object, u"Update"); }
  void cancelUpdate() const { call(object, u"CancelUpdate"); }
  void moveNext() const { call(object, u"MoveNext"); }
  void close() const { call(object, u"Close"); }

  std::string property(TextView name) const { return shown(read(object, name)); }
  std::string at(std::string_view column) const {
    return shown(readIndexed(object, u"Collect", fromUtf8(column)));
  }
  void setValue(std::string_view column, const Variant& value) const {
    writeIndexed(object, u"Collect", fromUtf8(column), value);
  }
  void set(std::string_view column, std::string_view value) const { setValue(column, fromUtf8(value)); }
  void add(std::string_view column, std::string_view value) const {
    addNew();
    set(column, value);
    update();
  }
};

// The number of an action's failure, 0 if it succeeds. The message must contain `piece`.
template <typename Work>
std::uint32_t failure(const Work& work, const std::string& piece = "") {
  const auto [number, message] = test::failureOf(work);
  EXPECT_NE(message.find(piece), std::string::npos) << message;
  return static_cast<std::uint32_t>(number);
}

class Store : public testing::Test {
 protected:
  using Rows = std::vector<std::string>;

  // A database file, or a private database that replaces it, whose rows may be buffered.
  enum class Kind { kFile, kPrivate, kWaiting };

  explicit Store(Kind kind = Kind::kFile) {
    platform::store::registerStore();
    if (kind != Kind::kFile) {
      private_ = std::make_unique<PrivateDatabase>(path_.string());
      redirect_.emplace(*private_);
    }
    makeTables(*openDatabase());
    if (kind != Kind::kWaiting) return;
    for (const char* table : {"tblSites", "tblOther"}) private_->bufferRows(table);
  }
  ~Store() override { platform::store::setLockWait(std::chrono::seconds(5)); }

  static void makeTables(Database& database) {
    database.execute(
        "create table tblSites([Server name] text collate nocase, [Site] text collate nocase, [Status] text);"
        "create table tblOther(a text, b text)");
  }

  std::shared_ptr<Database> openDatabase() const {
    if (private_ != nullptr) return {std::shared_ptr<void>(), &private_->database()};
    return std::make_shared<Database>(path_, Database::Mode::kCreate, std::chrono::hours(1));
  }

  Connection connect() const {
    const Connection made;
    made.open(path_);
    return made;
  }

  // The rows of a query; by default forward-only.
  static Recordset select(const Connection& connection, std::string_view sql, bool counted = false) {
    const Recordset rows;
    write(rows.object, u"ActiveConnection", connection.object);
    write(rows.object, u"CursorLocation", counted ? 3 : 2);
    write(rows.object, u"CursorType", counted ? 2 : 0);
    write(rows.object, u"LockType", 3);
    rows.open(sql);
    return rows;
  }
  static Recordset selectNone(const Connection& connection) {
    return select(connection, "Select * from tblSites where 1=2");
  }
  static std::string countAll(const Connection& connection) {
    return select(connection, "Select * from tblSites", true).property(u"Recordcount");
  }

  static void addRow(const Recordset& rows, std::string_view server, std::string_view site) {
    rows.addNew();
    rows.set("Server name", server);
    rows.set("Site", site);
    rows.update();
  }

  // Every row as "server|site|status", null as "-".
  Rows rows() const {
    const auto database = openDatabase();
    auto statement = database->prepare("select * from tblSites order by rowid");
    Rows all;
    while (statement.step()) {
      std::string& row = all.emplace_back(statement.text(0).value_or("-"));
      for (int column = 1; column < statement.columnCount(); ++column)
        row.append("|").append(statement.text(column).value_or("-"));
    }
    return all;
  }

  test::Folder folder_;
  fs::path path_ = folder_ / "store.db";
  std::unique_ptr<PrivateDatabase> private_;
  std::optional<ConnectionRedirect> redirect_;
};

class EachStore : public Store, public testing::WithParamInterface<int> {
 protected:
  EachStore() : Store(static_cast<Kind>(GetParam())) {}
};
constexpr const char* kKinds[] = {"DatabaseFile", "PrivateDatabase", "PrivateDatabaseWhoseRowsWait"};
INSTANTIATE_TEST_SUITE_P(The, EachStore, testing::Range(0, 3),
                         [](const auto& each) { return std::string(kKinds[each.param]); });

TEST_P(EachStore, SavesRowsAndEnforcesPendingRowRules) {
  const Recordset added = selectNone(connect());
  EXPECT_EQ(added.property(u"EOF"), "True");
  EXPECT_EQ(failure([&] { added.set("Site", "x"); }), 3021u);
  EXPECT_EQ(failure([&] { added.update(); }), 3021u);
  EXPECT_EQ(failure([&] { added.cancelUpdate(); }), 3219u);
  added.addNew();
  added.set("SERVER NAME", "WEB01");
  EXPECT_EQ(failure([&] { added.set("Servername", "x"); }), 3265u);
  EXPECT_EQ(added.at("server name"), "WEB01");
  EXPECT_EQ(added.at("Site"), "-");
  EXPECT_EQ(rows(), Rows{});
  // A second one saves the first, and a failed Close leaves the recordset unchanged.
  added.addNew();
  added.set("Status", "7");
  EXPECT_EQ(failure([&] { added.close(); }), 3219u);
  EXPECT_EQ(added.at("Status"), "7");
  EXPECT_EQ(rows(), Rows{"WEB01|-|-"});
  // Values of a cancelled row, or of the previous one, don't appear in the next.
  added.cancelUpdate();
  EXPECT_EQ(added.at("Server name"), "WEB01");
  added.addNew();
  added.set("Server name", "x");
  added.setValue("Server name", Null);
  added.setValue("Site", true);
  added.update();
  EXPECT_EQ(failure([&] { added.set("Site", "x"); }), 3251u);
  added.close();
  EXPECT_EQ(rows(), (Rows{"WEB01|-|-", "-|True|-"}));
}

TEST_P(EachStore, AllowsOperationsByState) {
  const Connection connection;
  const Recordset opened;
  const auto openAs = [&](std::string_view sql) { return failure([&] { opened.open(sql); }); };
  EXPECT_EQ(failure([&] { connection.close(); }), 3704u);
  EXPECT_EQ(failure([&] { connection.execute("Select 1"); }), 3704u);
  EXPECT_EQ(openAs("Select * from tblSites"), 3709u);
  EXPECT_EQ(failure([&] { opened.addNew(); }), 3704u);
  EXPECT_THROW(write(opened.object, u"ActiveConnection", opened.object), Failure);
  write(opened.object, u"ActiveConnection", connection.object);
  EXPECT_EQ(openAs("Select * from tblSites"), 3709u);
  write(connection.object, u"Provider", u"Any.Provider.1");
  connection.open(path_);
  EXPECT_EQ(failure([&] { connection.open(path_); }), 3705u);
  EXPECT_EQ(openAs("Select * from tblNone"), 0x80040E37);
  EXPECT_EQ(openAs("Select * frm tblSites"), 0x80040E14);
  EXPECT_EQ(openAs("Select * from tblSites"), 0u);
  EXPECT_EQ(failure([&] { write(opened.object, u"CursorType", 2); }), 3705u);
  EXPECT_EQ(failure([&] { call(opened.object, u"AddOld"); }), 438u);
  EXPECT_EQ(failure([&] { call(opened.object, u"Close", u"now"); }), 450u);
  // Read-only unless a lock type is set.
  EXPECT_EQ(failure([&] { opened.addNew(); }), 3251u);

  // Closing a connection closes its recordsets, also after reopening it.
  const Recordset adding = selectNone(connection);
  adding.addNew();
  connection.close();
  EXPECT_EQ(shown(read(connection.object, u"State")), "0");
  connection.open(path_);
  EXPECT_EQ(adding.property(u"State"), "0");
  EXPECT_EQ(failure([&] { adding.update(); }), 3704u);
  EXPECT_EQ(rows(), Rows{});
}

TEST_P(EachStore, CountsAndIteratesRows) {
  const Connection connection = connect();
  const Recordset added = selectNone(connection);
  for (const char* site : {"A", "B", "C"}) addRow(added, "web01", site);
  addRow(added, "WEB02", "D");
  const Recordset counted = select(connection, "Select * from tblSites where [Server name] = 'Web01'", true);
  EXPECT_EQ(counted.property(u"Recordcount"), "3");
  addRow(counted, "WEB01", "E");
  EXPECT_EQ(counted.property(u"RecordCount"), "4");
  EXPECT_EQ(counted.at("Site"), "E");
  const Recordset walked =
      select(connection, "Select Distinct [Site] from tblSites where [Server name] = 'WEB01' ");
  EXPECT_EQ(walked.property(u"RecordCount"), "-1");
  std::string sites;
  for (; walked.property(u"EOF") == "False"; walked.moveNext()) {
    sites += walked.at("site");
    // Changes during the iteration neither fail nor affect it.
    connection.execute("Delete from tblSites Where [Site]= '" + sites + "'");
  }
  EXPECT_EQ(sites, "ABCE");
  EXPECT_EQ(failure([&] { walked.moveNext(); }), 3021u);
  EXPECT_EQ(rows(), (Rows{"web01|B|-", "web01|C|-", "WEB02|D|-", "WEB01|E|-"}));
}

TEST_P(EachStore, RunsExactlyOneUnmodifiedStatement) {
  const Connection connection = connect();
  addRow(selectNone(connection), "WEB01", "O'Brien");
  const struct {
    std::string_view sql;
    std::uint32_t number;
  } refused[] = {
      {"Update tblSites set Status= 'Custom' Where [Site]= 'O'Brien'", 0x80040E14},
      {"Update tblSites set Status= 'x'; delete from tblSites", 0x80040E14},
      {{"delete from tblSites\0 where 1=2", 31}, 0x80040E14},
      {"Update tblNone set Status= 'x'", 0x80040E37},
      {"  ", 0x80040E0C},
      {"begin", private_ != nullptr ? 0x80040E14 : 3219},
  };
  for (const auto& [sql, number] : refused) {
    EXPECT_EQ(failure([&, text = sql] { connection.execute(text); }), number) << sql;
  }
  EXPECT_EQ(rows(), Rows{"WEB01|O'Brien|-"});
  connection.execute("Update tblSites set Status= 'x' Where [Server name] ='web01' ; ");
  EXPECT_EQ(rows(), Rows{"WEB01|O'Brien|x"});
}

TEST_P(EachStore, StoresAnyText) {
  const std::string odd("a\0b \xE2\x82\xAC\xF0\x9F\x98\x80", 11);
  const Connection connection = connect();
  const Recordset added = selectNone(connection);
  addRow(added, odd, "Z\xC3\xBCrich");
  const Recordset found = select(connection, "Select * from tblSites");
  EXPECT_EQ(found.at("Server name"), odd);
  EXPECT_EQ(found.at("Site"), "Z\xC3\xBCrich");
  EXPECT_EQ(added.at("Server name"), odd);
  added.addNew();
  added.setValue("Site", Variant(Text(1, char16_t{0xD800}) + u"x"));
  added.update();
  EXPECT_EQ(added.at("Site"), "\xEF\xBF\xBDx");
}

TEST_P(EachStore, ConnectionsAndOwnerShareTheDatabase) {
  const Connection outer = connect();
  const Recordset pending = selectNone(outer);
  pending.addNew();
  pending.set("Site", "outer");
  const Connection inner = connect();
  addRow(selectNone(inner), "WEB01", "inner");
  EXPECT_EQ(countAll(outer), "1");
  inner.close();
  pending.update();
  EXPECT_EQ(countAll(connect()), "2");

  const auto owner = openDatabase();
  owner->execute("delete from tblSites; alter table tblSites add column [Added] text");
  const Recordset wider = selectNone(outer);
  wider.add("Added", "x");
  EXPECT_EQ(rows(), Rows{"-|-|-|x"});
  owner->execute("drop table tblSites");
  wider.addNew();
  EXPECT_EQ(failure([&] { wider.update(); }), 0x80040E37);
}

TEST_F(Store, KeepsTheRowPendingIfTheFileIsFull) {
  const Connection connection = connect();
  const Recordset added = selectNone(connection);
  connection.execute("pragma max_page_count = 4");
  added.addNew();
  added.set("Site", std::string(100000, 'x'));
  EXPECT_EQ(failure([&] { added.update(); }, "full"), 0x80004005);
  EXPECT_EQ(failure([&] { added.addNew(); }, "full"), 0x80004005);
  EXPECT_EQ(failure([&] { added.close(); }), 3219u);
  added.set("Site", "small");
  added.update();
  EXPECT_EQ(rows(), Rows{"-|small|-"});
}

TEST_F(Store, ReportsUnusableFilesAtOpen) {
  folder_.file("text.db", "These are not rows");
  const auto opening = [](const fs::path& file, const std::string& piece) {
    return failure([&] { Connection().open(file); }, piece);
  };
  EXPECT_EQ(opening(folder_ / "missing.db", "missing.db': there is no such file"), 0x80004005);
  EXPECT_FALSE(fs::exists(folder_ / "missing.db"));
  EXPECT_EQ(opening(folder_.path(), "is a directory"), 0x80004005);
  EXPECT_EQ(opening(folder_ / "text.db", "is not a database"), 0x80004005);
}

TEST_F(Store, DoesNotWriteToAReplacedFile) {
  const Recordset stale = selectNone(connect());
  addRow(stale, "WEB01", "old");
  fs::rename(path_, folder_ / "moved.db");
  makeTables(*openDatabase());
  addRow(selectNone(connect()), "WEB01", "new");
  stale.addNew();
  EXPECT_EQ(failure([&] { stale.update(); }), 0x80004005);
  EXPECT_EQ(rows(), Rows{"WEB01|new|-"});
  path_ = folder_ / "moved.db";
  EXPECT_EQ(rows(), Rows{"WEB01|old|-"});
}

// With the database locked, `impatient` fails, and `patient` succeeds once the lock is released.
void expectLockWait(Database& other, const std::function<void()>& impatient,
                    const std::function<void()>& patient) {
  std::optional<sqlite::Transaction> lock(std::in_place, other);
  platform::store::setLockWait(std::chrono::milliseconds(10));
  EXPECT_EQ(failure(impatient, "locked"), 0x80004005);
  platform::store::setLockWait(std::chrono::hours(1));
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    lock.reset();
  });
  patient();
  release.join();
}

TEST_F(Store, SavedRowsSurviveTheDeathOfTheProcess) {
  const pid_t process = ::fork();
  if (process == 0) {
    const Recordset added = selectNone(connect());
    for (int row = 0; row < 500; ++row) addRow(added, "WEB01", "saved");
    added.addNew();
    added.set("Site", "pending");
    ::kill(::getpid(), SIGKILL);
  }
  ::waitpid(process, nullptr, 0);
  EXPECT_EQ(rows(), Rows(500, "WEB01|saved|-"));
}

TEST_F(Store, WaitsForLocksOfOtherProcesses) {
  const auto other = openDatabase();
  const Connection connection;
  const auto open = [&] { connection.open(path_); };
  expectLockWait(*other, open, open);
  const Recordset patient = selectNone(connection);

  platform::store::setLockWait(std::chrono::milliseconds(10));
  const Connection reader = connect();
  const Recordset waiting = selectNone(reader);
  waiting.addNew();
  waiting.set("Site", "waited");
  expectLockWait(
      *other,
      [&] {
        EXPECT_EQ(countAll(reader), "0");
        waiting.update();
      },
      [&] { patient.add("Site", "next"); });
  EXPECT_EQ(rows(), Rows{"-|next|-"});
}

TEST_F(Store, OpensTheFileWithoutAPrivateDatabase) {
  PrivateDatabase privateDatabase(path_.string());
  makeTables(privateDatabase.database());
  const auto privateRowCount = [&] {
    return privateDatabase.database().value("select count(*) from tblSites");
  };
  for (int turn = 1; turn <= 2; ++turn) {
    {
      const ConnectionRedirect redirect(privateDatabase);
      const Connection connection = connect();
      addRow(selectNone(connection), "WEB01", "private");
      std::thread([&] { addRow(selectNone(connect()), "WEB01", "elsewhere"); }).join();
      path_ = folder_ / "." / "store.db";
      addRow(selectNone(connect()), "WEB01", "under another name");
      path_ = folder_ / "store.db";
      EXPECT_EQ(countAll(connection), "1");
    }
    EXPECT_EQ(countAll(connect()), std::to_string(2 * turn));
    EXPECT_EQ(privateRowCount(), "1");
    // The tables are kept for the next turn.
    privateDatabase.empty();
    EXPECT_EQ(privateRowCount(), "0");
  }
}

}  // namespace
