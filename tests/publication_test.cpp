// What a run of the program leaves in the inventory: all of a server's collection or what stood before.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/sections.h"
#include "inventory/inventory.h"
#include "tests/support/collection.h"
#include "tests/support/few_rows.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using sqlite::Database;
using Strings = std::vector<std::string>;
using test::Arguments;
using test::everyRow;
using test::FewRows;
using test::Result;

const std::string kLegacy = SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml";

// What a file's owner may not do root may not either, from then on.
void withoutRights() {
  ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
}

class Publication : public testing::Test {
 protected:
  // A server in a state of its own: no row, but for a pool's name, is that of another state. Gives the file.
  std::string state(int number, int sites = 3, int pools = 2) const {
    test::MetabaseOptions options;
    options.seed = static_cast<std::uint64_t>(number);
    options.sites = sites;
    options.pools = pools;
    const std::string name = std::to_string(number), server = test::generated(folder_, name, options);
    const std::string file = server.substr(server.find('=') + 1);
    std::string text = test::contents(file);
    const std::pair<const char*, std::string> changes[] = {
        {"FTP site number", "State " + name + " site"},
        {"IUSR_SERVER", "IUSR_" + name},
        {"Good bye", "Good bye " + name},
        {"LogExtFileTime", number % 2 == 0 ? "LogExtFileHost" : "LogExtFileReferer"},
        {",Extension ", ",State " + name + " extension "},
        {"D:", name + ":"},
        {"CPULimit", "PingInterval=\"" + name + "\" CPULimit"}};
    for (const auto& [what, with] : changes) text = std::regex_replace(text, std::regex(what), with);
    return folder_.file(name + ".xml", text);
  }

  // The same with something else in it, unless told a problem at each site.
  std::string changed(const std::string& file, const char* what = "ServerBindings=\":200",
                      const std::string& with = "ServerBindings=\"x\" Own=\"") const {
    return folder_.file("changed.xml", std::regex_replace(test::contents(file), std::regex(what), with));
  }

  // Runs the program, which must end with a status and, if told, say something.
  Result collect(Arguments arguments, int status = 0, const std::string& words = "",
                 const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.begin(), "collect");
    arguments.insert(arguments.end(), {"--database", database_.string()});
    const Result result = test::run(folder_, arguments, prepare);
    EXPECT_EQ(result.status, status) << result.out << result.err;
    EXPECT_NE((result.out + result.err).find(words), std::string::npos) << words << result.out << result.err;
    EXPECT_TRUE(fs::is_empty(folder_ / "temporary"));
    return result;
  }

  Strings rows() const { return everyRow(database_); }

  // The first column of an SQL text's rows.
  Strings values(const std::string& sql) const {
    Database database(database_, Database::Mode::kReadOnly, {});
    auto statement = database.prepare(sql);
    Strings found;
    while (statement.step()) found.emplace_back(statement.text(0).value_or("-"));
    return found;
  }
  std::string value(const std::string& sql) const {
    const Strings found = values(sql);
    return found.empty() ? "" : found.front();
  }

  static Strings rowsWhere(const fs::path& path, const inventory::Table& table,
                           const std::string& condition) {
    Database database(path, Database::Mode::kReadOnly, {});
    auto statement = database.prepare("select * from " + std::string(table.name) + " where " + condition);
    Strings all;
    while (statement.step()) {
      std::string& row = all.emplace_back();
      for (int column = 0; column < statement.columnCount(); ++column)
        row.append("|").append(statement.text(column).value_or("-"));
    }
    std::sort(all.begin(), all.end());
    return all;
  }

  const test::Folder folder_;
  fs::path database_ = folder_.folder("kept") / "inventory.db";
};

TEST_F(Publication, ReplacesWhatIsSelectedAndWhatIsNoLongerThere) {
  // Site 4 and pool 3 are in the second state alone.
  const std::string files[] = {state(1), state(2, 4, 3)};
  const fs::path wholes[] = {folder_ / "0.db", folder_ / "1.db"}, kept = database_;
  const std::string there[][3] = {{"'1', '2', '3'", "'Pool 1', 'Pool 2'", ""},
                                  {"'1', '2', '3', '4'", "'Pool 1', 'Pool 2', 'Pool 3'", ""}};
  for (const int at : {0, 1}) {
    database_ = wholes[at];
    collect({"A=" + files[at]});
  }
  const struct {
    Arguments options;
    // The tables that are gathered of sites, of pools and of neither; the items selected. "*" and "" are all.
    std::string tables[3], items[3] = {};
    bool vanished = false;
  } cases[] = {
      {{"--only", "message"}, {"tblMessageSetting"}},
      {{"--only", "General"}, {"tblGeneral", "tblGeneral"}},
      {{"--only", "Web Service Extensions"}, {"", "", "*"}},
      {{"--site", "1"}, {"*"}, {"'1'"}},
      {{"--site", "4", "--site", "2"}, {"*"}, {"'4', '2'"}, true},
      {{"--pool", "pool 1"}, {"", "*"}, {"", "'Pool 1'"}},
      {{"--pool", "Pool 3"}, {"", "*"}, {"", "'Pool 3'"}, true},
      {{"--only", "General", "--site", "3", "--pool", "Pool 2"},
       {"tblGeneral", "tblGeneral"},
       {"'3'", "'Pool 2'"}},
      {{"--only", "Virtual Directories", "--site", "4", "--only", "Applied Objects"},
       {"tblvirtualDirectory tblvirtualDirSecurity", "tblAppliedObject"},
       {"'4'"},
       true},
  };
  const std::string_view columns[] = {inventory::kSiteColumn, inventory::kPoolColumn,
                                      inventory::kServerColumn};
  const char* const lists[] = {"tblFTPSiteInfo", "tblAppPoolInfo", ""};
  for (const auto& [options, tables, items, vanishes] : cases) {
    for (const int before : {0, 1}) {
      const int now = 1 - before;
      database_ = kept;
      fs::copy_file(wholes[before], database_, fs::copy_options::overwrite_existing);
      Arguments arguments = options;
      arguments.push_back("A=" + files[now]);
      SCOPED_TRACE(testing::PrintToString(arguments));
      const bool vanished = vanishes && now == 0;
      collect(arguments, vanished ? 1 : 0, vanished ? "there is no " : "collected 1 server");
      EXPECT_EQ(value("select count(*) from Collections"), "2");
      for (const inventory::Table& table : inventory::tables()) {
        for (const int side : {0, 1, 2}) {
          const bool ofItems = hasColumn(table, columns[0]) || hasColumn(table, columns[1]);
          if (side == 2 ? ofItems : !hasColumn(table, columns[side])) continue;
          const std::string item = sqlite::quotedName(columns[side]), name(table.name);
          const bool isList = name == lists[side];
          const bool taken = tables[side] == "*" || tables[side].find(name) != std::string::npos ||
                             (isList && tables[side] != "");
          const std::string selected =
              isList || items[side].empty() ? "1" : item + " in (" + items[side] + ")";
          Strings expected =
              rowsWhere(wholes[now], table, item + " is not null and " + (taken ? selected : "0"));
          const Strings old = rowsWhere(
              wholes[before], table,
              item + (taken ? " in (" + there[now][side] + ") and not " + selected : " is not null"));
          expected.insert(expected.end(), old.begin(), old.end());
          std::sort(expected.begin(), expected.end());
          EXPECT_EQ(rowsWhere(kept, table, item + " is not null"), expected) << name;
        }
      }
    }
  }
}

TEST_F(Publication, KeepsTheWordOnACollectionUntilAllThatItBroughtIsReplaced) {
  const std::string good = state(1), bad = changed(good);
  const auto problems = [&] {
    return values(
        "select \"Table\" || ' ' || \"Item\" || ' ' || \"Node\" from Problems where Kind = 'problem'");
  };
  const auto selections = [&] { return values("select \"Selection\" from Collections"); };
  const auto general = [](const std::string& site) {
    return "tblGeneral " + site + " IIS://A/MSFTPSVC/" + site;
  };
  collect({"A=" + bad}, 1);
  EXPECT_EQ(problems(), (Strings{general("1"), general("2"), general("3")}));
  EXPECT_EQ(value("select Problems || ' ' || Notes from Collections"), "3 0");
  collect({"A=" + good, "--only", "General", "--site", "2"});
  collect({"A=" + bad, "--only", "General", "--site", "3"}, 1);
  EXPECT_EQ(problems(), (Strings{general("1"), general("3")}));
  EXPECT_EQ(selections(), (Strings{"", "--only 'General' --site '2'", "--only 'General' --site '3'"}));
  Arguments ofSites = {"A=" + good}, ofPools = ofSites;
  for (const host::Section& section : host::sections()) {
    // "General" is of both.
    if (section.side == host::Side::kPools && section.name == "General") continue;
    Arguments& arguments = section.side == host::Side::kFtp ? ofSites : ofPools;
    arguments.insert(arguments.end(), {"--only", std::string(section.name)});
  }
  collect(ofSites);
  EXPECT_EQ(problems(), Strings());
  EXPECT_EQ(selections().size(), 2U) << "the whole one for the rest of the pools, and this one";
  collect(ofPools);
  EXPECT_EQ(value("select count(*) || min(length(Selection) > 0) from Collections"), "21");
  collect({"A=" + good});
  EXPECT_EQ(selections(), Strings{""});
  EXPECT_EQ(value("select \"File size\" || \"SHA-256\" from Collections").size(), 5U + 64);
}

TEST_F(Publication, TakesNamesThatDifferInCaseForOneAndLeavesOthersAlone) {
  collect({"\u00C4RGER=" + kLegacy, "\u00C4=" + state(1), "WEB=" + kLegacy}, 1);
  const Strings first = rows();
  collect({"\u00E4rger=" + kLegacy, "web=" + kLegacy}, 1, "replaced 62 rows of 2 servers ");
  EXPECT_EQ(rows().size(), first.size());
  EXPECT_EQ(value("select count(distinct \"Server name\") from Problems"), "2");
  EXPECT_EQ(value("select count(*) from Collections"), "3");
  collect({"\u00C4RGER=" + kLegacy, "WEB=" + kLegacy}, 1);
  EXPECT_EQ(rows(), first);
  collect({"web01=" SAMPLES_DIRECTORY "/WEB01/MetaBase.xml", "--pool", "\u00FCBERSICHT"});
  EXPECT_EQ(values("select \"Application pool name\" from tblHealth where \"Server name\" = 'WEB01'"),
            Strings{"\u00DCbersicht"});
}

TEST_F(Publication, KnowsWhoseARowWithoutAPathIsAndMakesAllOrNothingOfSeveral) {
  const auto publish = [&](const std::vector<std::pair<std::string, const FewRows*>>& all,
                           const inventory::Scope& scope = {}) {
    test::publish(database_.string(), all, scope);
  };
  const auto sites = [&] {
    return values("select \"Identifier\" || \"Directory name\" from tblvirtualDirectory order by 1");
  };
  const std::string table = "tblvirtualDirectory";
  const FewRows a(table, {{"", "1", "a"}, {"", "2", "a"}}), fewer(table, {{"", "2", "a"}}), none(table);
  const FewRows b(table, {{"IIS://B/MSFTPSVC/1/ROOT", "1", "b"}, {"", "1", "b"}, {"", "2", "b"}});
  FewRows failing(table);
  failing.fails = true;
  publish({{"A", &a}, {"B", &b}});
  publish({{"a", &fewer}});
  EXPECT_EQ(sites(), (Strings{"1b", "1b", "2a", "2b"}));
  EXPECT_THROW(publish({{"A", &none}, {"B", &failing}}), std::exception);
  EXPECT_EQ(sites(), (Strings{"1b", "1b", "2a", "2b"}));
  publish({{"B", &none}},
          {false, {{"tblvirtualDirectory", inventory::ItemKind::kSite, false, {"1"}, {"1", "2"}}}});
  EXPECT_EQ(sites(), (Strings{"2a", "2b"}));
  // As the bookkeeping stood earlier, and damaged.
  const auto execute = [&](const std::string& sql) {
    Database(database_, Database::Mode::kReadWrite, {}).execute(sql);
  };
  execute(R"(alter table Collections add "Still current"; alter table Collections add "Rows without a path";
             update Collections set ("Still current", "Rows without a path") =
               (select "Still current", "Rows without a path" from "Collections bookkeeping" as kept
                where kept."Server name" = Collections."Server name");
             drop table "Collections bookkeeping")");
  publish({{"C", &none}});
  publish({{"B", &none}});
  EXPECT_EQ(sites(), Strings{"2a"});
  EXPECT_EQ(value("select count(*) from pragma_table_info('Collections')"), "14");
  for (const char* text : {"[", "7", "[7]", R"([{"table":"tblvirtualDirectory","row":[7]}])"}) {
    execute("update \"Collections bookkeeping\" set \"Rows without a path\" = '" + std::string(text) + "'");
    EXPECT_THROW(publish({{"A", &fewer}}), inventory::Error) << text;
    EXPECT_EQ(sites(), Strings{"2a"});
  }
}

TEST_F(Publication, TurnsAFileOfVersionOneIntoOneWithoutALog) {
  for (const std::string mode : {"delete", "wal", "killed"}) {
    SCOPED_TRACE(mode);
    fs::remove(database_);
    collect({"A=" + kLegacy}, 1);
    const Strings before = rows();
    // As version 1.0.0 left it, or would have if it had been killed.
    test::endOf(test::inChild([&] {
      Database database(database_, Database::Mode::kReadWrite, {});
      database.execute("drop table Collections; drop table Problems");
      auto look =
          database.prepare("select 'drop index \"' || name || '\"' from sqlite_schema where type = 'index'");
      Strings drops;
      while (look.step()) drops.emplace_back(*look.text(0));
      for (const std::string& drop : drops) database.execute(drop);
      if (mode != "delete") database.execute("pragma journal_mode = wal");
      database.execute("update tblGeneral set State = 'of 1.0.0'");
      if (mode == "killed") ::kill(::getpid(), SIGKILL);
    }));
    EXPECT_EQ(fs::exists(database_.string() + "-wal"), mode == "killed");
    EXPECT_EQ(test::run(folder_, {"show", "--database", database_.string()}).status, 0);
    collect({"B=" + state(1)});
    EXPECT_EQ(test::rowsOf("A", rows()).size(), before.size());
    EXPECT_EQ(value("select count(*) from tblGeneral where State = 'of 1.0.0'"), "2");
    EXPECT_EQ(value("pragma journal_mode"), "delete");
    EXPECT_EQ(value("pragma integrity_check"), "ok");
    EXPECT_EQ(value("select count(distinct tbl_name) from sqlite_schema where type = 'index'"), "21");
    for (const char* beside : {"-wal", "-shm", "-journal"}) {
      EXPECT_FALSE(fs::exists(database_.string() + beside)) << beside;
    }
    // They say whose they are, so that their next collection replaces them.
    collect({"A=" + kLegacy}, 1);
    EXPECT_EQ(test::rowsOf("A", rows()), before);
  }
}

TEST_F(Publication, RefusesSomebodyElsesTablesAndServersWithoutARow) {
  const auto execute = [&](const std::string& sql) {
    Database(database_, Database::Mode::kCreate, {}).execute(sql);
  };
  execute("create table Orders (Number); insert into Orders values (7)");
  const std::string bytes = test::contents(database_);
  collect({"A=" + kLegacy}, 2, "--force");
  EXPECT_EQ(test::contents(database_), bytes);
  collect({"A=" + kLegacy, "--force"}, 1);
  EXPECT_EQ(value("select Number from Orders"), "7");
  collect({"A=" + kLegacy}, 1);

  const Strings before = rows();
  const std::string empty = folder_.file(
      "empty.xml",
      "<configuration><MBProperty><IIsFtpService Location='/LM/MSFTPSVC'/></MBProperty></configuration>");
  collect({"A=" + empty}, 2, "A: the former inventory stands, 31 rows");
  EXPECT_EQ(rows(), before);
  collect({"A=" + empty, "B=" + kLegacy}, 1);
  EXPECT_EQ(rows().size(), 2 * before.size());

  fs::permissions(database_.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
  collect({"A=" + kLegacy}, 2, "its directory can't be written to", withoutRights);
  fs::permissions(database_.parent_path(), fs::perms::owner_all);
  execute(
      "drop view app_pool; alter table tblHealth rename column \"Enable pinging\" to Pings; drop table "
      "tblIdentity");
  collect({"A=" + kLegacy}, 2, "tblHealth has no column 'Enable pinging'");
  EXPECT_EQ(value("select count(*) from sqlite_schema where name = 'tblIdentity'"), "0");
}

TEST_F(Publication, WaitsForOthersAsLongAsItIsTold) {
  collect({"A=" + state(1)});
  const Strings before = rows();
  const std::string now = changed(state(2));
  Database other(database_, Database::Mode::kReadWrite, {});
  const auto start = [&](const std::string& wait) {
    return std::make_unique<test::Program>(
        folder_, Arguments{"collect", "A=" + now, "--wait", wait, "--database", database_.string()});
  };
  for (const bool reads : {true, false}) {
    std::optional<sqlite::ReadTransaction> reader;
    std::optional<sqlite::Transaction> writer;
    reads ? static_cast<void>(reader.emplace(other)) : static_cast<void>(writer.emplace(other));
    Result result = start("0.01")->end();
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("locked by somebody else"), std::string::npos) << result.err;
    EXPECT_NE(result.out.find("all of them: the logs in "), std::string::npos) << result.out;
    const auto interrupted = start("100000");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ::kill(interrupted->id(), SIGTERM);
    result = interrupted->end();
    EXPECT_EQ(result.status, -SIGTERM);
    const auto patient = start("100000");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(patient->runs());
    EXPECT_EQ(rows(), before);
    reader.reset();
    writer.reset();
    EXPECT_EQ(patient->end().status, 1);
    collect({"A=" + state(1)});
  }
}

TEST_F(Publication, IsNotHeldUpByWhoeverDoesNotRead) {
  collect({"A=" + state(1)});
  const Strings before = rows();
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const std::string full(static_cast<std::size_t>(::fcntl(ends[1], F_SETPIPE_SZ, 4096)), 'x');
  ASSERT_EQ(::write(ends[1], full.data(), full.size()), static_cast<ssize_t>(full.size()));
  test::Program program(folder_, {"collect", "A=" + state(2), "--database", database_.string()},
                        [&] { ::dup2(ends[1], STDOUT_FILENO); });
  // What it has published it wants to say.
  while (rows() == before) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ::kill(program.id(), SIGINT);
  const Result result = program.end();
  EXPECT_EQ(result.status, -SIGINT);
  EXPECT_EQ(result.err, "iisinventory: ended by a signal; in the inventory: A; not touched: none\n");
  EXPECT_TRUE(fs::is_empty(folder_ / "temporary"));
  ::close(ends[0]);
  ::close(ends[1]);
}

// Lets this process mount what nobody else sees. False where it may not.
bool ownMounts() {
  const std::string user = std::to_string(::getuid()), group = std::to_string(::getgid());
  if (::unshare(CLONE_NEWNS) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
    std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// A small disk, gone with its owner.
class Disk {
 public:
  // Of so many KiB; in the image of a file system with blocks of 1 KiB where one is named.
  Disk(const fs::path& place, int size, const std::string& image = "") : place_(place) {
    const std::string kib = std::to_string(size), at = " '" + place.string() + "' 2>/dev/null";
    if (image.empty()) {
      there_ = ::mount("none", place.c_str(), "tmpfs", 0, ("size=" + kib + "k").c_str()) == 0;
    } else {
      const std::string make = "mkfs.ext2 -q -b 1024 '" + image + "' " + kib + " >/dev/null 2>&1";
      there_ = std::system((make + " && mount -o loop '" + image + "'" + at).c_str()) == 0;
    }
  }
  ~Disk() {
    if (there_) ::umount2(place_.c_str(), MNT_DETACH);
  }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  explicit operator bool() const { return there_; }

  std::uintmax_t room() const { return fs::space(place_).available; }

  // Writes to a file until that many bytes are left at most.
  void fill(std::uintmax_t left) const {
    std::ofstream filler(place_ / "filler", std::ios::app);
    const std::string block(1024, 'x');
    while (filler && room() > left) filler.write(block.data(), 1024).flush();
  }

 private:
  fs::path place_;
  bool there_ = false;
};

TEST_F(Publication, OnASmallDiskIsWholeOrLeavesWhatStood) {
  if (!ownMounts()) GTEST_SKIP() << "nothing may be mounted here";
  const std::string old = state(1);
  const std::string now = changed(state(2));
  collect({"A=" + now}, 1);
  const Strings newRows = rows();
  const fs::path former = folder_ / "former.db";
  fs::remove(database_);
  collect({"A=" + old});
  const Strings oldRows = rows();
  fs::copy_file(database_, former);

  const fs::path place = folder_.folder("disk");
  database_ = place / "inventory.db";
  const std::set<std::string> known = {"inventory.db", "TORVINLog.Log", "A.log", "filler", "lost+found"};
  int published = 0, refused = 0;
  // Collects and looks at what has come of it. So many bytes are left, or ever fewer.
  constexpr int kMeanwhile = -1;
  const auto tryIt = [&](const Disk& disk, bool again, int room) {
    for (const fs::directory_entry& entry : fs::directory_iterator(place)) fs::remove(entry);
    std::error_code error;
    if (again && !fs::copy_file(former, database_, error)) return;
    if (room != kMeanwhile) disk.fill(static_cast<std::uintmax_t>(room));
    test::Program program(folder_, {"collect", "A=" + (again ? now : old), "--database", database_.string()});
    while (room == kMeanwhile && program.runs() && disk.room() > 0) disk.fill(disk.room() - 1);
    const Result result = program.end();
    SCOPED_TRACE((again ? "again, " : "first, ") + std::to_string(room) + " bytes left\n" + result.out +
                 result.err);
    const bool isPublished = result.status < 2;
    ++(isPublished ? published : refused);
    EXPECT_TRUE(result.status == 2 || result.status == (again ? 1 : 0)) << result.status;
    const Strings found = rows();
    EXPECT_EQ(found, isPublished ? (again ? newRows : oldRows) : (again ? oldRows : Strings()))
        << found.size();
    EXPECT_EQ(fs::exists(database_), again || isPublished);
    if (fs::exists(database_)) {
      EXPECT_EQ(value("pragma integrity_check"), "ok");
    }
    EXPECT_EQ(result.err.find("former inventory stands") != std::string::npos, again && !isPublished);
    for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
      EXPECT_TRUE(known.contains(entry.path().filename())) << entry;
    }
  };
  const std::pair<int, std::string> disks[] = {
      {60, ""}, {200, ""}, {350, ""}, {500, ""}, {700, ""}, {2048, ""}, {800, (folder_ / "image").string()}};
  for (const auto& [size, image] : disks) {
    SCOPED_TRACE(std::to_string(size) + " KiB " + image);
    const Disk disk(place, size, image);
    if (!disk) {
      std::cout << "no disk of this kind here: " << size << " KiB " << image << "\n";
      continue;
    }
    for (const bool again : {false, true}) {
      for (const int room : {1 << 30, 300000, 100000, 20000, 0, kMeanwhile}) tryIt(disk, again, room);
    }
  }
  std::cout << published << " published, " << refused << " refused\n";
  EXPECT_GT(published, 5);
  EXPECT_GT(refused, 5);
}

TEST_F(Publication, WithoutRoomForWhatIsPrivateIsToldAndDoesNotHappen) {
  collect({"A=" + kLegacy}, 1);
  const Strings before = rows();
  // Long names, so that what is private doesn't stay in memory.
  const std::string small = state(1);
  const std::string large = changed(state(2, 1000), "State 2 site", std::string(12000, 'x'));
  const auto limited = [](rlim_t kibibytes) {
    return [kibibytes] {
      const rlimit shortFiles{kibibytes * 1024, kibibytes * 1024};
      if (::setrlimit(RLIMIT_FSIZE, &shortFiles) != 0) throw std::runtime_error("no limit");
    };
  };
  collect({"A=" + small}, 2, "File too large", limited(100));
  collect({"A=" + large}, 2, "the temporary database: disk I/O error: File too large", limited(400));
  collect({"A=" + state(1, 300)}, 2, "inventory.db': disk I/O error: File too large", limited(400));
  if (!ownMounts()) GTEST_SKIP() << "nothing may be mounted here";
  const fs::path place = folder_.folder("disk");
  const auto elsewhere = [&] { ::setenv("TMPDIR", place.c_str(), 1); };
  {
    const Disk disk(place, 60);
    const Result none = collect({"A=" + small, "B=" + small}, 2, "No space left on device", elsewhere);
    EXPECT_NE(none.err.find("\niisinventory: B: not published: "), std::string::npos) << none.err;
  }
  const Disk disk(place, 2048);
  const Result result =
      collect({"A=" + large}, 2, "the temporary database: there is no space left", elsewhere);
  EXPECT_NE(result.err.find("the former inventory stands"), std::string::npos) << result.err;
  EXPECT_EQ(rows(), before);
  EXPECT_TRUE(fs::is_empty(place));
  collect({"A=" + small}, 0, "", elsewhere);
}

TEST_F(Publication, HappensWhenAUsersLogCannotBeWritten) {
  const fs::path log = database_.parent_path() / "A.log";
  const std::pair<std::string, std::function<void()>> troubles[] = {
      {"Is a directory", [&] { fs::create_directory(log); }},
      {"it is not a plain file", [&] { fs::create_symlink("/dev/full", log); }},
      {"it is a FIFO", [&] { ASSERT_EQ(::mkfifo(log.c_str(), 0600), 0); }},
      {"Permission denied", [&] { ::close(::open(log.c_str(), O_CREAT | O_WRONLY, 0400)); }},
      {"it is locked by somebody else",
       [&] { ASSERT_EQ(::flock(::open(log.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600), LOCK_EX), 0); }},
  };
  for (const auto& [why, make] : troubles) {
    SCOPED_TRACE(why);
    fs::remove(database_);
    fs::remove(log);
    make();
    collect({"A=" + kLegacy, "--wait", "0"}, 1, log.string() + ": " + why, withoutRights);
    EXPECT_EQ(rows().size(), 31U);
    EXPECT_EQ(value("select count(*) from Problems where Message like 'Can''t write the log%'"), "1");
    EXPECT_EQ(value("select count(*) from Problems"), "6");
  }
}

TEST_F(Publication, IsOfTheStateInWhichTheFileWasFirstRead) {
  const std::string file = state(1, 1000), other = state(2, 1000), kept = folder_ / "kept.xml";
  fs::copy_file(file, kept);
  collect({"A=" + file});
  const Strings expected = rows();
  const std::function<void()> changes[] = {[&] { fs::rename(other, file); },
                                           [&] { fs::resize_file(file, 1000); }, [&] { fs::remove(file); }};
  for (const auto& change : changes) {
    fs::copy_file(kept, file, fs::copy_options::overwrite_existing);
    bool changed = false;
    const Result result =
        test::runOnTerminal(folder_, 80, {"collect", "A=" + file, "--database", database_.string()},
                            [&](pid_t, const std::string& shown) {
                              if (changed || shown.find("Loading") == std::string::npos) return;
                              change();
                              changed = true;
                            });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_NE(result.out.find("1 note:"), std::string::npos) << result.out;
    EXPECT_EQ(rows(), expected);
    EXPECT_TRUE(value("select Kind || Message from Problems")
                    .ends_with("has changed since it was read; the inventory shows what it held before"));
    EXPECT_EQ(value("select Problems || ' ' || Notes from Collections"), "0 1");
  }

  // Whoever is read slowly locks nobody out.
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  test::Program slow(folder_, {"show", "tblvirtualDirectory", "--database", database_.string()},
                     [&] { ::dup2(ends[1], STDOUT_FILENO); });
  char byte = 0;
  EXPECT_EQ(::read(ends[0], &byte, 1), 1);
  collect({"A=" + kept, "--wait", "0"});
  EXPECT_TRUE(slow.runs());
  ::close(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ(slow.end().status, 0);
}

TEST_F(Publication, ShowsProblemsOfOneKindTogetherAndEachWithItsPlace) {
  std::string text =
      "<configuration><MBProperty><IIsFtpInfo Location='/LM/MSFTPSVC/Info' MajorIIsVersionNumber='6'/>";
  for (int at = 1; at <= 30; ++at) {
    // All with one comment, so that only their order tells them apart, and 25 with a value of their own.
    const std::string site = std::to_string(at), place = " Location='/LM/MSFTPSVC/" + site;
    text += "<IIsFtpServer" + place + "' ServerComment='Same' ServerBindings='none'" +
            " LogPluginClsid='{FF160657-DE82-11CF-BC0A-00AA006111E0}' LogFilePeriod='";
    text += (at > 25 ? "1" : "x" + site) + "'/><IIsFtpVirtualDir" + place + "/ROOT' Path='C:\\f'/>";
  }
  const Result result = collect({"A=" + folder_.file("a.xml", text + "</MBProperty></configuration>")}, 1,
                                "\n55 problems:\n"
                                "  30 x GetServerGeneralProperty, 0x9\n"
                                "      Subscript out of range\n"
                                "      first at IIS://A/MSFTPSVC/1\n"
                                "  1 x GetLogFileSetting, 0x8000500C\n");
  EXPECT_NE(result.out.find("\n  and 6 more kinds\n"), std::string::npos) << result.out;
  const Result shown =
      test::run(folder_, {"show", "problems", "--database", database_.string(), "--format", "csv"});
  for (const std::string site : {"1", "7", "30"}) {
    EXPECT_NE(shown.out.find("\r\nA,problem,tblGeneral,site," + site + ",IIS://A/MSFTPSVC/" + site +
                             ",,GetServerGeneralProperty,0x9,Subscript out of range,"),
              std::string::npos)
        << shown.out;
  }
  EXPECT_EQ(std::count(shown.out.begin(), shown.out.end(), '\n'), 56);
}

}  // namespace
