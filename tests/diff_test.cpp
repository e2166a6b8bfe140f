// Differences between two states of a server, and between two servers.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inventory/catalog/catalog.h"
#include "inventory/names.h"
#include "sqlite/database.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using sqlite::Database;
using sqlite::quotedName;
using test::Arguments;

const std::string kWeb01 = SAMPLES_DIRECTORY "/WEB01/MetaBase.xml";
const std::string kLegacy = SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml";

class Diff : public testing::Test {
 protected:
  void collect(const std::string& database, Arguments arguments) const {
    arguments.insert(arguments.begin(), "collect");
    arguments.insert(arguments.end(), {"--database", database, "--quiet"});
    EXPECT_LT(test::run(folder_, arguments).status, 2);
  }

  void change(const std::string& sql) const {
    fs::copy_file(old_, new_, fs::copy_options::overwrite_existing);
    Database(new_, Database::Mode::kReadWrite, {}).execute(sql);
  }

  // The reported differences, as "object name | table | column | old | new | result".
  std::vector<std::string> differences(Arguments arguments, int status, const std::string& words = "") const {
    arguments.insert(arguments.begin(), "diff");
    arguments.insert(arguments.end(), {"--format", "json"});
    const test::Result result = test::runExpecting(folder_, arguments, status, words);
    std::vector<std::string> all;
    if (status == 2) return all;
    const auto text = [](const json& value) { return value.is_null() ? "-" : value.get<std::string>(); };
    for (const json& row : json::parse(result.out)) {
      all.push_back(text(row["Object"]) + " " + text(row["Name"]) + " | " + text(row["Table"]) + " | " +
                    text(row["Column"]) + " | " + text(row["Old"]) + " | " + text(row["New"]) + " | " +
                    text(row["Result"]));
    }
    return all;
  }
  std::vector<std::string> differences(int status) const { return differences({old_, new_}, status); }

  const test::Folder folder_;
  const std::string old_ = (folder_ / "old.db").string(), new_ = (folder_ / "new.db").string();
};

TEST_F(Diff, ReportsNothingForTheSameRowsInAnotherOrder) {
  collect(old_, {kWeb01});
  EXPECT_EQ(differences({old_, old_}, 0), std::vector<std::string>());
  // Every number n of the first collection becomes 5000 - n.
  const auto reversed = [](const std::string& table, const std::string& column, const std::string& sum) {
    const std::string set = "update " + table + " set " + column + " = ";
    return set + "-" + column + "; " + set + sum + " + " + column + ";";
  };
  std::string sql = reversed("objects", "number", "5000") + "update objects set parent = 5000 - parent;";
  for (const inventory::Table& table : inventory::tables()) {
    const std::string name = quotedName(table.name);
    sql += reversed(name, "id", "(2 << 32) + 5000");
    if (table.hasSeveralRows) sql += reversed(name, "number", "50");
  }
  change(sql);
  EXPECT_EQ(differences(0), std::vector<std::string>());
}

// Sets each column to "changed COLUMN.", as far as possible in different objects.
TEST_F(Diff, ReportsAChangeInEachColumnOfEachTable) {
  collect(old_, {kWeb01});
  const std::set<std::string_view> identities = {
      "Server name",    "FTP site name",         "Identifier",           "IISPath",
      "Directory name", "Application pool name", "Web service extension"};
  std::string sql;
  std::vector<std::pair<std::string, std::string>> changed;
  for (const inventory::Table& table : inventory::tables()) {
    const std::string name = quotedName(table.name), ids = "select distinct id from " + name;
    int offset = 0;
    for (const inventory::Column& column : table.columns) {
      if (identities.contains(column.name)) continue;
      changed.emplace_back(table.name, column.name);
      sql += "update " + name + " set " + quotedName(column.name) + " = 'changed " + changed.back().second +
             ".' where id = (" + ids + " order by id desc limit 1 offset " + std::to_string(offset++) +
             " % (select count(*) from (" + ids + ")))";
      sql += table.hasSeveralRows && column.role == inventory::Role::kListed ? " and number = 1;" : ";";
    }
  }
  change(sql);
  // With none of the columns ignored, with those of odd positions, and with the others.
  for (const std::size_t ignored : {2U, 1U, 0U}) {
    std::set<std::string> names;
    for (std::size_t at = ignored; at < changed.size() && ignored < 2; at += 2)
      names.insert(inventory::folded(changed[at].second));
    Arguments arguments = {old_, new_};
    for (const std::string& name : names) arguments.insert(arguments.end(), {"--ignore", name});
    const std::vector<std::string> all = differences(arguments, 1);
    for (const auto& [table, column] : changed) {
      const auto reports = [&, &table = table, &column = column](const std::string& difference) {
        return difference.find("| " + table + " |") != std::string::npos &&
               difference.find("changed " + column + ".") != std::string::npos;
      };
      EXPECT_EQ(std::ranges::count_if(all, reports), names.contains(inventory::folded(column)) ? 0 : 1)
          << table << ", " << column;
    }
    // One of several values is reported on both sides.
    EXPECT_LE(all.size(), 2 * changed.size());
  }
  Arguments arguments = {old_, new_};
  for (const auto& [table, column] : changed)
    arguments.insert(arguments.end(), {"--ignore", inventory::folded(column)});
  EXPECT_TRUE(differences(arguments, 0).empty());
}

TEST_F(Diff, ReportsObjectsOnOneSideOnly) {
  collect(old_, {kWeb01, kLegacy});
  std::string sql =
      "create temp table again as select * from tblWProcessRecycling where \"Scheduled recycle at\" = "
      "'06:00';"
      "update again set number = number + 1000; insert into tblWProcessRecycling select * from again;"
      "insert into tblWSExtension values ((1 << 32) + 1000, 1, null, 'WEB01', 'NEW', 'a', 'Allowed', 'b', "
      "'Allowed');"
      "update tblWSExtension set \"File access\" = case \"File access\" when 'Allowed' then 'Prohibited' "
      "else "
      "'Allowed' end where \"Web service extension\" = 'OSTGATE' and \"Required files path\" like "
      "'%sign.dll';"
      "delete from tblAppliedObject where \"Object name\" = 'HR';"
      "delete from tblHealth where \"Application pool name\" = 'IdleSpare';";
  for (const inventory::Table& table : inventory::tables())
    if (table.has("Identifier")) sql += "delete from " + quotedName(table.name) + " where Identifier = '21';";
  change(sql);
  EXPECT_EQ(
      differences({old_, new_, "--server", "WEB01"}, 1),
      (std::vector<std::string>{
          "site 21 (Backup & restore <night>) |  |  | - | - | only in old",
          "pool reportsPOOL | tblWProcessRecycling | Scheduled recycle at | - | 06:00 | only in new",
          "pool Batch Pool | tblAppliedObject | Object name, Object type, IP address, TCP port, State, Local "
          "path | HR, Virtual directory, -, -, -, \\\\FILE01\\web$\\hr | - | only in old",
          "pool IdleSpare | tblHealth |  | - | - | only in old",
          "extension OSTGATE (Order gateway) | tblWSExtension | Required files path, File access | "
          "D:\\Ostrelle\\Gate\\gatesign.dll, Allowed | - | only in old",
          "extension OSTGATE (Order gateway) | tblWSExtension | Required files path, File access | - | "
          "D:\\Ostrelle\\Gate\\gatesign.dll, Prohibited | only in new",
          "extension NEW (a) |  |  | - | - | only in new"}));
}

TEST_F(Diff, ReportsUnknownValuesSeparately) {
  collect(old_, {kWeb01, kLegacy});
  // The opposite direction: values that could not be read become readable.
  change(
      "delete from Problems where \"Table\" = 'tblvirtualDirSecurity'; update objects set incomplete = null;"
      "update tblvirtualDirSecurity set not_known = null, \"All computer access\" = 'Granted' where "
      "\"Directory name\" = 'private'");
  EXPECT_EQ(
      differences(0),
      (std::vector<std::string>{
          "site 4 (Mirror) | tblHomeDirectorySetting | Content source | not known | not known | not known",
          "site 4 (Mirror) | tblHomeDirectorySetting | Path | not known | not known | not known",
          "site 4 (Mirror) | tblHomeDirectorySetting | Directory Listing Style | not known | not known | "
          "not known",
          "site 7 (Old price lists) | tblGeneral |  | - | - | not known",
          "directory /MSFTPSVC/1/ROOT/private | tblvirtualDirSecurity |  | - | - | not known"}));
  fs::remove(new_);
  collect(new_, {kWeb01, "--only", "Health", "--only", "Message", "--site", "3"});
  const std::vector<std::string> part = differences({old_, new_, "--server", "web01"}, 0);
  for (const std::string& one : part) EXPECT_TRUE(one.ends_with("| not known")) << one;
  EXPECT_EQ(part.front(), "site  | tblGeneral |  | - | not collected | not known");
}

TEST_F(Diff, ComparesTwoServersOfOneDatabase) {
  const std::string twin = test::replaced(test::contents(kWeb01), "WEB01", "TWIN2");
  collect(old_, {kWeb01, "TWIN2=" + folder_.file("twin.xml", twin), kLegacy});
  EXPECT_EQ(differences({old_, "--server", "WEB01", "--against", "twin2"}, 0), std::vector<std::string>());
  const test::Result shown =
      test::runOnTerminal(folder_, 60, {"diff", old_, "--server", "WEB01", "--against", "LEGACY"});
  EXPECT_EQ(shown.status, 1);
  EXPECT_TRUE(shown.out.starts_with("WEB01 -> LEGACY\r\n")) << shown.out;
  EXPECT_NE(shown.out.find(": only on WEB01\r\n"), std::string::npos);
  std::istringstream lines(shown.out);
  // In bytes: up to two letters of a line are not ASCII, and a color has nine.
  for (std::string line; std::getline(lines, line);)
    EXPECT_LE(line.size(), 60U + 1 + 2 + (line.find('\x1B') == line.npos ? 0 : 9)) << line;
  // Paths on the own server are equal, and so are files of a third or the same server.
  const auto keep = [&](const std::string& path) {
    Database(old_, Database::Mode::kReadWrite, {})
        .execute("update tblWSExtension set [Required files path] = " + path);
    return differences({old_, "--server", "WEB01", "--against", "TWIN2"}, 0);
  };
  EXPECT_EQ(keep(R"('\\' || [Server name] || '\tools\x.dll')"), std::vector<std::string>());
  EXPECT_EQ(keep(R"('\\WEB01\tools\x.dll')"), std::vector<std::string>());
  const std::pair<Arguments, const char*> wrong[] = {
      {{old_, old_, old_}, "give one or two databases"},
      {{old_, old_, "--since", "2026-01-31"}, "two states of one database"},
      {{old_, old_, "--against", "TWIN2", "--server", "WEB01"}, "of one database"},
      {{old_, "--server", "WEB01", "--against", "TWIN"}, "did you mean 'TWIN2'?"},
      {{old_, old_, "--server", "WEB02"}, "no server 'WEB02'"},
      {{old_, old_, "--ignore", "Stat"}, "did you mean 'State'?"},
      {{old_, new_}, "there is no such file"}};
  for (const auto& [arguments, words] : wrong) differences(arguments, 2, words);
}

}  // namespace
