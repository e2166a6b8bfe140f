// Selecting servers and rows, searching, and files for spreadsheets.

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/console/workbook.h"
#include "sqlite/database.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::Arguments;

const std::string kWeb01 = SAMPLES_DIRECTORY "/WEB01/MetaBase.xml";
const std::string kLegacy = SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml";

// Returns a member of an archive.
std::string read(const std::string& file, const std::string& member) {
  const std::unique_ptr<archive, int (*)(archive*)> reader(archive_read_new(), archive_read_free);
  archive_read_support_format_zip(reader.get());
  EXPECT_EQ(archive_read_open_filename(reader.get(), file.c_str(), 10240), ARCHIVE_OK);
  archive_entry* entry = nullptr;
  while (archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK) {
    if (archive_entry_pathname(entry) != member) continue;
    std::string text(1 << 20, '\0');
    text.resize(static_cast<std::size_t>(archive_read_data(reader.get(), text.data(), text.size())));
    return text;
  }
  ADD_FAILURE() << "no " << member;
  return {};
}

class Show : public testing::Test {
 protected:
  test::Result run(Arguments arguments, int status = 0, const std::string& words = "",
                   const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.end(), {"--database", database_});
    return test::runExpecting(folder_, arguments, status, words, prepare);
  }
  json rows(Arguments arguments) const {
    arguments.insert(arguments.end(), {"--format", "json"});
    return json::parse(run(arguments).out);
  }
  void edit(const std::string& sql) const {
    sqlite::Database(database_, sqlite::Database::Mode::kReadWrite, {}).execute(sql);
  }
  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  const test::Folder folder_;
  const std::string database_ = path("inventory.db");
};

TEST_F(Show, SelectsServersByPatterns) {
  run({"collect", "WEB1=" + kLegacy, "web2=" + kLegacy, "W*=" + kLegacy, "DB=" + kLegacy, "--quiet"}, 1);
  const auto servers = [&](Arguments arguments) {
    std::string all;
    arguments.insert(arguments.begin(), "servers");
    for (const json& row : rows(arguments)) all += row["Server"].get<std::string>() + " ";
    return all;
  };
  EXPECT_EQ(servers({"--server", "*B?"}), "WEB1 web2 ");
  EXPECT_EQ(servers({"--server", "w*", "--server", "w*"}), "W* ");
  EXPECT_EQ(servers({"--server", "DB", "--server", "w**", "--server", "WEB*"}), "DB W* WEB1 web2 ");
  for (const char* const command : {"show", "report", "findings", "servers"})
    run({command, "--server", "X*"}, 2, "no server 'X*'");
  EXPECT_EQ(rows({"show", "tblFTPSiteInfo", "--server", "web?", "--at", "9999-01-01"}).size(), 6U);
  run({"rename", "WEB?", "X"}, 2, "give a server's full name");
  test::runExpecting(folder_, {"diff", database_, "--server", "web1", "--against", "web?"}, 2, "full name");
  const std::string other = path("other.db");
  test::runExpecting(folder_,
                     {"copy", "--from", database_, "--to", other, "--server", "web?", "--server", "X?"}, 1,
                     "copied 2 servers");
  test::runExpecting(folder_, {"diff", database_, other, "--server", "*2"}, 0, "no differences");
  test::runExpecting(folder_, {"diff", database_, other, "--server", "X?"}, 2, "no server 'X?'");
  run({"remove", "web?", "X?"}, 2, "no server 'X?'");
  run({"remove", "web?"}, 0, "removed 2 servers (WEB1 and web2)");
  EXPECT_EQ(servers({}), "DB W* ");
}

TEST_F(Show, SelectsRowsByAlternativesAndText) {
  run({"collect", kWeb01, "--quiet"});
  const auto count = [&](Arguments conditions) {
    conditions.insert(conditions.begin(), {"show", "tblGeneral"});
    return rows(conditions).size();
  };
  const std::size_t running = count({"--where", "state=Running"}),
                    stopped = count({"--where", "state=Stopped"});
  EXPECT_EQ(count({"--where", "state=Running", "--where", "State~STOP"}), running + stopped);
  EXPECT_EQ(count({"--where", "state=Running", "--where", "state=Stopped", "--where", "Identifier=1"}), 1U);
  EXPECT_EQ(count({"--where", "state!=Running", "--where", "state!=Stopped"}), 18 - running - stopped);

  const json found = rows({"show", "--search", "SALES'"});
  EXPECT_TRUE(found.contains("tblFTPSiteInfo") && !found.contains("tblHealth")) << found;
  ASSERT_EQ(found["tblGeneral"].size(), 1U);
  EXPECT_EQ(found["tblGeneral"][0]["Found in"], "FTP site name");
  EXPECT_EQ(found["tblGeneral"][0]["Identifier"], "3");
  EXPECT_EQ(rows({"show", "ftp_site", "--search", "sales'", "--columns", "tcp_port"})[0].size(), 2U);
  run({"show", "--search", "sales'"}, 0, "\n\ntblGeneral\n\nFound in       Server name");
  run({"show", "--search", "sales'", "--format", "csv"}, 2, "name one of: tblFTPSiteInfo, tblGeneral");
  run({"show", "--search", "no such text"}, 0, "no row contains 'no such text'");
  run({"show", "ftp_sites"}, 2, "did you mean 'ftp_site'?");
  const json relations = rows({"show"});
  EXPECT_EQ(relations[relations.size() - 9], json({{"Table", "ftp_site"}, {"Rows", nullptr}}));
}

TEST_F(Show, WritesCsvWithoutFormulas) {
  run({"collect", kWeb01, "--quiet"});
  edit(
      "update tblFTPSiteInfo set \"FTP site name\" = case Identifier when '1' then '=\"a\"' when '2' then "
      "char(9) || 'b' when '3' then '@c' else ' =d' end");
  const std::string csv = path("sites.csv");
  const Arguments show = {"show", "tblFTPSiteInfo", "--columns", "FTP site name", "--output", csv};
  run(show);
  EXPECT_TRUE(
      test::contents(csv).starts_with("FTP site name,Not known\r\n\"=\"\"a\"\"\",\r\n\tb,\r\n@c,\r\n =d,"));
  Arguments excel = show;
  excel.emplace_back("--excel");
  run(excel);
  EXPECT_TRUE(test::contents(csv).starts_with(
      "\uFEFFFTP site name,Not known\r\n\"'=\"\"a\"\"\",\r\n'\tb,\r\n'@c,\r\n =d,"));
  run({"findings", "--rule", "named-account", "--excel", "--output", path("f.csv")});
  EXPECT_TRUE(test::contents(path("f.csv")).starts_with("\uFEFFstate,"));
  for (const char* const command : {"show", "findings"}) run({command, "--excel"}, 2, "--excel is for csv");
  run({"show", "--output", database_}, 2, "it is the database");
  test::runExpecting(folder_, {"diff", database_, database_, "--format", "csv", "--excel"}, 0,
                     "\uFEFFServer,");
}

TEST_F(Show, WritesWorkbooks) {
  run({"collect", kWeb01, "--quiet"});
  edit(
      "update tblFTPSiteInfo set \"FTP site name\" = '=1<_x0041_' || char(1) || char(65534) where Identifier "
      "= "
      "'1'; update Collections set \"Published\" = '2026-01-31T12:00:00.000Z'");
  const std::string file = path("book.xlsx");
  run({"show", "ftp_site", "tblFTPSiteInfo", "collection", "--output", file});
  const std::string sites = read(file, "xl/worksheets/sheet1.xml");
  for (const char* const words : {"<c r=\"B2\"><v>1</v></c>", "<t>=1&lt;_x005F_x0041__x0001_\uFFFD</t>",
                                  " t=\"b\"><v>1</v>", "state=\"frozen\"", "<autoFilter ref=\"A1:"})
    EXPECT_NE(sites.find(words), std::string::npos) << words;
  EXPECT_EQ(sites.find("<f"), std::string::npos);
  EXPECT_NE(read(file, "xl/worksheets/sheet2.xml").find("<v>1001</v>"), std::string::npos);
  EXPECT_NE(read(file, "xl/worksheets/sheet3.xml").find("<v>46053.5</v>"), std::string::npos);
  EXPECT_NE(read(file, "xl/workbook.xml").find("name=\"tblFTPSiteInfo\""), std::string::npos);

  // An incomplete file replaces nothing.
  const std::string before = test::contents(file);
  run({"show", "ftp_site", "--output", file}, 2, "cannot write", [] {
    const rlimit limit{8192, 8192};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
  edit("update tblFTPSiteInfo set \"FTP site name\" = replace(printf('%32768c', 'x'), ' ', 'x')");
  run({"show", "ftp_site", "--output", file}, 2,
      "has 32768 characters, and a cell at most 32767 (in ftp_site)");
  EXPECT_EQ(test::contents(file), before);
  run({"show", "--output", file, "--server", "WEB01", "--format", "XLSX", "app_pool"});
  run({"show", "--format", "xlsx"}, 2, "needs --output");
  run({"show", "--output", path("book.pdf")}, 2, "use .txt, .csv, .json or .xlsx");
  run({"collect", kWeb01, "--quiet", "--only", "Message", "--replace"});
  run({"show", "--output", file}, 0, "ftp_directory: not collected, or only partly, for WEB01");
}

TEST(Workbook, HasValidAndDistinctSheetNames) {
  std::vector<host::Sheet> sheets;
  for (const char* const name : {"a[]:*?/\\'b", "A________B", "1234567890123456789012345678901", "",
                                 "History", "12345678901234567890123456789012"})
    sheets.push_back({name, {}});
  EXPECT_EQ(host::sheetNames(sheets),
            (std::vector<std::string>{"a________b", "A________B 2", "1234567890123456789012345678901",
                                      "Sheet1", "History 2", "12345678901234567890123456789 2"}));
}

}  // namespace
