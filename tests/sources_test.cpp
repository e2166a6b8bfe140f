// Metabases as people have them: below folders, in archives, behind pipes, in other encodings, with odd
// places.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sqlite/database.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"
#include "tests/support/utf16.h"

namespace {

namespace fs = std::filesystem;
using test::Arguments;
using test::Result;

const std::string kWeb01 = test::contents(SAMPLES_DIRECTORY "/WEB01/MetaBase.xml");
constexpr std::size_t kWeb01Rows = 210;

struct Member {
  std::string name;
  std::string text;
  time_t modified = 1000000;
};

// An archive of the kind that its name's ending tells.
void writeArchive(const fs::path& file, const std::vector<Member>& members, const char* options = nullptr) {
  archive* const out = archive_write_new();
  ASSERT_EQ(archive_write_set_format_filter_by_ext(out, file.c_str()), ARCHIVE_OK);
  if (options != nullptr) {
    ASSERT_EQ(archive_write_set_options(out, options), ARCHIVE_OK);
    ASSERT_EQ(archive_write_set_passphrase(out, "secret"), ARCHIVE_OK);
  }
  ASSERT_EQ(archive_write_open_filename(out, file.c_str()), ARCHIVE_OK) << archive_error_string(out);
  for (const Member& member : members) {
    archive_entry* const entry = archive_entry_new();
    archive_entry_set_pathname(entry, member.name.c_str());
    archive_entry_set_size(entry, static_cast<la_int64_t>(member.text.size()));
    archive_entry_set_mtime(entry, member.modified, 0);
    archive_entry_set_filetype(entry, AE_IFREG);
    archive_entry_set_perm(entry, 0644);
    EXPECT_EQ(archive_write_header(out, entry), ARCHIVE_OK) << archive_error_string(out);
    archive_write_data(out, member.text.data(), member.text.size());
    archive_entry_free(entry);
  }
  EXPECT_EQ(archive_write_free(out), ARCHIVE_OK);
}

class Sources : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  std::string file(const std::string& name, const std::string& text) const {
    fs::create_directories(fs::path(path(name)).parent_path());
    return folder_.file(name, text);
  }

  Result collect(Arguments arguments, const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.begin(), "collect");
    arguments.insert(arguments.end(), {"--database", path("inventory.db")});
    return test::run(folder_, arguments, prepare);
  }

  // How many rows of the collected tables each server has in a new inventory of these arguments.
  std::map<std::string, std::size_t> rowsByServer() const {
    sqlite::Database database(path("inventory.db"), sqlite::Database::Mode::kReadOnly, {});
    auto statement = database.prepare("select \"Server name\", Rows from Collections");
    std::map<std::string, std::size_t> rows;
    while (statement.step()) {
      rows[std::string(statement.text(0).value_or(""))] = static_cast<std::size_t>(statement.number(1));
    }
    return rows;
  }

  test::Folder folder_;
};

TEST_F(Sources, OfAFolderAreNamedAfterTheFoldersThatAreNoUsualHomes) {
  file("fleet/WEB01/C$/WINDOWS/system32/inetsrv/MetaBase.xml", kWeb01);
  file("fleet/WEB01/C$/WINDOWS/system32/inetsrv/History/MetaBase_0000000012.xml", kWeb01);
  fs::last_write_time(path("fleet/WEB01/C$/WINDOWS/system32/inetsrv/History/MetaBase_0000000012.xml"),
                      fs::file_time_type::clock::now() - std::chrono::hours(1));
  file("fleet/site b/Zürich/export.txt", test::utf16("\uFEFF" + kWeb01.substr(3), true));
  file("fleet/D/MetaBase.xml", kWeb01);
  file("fleet/notes/readme.xml", "<notes/>");
  fs::create_directory_symlink(path("fleet/WEB01"), path("fleet/LINK"));
  ASSERT_EQ(::mkfifo(path("fleet/fifo").c_str(), 0600), 0);

  const Result listed = test::run(folder_, {"collect", path("fleet"), "--list"});
  EXPECT_EQ(listed.status, 0);
  EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'), 4);
  EXPECT_NE(listed.out.find("is taken, and not " + path("fleet/WEB01/C$/WINDOWS/system32/inetsrv/History")),
            std::string::npos);
  EXPECT_FALSE(fs::exists(path("inventory.db")));

  EXPECT_EQ(collect({path("fleet")}).status, 0);
  const std::map<std::string, std::size_t> expected = {
      {"WEB01", kWeb01Rows}, {"Zürich", kWeb01Rows}, {"fleet", kWeb01Rows}};
  EXPECT_EQ(rowsByServer(), expected);
}

TEST_F(Sources, OfAFolderThatCantBeReadAreAProblem) {
  file("fleet/GOOD/MetaBase.xml", kWeb01);
  file("fleet/CLOSED/MetaBase.xml", kWeb01);
  fs::permissions(path("fleet/CLOSED"), fs::perms::none);
  // What a folder's owner may not do root may not either, from then on.
  const Result result = collect({path("fleet")}, [] {
    for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) ::prctl(PR_CAPBSET_DROP, right, 0, 0, 0);
  });
  fs::permissions(path("fleet/CLOSED"), fs::perms::owner_all);
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_NE(result.err.find(path("fleet/CLOSED") + ": it can't be read"), std::string::npos) << result.err;
  EXPECT_EQ(rowsByServer().size(), 1U);
}

TEST_F(Sources, OfArchivesAreFoundLikeThoseOfFolders) {
  const std::vector<Member> members = {{"readme.txt", "nothing"},
                                       {"ONE/C/WINNT/system32/inetsrv/MetaBase.xml", kWeb01, 2000},
                                       {"ONE/History/old.xml", kWeb01, 1000},
                                       {"../../TWO/MetaBase.xml", kWeb01},
                                       {"inetsrv/MetaBase.xml", kWeb01}};
  for (const std::string ending : {".zip", ".tar.gz", ".tar", ".7z"}) {
    SCOPED_TRACE(ending);
    fs::remove(path("inventory.db"));
    writeArchive(path("THREE" + ending), members);
    const Result result = collect({path("THREE" + ending)});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("and not " + path("THREE" + ending) + ":ONE/History/old.xml"),
              std::string::npos);
    const std::map<std::string, std::size_t> expected = {
        {"ONE", kWeb01Rows}, {"TWO", kWeb01Rows}, {"THREE", kWeb01Rows}};
    EXPECT_EQ(rowsByServer(), expected);
  }
  EXPECT_FALSE(fs::exists(folder_.path().parent_path() / "TWO"));
}

TEST_F(Sources, OfArchivesThatAreBadCostOnlyThemselves) {
  writeArchive(path("GOOD.zip"), {{"GOOD/MetaBase.xml", kWeb01}});
  writeArchive(path("BAD.zip"), {{"SECRET/MetaBase.xml", kWeb01}}, "zip:encryption=traditional");
  const Result encrypted = collect({path("BAD.zip"), path("GOOD.zip")});
  EXPECT_EQ(encrypted.status, 1);
  EXPECT_NE(encrypted.err.find("BAD.zip:SECRET/MetaBase.xml: it is encrypted"), std::string::npos);
  EXPECT_EQ(encrypted.err.find("there is no metabase in"), std::string::npos);
  EXPECT_EQ(rowsByServer().size(), 1U);

  writeArchive(path("DAMAGED.zip"), {{"FIRST/MetaBase.xml", kWeb01}, {"SECOND/MetaBase.xml", kWeb01}},
               "zip:compression=store");
  std::string bytes = test::contents(path("DAMAGED.zip"));
  bytes[5000] ^= 1;
  const Result damaged = collect({file("DAMAGED.zip", bytes)});
  EXPECT_EQ(damaged.status, 1);
  EXPECT_NE(damaged.err.find("DAMAGED.zip:FIRST/MetaBase.xml: ZIP bad CRC"), std::string::npos);
  EXPECT_EQ(rowsByServer().count("SECOND"), 1U);

  writeArchive(path("LARGE.tar.gz"), {{"LARGE/MetaBase.xml", kWeb01 + std::string(4000000, ' ')}});
  const Result large = collect({path("LARGE.tar.gz"), "--max-size", "1MB"});
  EXPECT_EQ(large.status, 2);
  EXPECT_NE(large.err.find("LARGE/MetaBase.xml: it is larger than"), std::string::npos);

  const std::string whole = test::contents(path("LARGE.tar.gz"));
  file("CUT.tar.gz", whole.substr(0, whole.size() / 2));
  for (const Result& cut : {collect({path("CUT.tar.gz")}), collect({path("CUT.tar.gz"), "--list"})}) {
    EXPECT_EQ(cut.status, 2);
    EXPECT_NE(cut.err.find("CUT.tar.gz: the archive can't be read: truncated gzip input"), std::string::npos);
    EXPECT_EQ(cut.out.find("CUT.tar.gz"), std::string::npos);
  }
}

TEST_F(Sources, OfAnArchiveThatChangesAreThoseOfTheFirstLook) {
  writeArchive(path("SOON.zip"), {{"SOON/MetaBase.xml", kWeb01}});
  ASSERT_EQ(::mkfifo(path("FIRST").c_str(), 0600), 0);
  test::Program program(folder_,
                        {"collect", path("FIRST"), path("SOON.zip"), "--database", path("inventory.db")});
  {
    // Open as soon as it is read, which is behind the first look at everything.
    std::ofstream first(path("FIRST"), std::ios::binary);
    file("SOON.zip", std::string(fs::file_size(path("SOON.zip")), 'x'));
    first << kWeb01;
  }
  const Result result = program.end();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("SOON.zip:SOON/MetaBase.xml has changed"), std::string::npos) << result.out;
  EXPECT_EQ(rowsByServer()["SOON"], kWeb01Rows);
}

TEST_F(Sources, BehindLinksAreWhereTheSystemFindsThem) {
  file("real/below/unused", "");
  file("real/WEB.xml", kWeb01);
  fs::create_directory_symlink(path("real/below"), path("link"));
  const Result listed = test::run(folder_, {"collect", path("link/../WEB.xml"), "--list"});
  EXPECT_EQ(listed.out, "WEB  " + path("real/WEB.xml") + "\n") << listed.err;
  EXPECT_EQ(test::run(folder_, {"collect", path("link/./..//"), "--database", path("link/../i.db")}).status,
            0);
  EXPECT_TRUE(fs::exists(path("real/i.db")));
}

TEST_F(Sources, ThatAreStreamsAreReadToTheirEnd) {
  const std::string given = file("given.xml", kWeb01);
  EXPECT_EQ(collect({"IN=-"}, [&] { ::dup2(::open(given.c_str(), O_RDONLY), STDIN_FILENO); }).status, 0);

  ASSERT_EQ(::mkfifo(path("PIPE").c_str(), 0600), 0);
  const pid_t writer = test::inChild([&] { std::ofstream(path("PIPE"), std::ios::binary) << kWeb01; });
  EXPECT_EQ(collect({path("PIPE")}).status, 0);
  EXPECT_EQ(test::endOf(writer), 0);
  EXPECT_EQ(rowsByServer().size(), 2U);

  const Result endless = collect({"ZERO=/dev/zero", "--max-size", "2MB"});
  EXPECT_EQ(endless.status, 2);
  EXPECT_NE(endless.err.find("it is larger than"), std::string::npos);
}

TEST_F(Sources, WithOddPlacesAreToldOfThemAndCollected) {
  const std::string odd = file("ODD.xml", R"(<?xml version="1.0"?>
<configuration xmlns="urn:microsoft-catalog:XML_Metabase_V64_0"><MBProperty>
<IIsFtpService Location="/LM/MSFTPSVC" LogType="0"/>
<IIsFtpInfo Location="/LM/MSFTPSVC/Info" MajorIIsVersionNumber="6"/>
<IIsFtpServer Location="/LM/MSFTPSVC/1" ServerComment="One" ServerBindings=":21:">
<Custom Value="1" Type="DWORD"/>
</IIsFtpServer>
<IIsWebService Location="/LM/W3SVC" AppPoolId="P" apppoolid="Q"/>
<IIsFtpServer ServerComment="Nowhere"/>
</MBProperty></configuration>
)");
  const Result checked = test::run(folder_, {"check", odd, SAMPLES_DIRECTORY "/WEB01/MetaBase.xml"});
  EXPECT_EQ(checked.status, 1);
  EXPECT_NE(checked.out.find("3 odd places"), std::string::npos) << checked.out;
  EXPECT_NE(checked.out.find("WEB01/MetaBase.xml: a metabase of"), std::string::npos);
  EXPECT_EQ(test::run(folder_, {"check", file("x.txt", "text")}).status, 2);
  EXPECT_NE(test::run(folder_, {"check", "-", "-"}).err.find("METABASE '-': "), std::string::npos);
  const auto unread = [] {
    int ends[2];
    if (::pipe(ends) == 0) ::dup2(ends[1], STDOUT_FILENO);
    ::close(ends[0]);
  };
  EXPECT_EQ(test::run(folder_, {"check", odd}, unread).status, 1);

  EXPECT_EQ(collect({odd, "--only", "Security Accounts"}).status, 1);
  sqlite::Database database(path("inventory.db"), sqlite::Database::Mode::kReadOnly, {});
  EXPECT_EQ(database.value("select count(*) from Problems where Routine = 'check' and Kind = 'problem'"),
            "3");
  EXPECT_EQ(database.value("select Node from Problems where Message like '%Custom%'"),
            "IIS://ODD/MSFTPSVC/1");
  EXPECT_EQ(database.value("select Node || ',' || Property from Problems where Message like '%twice%'"),
            "IIS://ODD/W3SVC,AppPoolId");
  const std::string log = test::contents(path("ODD.log"));
  EXPECT_NE(log.find("\tMetabase                                \tcheck    "), std::string::npos);
}

}  // namespace
