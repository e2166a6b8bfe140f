// Functions without side effects: log records, selections, terminal texts, suggestions, coverage.

#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "automation/runtime.h"
#include "host/collect/collection_records.h"
#include "host/collect/record_parser.h"
#include "host/console/suggestion.h"
#include "host/console/terminal_text.h"
#include "host/report/page_folder.h"
#include "host/sections.h"
#include "host/usage_error.h"
#include "inventory/catalog/catalog.h"
#include "inventory/model.h"
#include "os/spool.h"
#include "tests/support/folder.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

TEST(Records, AreParsedWithMultilineMessages) {
  const std::string time = "01/31/2026 12:00:00\t";
  std::string text = "rest of a record\r\n";
  for (const char* fields :
       {"One       \tOpen(Caller)   \t  8000500C\ttwo\r\nlines\t1\r\n", "Two\ta\tb\t         9\t\r\n",
        "Three\tno number\r\n", "no object\r\n", "Four\tr\t       G12\tx\r\n", "Five\tr\t         0\tlast"})
    text += time + fields;
  std::string all;
  for (const host::Record& record : host::parseRecords(text))
    all += record.object + "," + record.routine + "," + std::to_string(record.number) + "," + record.message +
           "|";
  EXPECT_EQ(all,
            "One,Open,-2147463156,two\r\nlines\t1|Two,a\tb,9,|Three,,0,no number|,,0,no object|"
            "Four,,0,r\t       G12\tx|Five,r,0,last|");
}

TEST(PageNames, AreSafeAndUnique) {
  EXPECT_EQ(host::page::pageNameOf("WEB01"), "server-web01.html");
  EXPECT_EQ(host::page::pageNameOf("\u00c4"), host::page::pageNameOf("\u00e4"));
  std::set<std::string> names;
  const std::string longName(64, 'a');
  for (const std::string& server :
       {std::string("a"), std::string("a<"), std::string("a "), std::string("%61"), std::string(".."),
        std::string("a~"), std::string("\u00e4"), longName, longName + "a", longName + "b"}) {
    const std::string name = host::page::pageNameOf(server);
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_.~"), name.npos) << name;
    EXPECT_LT(name.size(), 128U);
  }
}

TEST(Records, BecomeProblemsWithTheirMeaning) {
  host::countTriedRecords();
  const test::Folder folder;
  host::PrivateLogs logs(folder.path());
  host::CollectionRecords records(logs, "S");
  const auto message = [&](const char* routine, int number, const std::string& text) {
    std::ofstream log(logs.server.file(), std::ios::app | std::ios::binary);
    log << "01/31/2026 12:00:00\tObject\t" << routine << "\t" << std::setw(10) << std::hex << std::uppercase
        << number << "\t" << text << "\r\n";
    for (int part = 0; part < 3; ++part) automation::toSystemEncoding(u"");
  };
  records.begin(host::RecordContext::ofItem("tblGeneral", inventory::ObjectKind::kSite, "1", {}));
  for (int time = 0; time < 9; ++time) message("GetFTPPropertyInfo", 6, "Overflow");
  message("GetServerGeneralProperty", 6, "Overflow");
  message("EnumAppsInPool", 6, "Overflow");
  message("GetX", 94, "Invalid use of Null");
  message("GetX", 5, "IIS://S/1 (C), P: odd");
  message("GetX", 91, "Object variable not set");
  message("GetAppliedObjectProperties", static_cast<int>(0x8000500D), "IIS://S/1 (C), Path: no such");
  records.end("");
  std::string all;
  for (const inventory::Problem& problem : records.takeProblems())
    all += (problem.isNote ? "note " : "") + problem.table + ": " + problem.message + "\n";
  EXPECT_EQ(all,
            "note : more than 32,767 sites: the rest is not counted (Overflow)\n"
            "tblGeneral: a number does not fit in 16 bits (Overflow)\n"
            "tblAppliedObject: more than 32,767 applications: none of them is collected (Overflow)\n"
            "tblGeneral: a value is not set (Invalid use of Null)\n"
            "tblGeneral: IIS://S/1 (C), P: odd\n"
            "tblGeneral: P cannot be read, so what depends on it is unknown (Object variable not set)\n");
}

TEST(Selections, ContainSectionsBySideAndName) {
  const std::tuple<Strings, Strings, Strings, std::string> cases[] = {
      {{"message", "HEALTH"}, {}, {}, "Message Health "},
      {{"General"}, {}, {}, "General General "},
      {{"General"}, {"1"}, {}, "General "},
      {{"General"}, {"1"}, {"P"}, "General General "},
      {{"Health"}, {}, {"P"}, "Health "},
      {{"Message", "Web Service Extensions"}, {"1"}, {}, "Message Web Service Extensions "},
      {{"Memory Recycling"}, {}, {"P"}, "Memory Recycling "}};
  for (const auto& [names, sites, pools, expected] : cases) {
    const host::Selection selection = host::select(names, sites, pools);
    std::string all;
    for (const host::Section* section : selection.sections) all += std::string(section->name) + " ";
    EXPECT_EQ(all, expected);
    EXPECT_FALSE(selection.isWhole);
  }
  const host::Selection whole = host::select({}, {}, {});
  EXPECT_TRUE(whole.isWhole && whole.sections.size() == host::sections().size() && whole.text.empty());
  EXPECT_EQ(host::select({}, {}, {"P"}).sections.size(), 7U);
  EXPECT_EQ(host::select({"health"}, {}, {"P"}).text, "--only 'health' --pool 'P'");
  EXPECT_THROW(host::select({"Helth"}, {}, {}), host::UsageError);
  EXPECT_THROW(host::select({"Health"}, {"1"}, {}), host::UsageError);
  EXPECT_THROW(host::select({"Message"}, {}, {"P"}), host::UsageError);
}

TEST(TerminalText, IsWrappedAndTruncatedByColumns) {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  EXPECT_EQ(host::displayWidth("a\u00FC\u4E2Du\u0308"), 5U);
  EXPECT_EQ(host::cutToWidth("abc", 3) + host::cutToWidth("abc", 0) + host::cutToWidth("", 0), "abc");
  EXPECT_EQ(host::cutToWidth("abcd", 3), "ab\u2026");
  EXPECT_EQ(host::cutToWidth("\u4E2D\u4E2D", 3), "\u4E2D\u2026");
  const std::tuple<const char*, std::size_t, Strings> wrapped[] = {
      {"", 5, {""}},
      {"one two three", 7, {"one two", "three"}},
      {"one two", 3, {"one", "two"}},
      {"unbroken x", 4, {"unbr", "oken", "x"}},
      {"\u4E2D", 1, {"\u4E2D"}},
      {"\u4E2D\u4E2D\u4E2D", 4, {"\u4E2D\u4E2D", "\u4E2D"}}};
  for (const auto& [text, width, expected] : wrapped)
    EXPECT_EQ(host::wrapToWidth(text, width), expected) << text;
}

TEST(Suggestions, AreTheNearestWord) {
  const Strings words = {"Health", "Identity", "General", "\u00DCbersicht", "Hea"};
  for (const char* const word : {"Helth", "HEALHT", "healthy", "h\u00E9alth"})
    EXPECT_EQ(host::didYouMean(word, words), " (did you mean 'Health'?)") << word;
  EXPECT_EQ(host::nearest("identities", words) + host::nearest("gen", words), "IdentityGeneral");
  EXPECT_EQ(host::nearest("\u00FCbersich", words), words[3]);
  for (const std::string& word : {std::string("xyz"), std::string(), std::string(201, 'h')})
    EXPECT_EQ(host::didYouMean(word, words), "") << word;
}

TEST(Spool, ReportsATruncatedTemporaryFile) {
  const test::Folder folder;
  ::setenv("TMPDIR", folder.path().c_str(), 1);
  const std::string value(std::size_t{1} << 20, 'x');
  const std::optional<std::string_view> row[] = {value};
  os::Spool spool;
  int rows = 0;
  const auto count = [&](const os::Spool::Row&) { ++rows; };
  for (int at = 0; at < 20; ++at) spool.add(row);
  spool.forEach(1, count);
  EXPECT_EQ(rows, 20);
  for (const auto& descriptor : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const fs::path file = fs::read_symlink(descriptor, error);
    if (file.string().starts_with(folder.path().string()))
      fs::resize_file(descriptor, 10 * (8 + value.size()));
  }
  EXPECT_THROW(spool.forEach(1, count), std::runtime_error);
}

TEST(Catalogue, HasDistinctNamesAndConsistentKinds) {
  std::set<std::string_view> names;
  for (const inventory::Table& table : inventory::tables()) {
    EXPECT_TRUE(names.insert(table.name).second) << table.name;
    std::set<std::string_view> columns;
    for (const inventory::Column& column : table.columns) {
      EXPECT_TRUE(columns.insert(column.name).second && column.table == table.name)
          << table.name << column.name;
      EXPECT_TRUE(column.onlyOf == inventory::ObjectKind::kNone || table.isAbout(column.onlyOf))
          << column.name;
      EXPECT_EQ(table.find(column.name), static_cast<std::size_t>(&column - table.columns.data()));
    }
    EXPECT_EQ(table.find("none"), table.columns.size());
  }
}

TEST(Coverage, IsComparedByTablesAndItems) {
  const auto parse = [](const char* tables, const char* sites) {
    const std::string items = *sites == '\0' ? "" : "{\"site\":[" + std::string(sites) + "]}";
    return inventory::Coverage::fromTexts(tables, items);
  };
  const char* const message = "|tblMessageSetting|";
  const char* const two = "|tblHealth|tblMessageSetting|";
  const std::tuple<inventory::Coverage, inventory::Coverage, bool> cases[] = {
      {parse(message, ""), parse(message, ""), true},
      {parse(two, ""), parse(message, ""), true},
      {parse(message, ""), parse(two, ""), false},
      {parse(message, ""), parse(message, "\"1\""), true},
      {parse(message, "\"1\""), parse(message, ""), false},
      {parse(message, "\"1\",\"2\""), parse(message, "\"2\""), true},
      {parse(message, "\"1\""), parse(message, "\"2\""), false},
      {parse(two, "\"1\""), parse("|tblHealth|", ""), true},
      {parse("|tblGeneral:site|", ""), parse("|tblGeneral:pool|", ""), false},
      {inventory::Coverage::everything(), parse(two, ""), true},
      {parse(two, ""), inventory::Coverage::everything(), false}};
  for (const auto& [one, other, expected] : cases)
    EXPECT_EQ(one.covers(other), expected) << one.tablesText() << one.itemsText() << other.tablesText();
  const inventory::Coverage some = parse("|tblGeneral:site|tblMessageSetting|", "\"1\"");
  EXPECT_EQ(some.tablesText() + some.itemsText(), "|tblGeneral:site|tblMessageSetting|{\"site\":[\"1\"]}");
  EXPECT_TRUE(some.includes("tblGeneral", inventory::ObjectKind::kSite, "1"));
  EXPECT_FALSE(some.includes("tblGeneral", inventory::ObjectKind::kSite, "2"));
  EXPECT_FALSE(some.includes("tblGeneral", inventory::ObjectKind::kPool));
}

}  // namespace
