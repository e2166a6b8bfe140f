// Metabases as they occur: in folders, archives, pipes, other encodings, with parse warnings.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "sqlite/database.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"
#include "tests/support/utf16.h"

namespace {

namespace fs = std::filesystem;
using test::Arguments;
using test::Result;
using Strings = std::vector<std::string>;

const std::string kWeb01 = test::contents(SAMPLES_DIRECTORY "/WEB01/MetaBase.xml");

struct Member {
  std::string name;
  std::string text;
  time_t modified = 1000000;
};

// An archive of the format given by its extension.
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

  Result collect(Arguments arguments, int status = 0, const std::string& words = "",
                 const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.begin(), "collect");
    arguments.insert(arguments.end(), {"--database", path("inventory.db")});
    return test::runExpecting(folder_, arguments, status, words, prepare);
  }

  // The servers of the inventory that have all rows.
  Strings servers() const {
    sqlite::Database database(path("inventory.db"), sqlite::Database::Mode::kReadOnly, {});
    auto statement = database.prepare("select \"Server name\" from Collections where Rows = 210 order by 1");
    Strings names;
    while (statement.step()) names.emplace_back(statement.text(0).value());
    return names;
  }

  test::Folder folder_;
};

TEST_F(Sources, NamesServersAfterTheirFolders) {
  folder_.file("fleet/WEB01/C$/WINDOWS/system32/inetsrv/MetaBase.xml", kWeb01);
  folder_.file("fleet/WEB01/C$/WINDOWS/system32/inetsrv/History/MetaBase_0000000012.xml", kWeb01);
  fs::last_write_time(path("fleet/WEB01/C$/WINDOWS/system32/inetsrv/History/MetaBase_0000000012.xml"),
                      fs::last_write_time(path("fleet/WEB01/C$/WINDOWS/system32/inetsrv/MetaBase.xml")));
  folder_.file("fleet/site b/Zürich/export.txt", test::utf16("\uFEFF" + kWeb01.substr(3), true));
  folder_.file("fleet/D/MetaBase.xml", kWeb01);
  folder_.file("fleet/notes/readme.xml", "<notes/>");
  fs::create_directory_symlink(path("fleet/WEB01"), path("fleet/LINK"));
  ASSERT_EQ(::mkfifo(path("fleet/fifo").c_str(), 0600), 0);

  const Result listed =
      test::runExpecting(folder_, {"collect", path("fleet"), "--list"}, 0,
                         "Z; ignoring '" + path("fleet/WEB01/C$/WINDOWS/system32/inetsrv/History"));
  EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'), 9);
  EXPECT_FALSE(fs::exists(path("inventory.db")));

  collect({path("fleet")});
  EXPECT_EQ(servers(), (Strings{"WEB01", "Zürich", "fleet"}));
}

TEST_F(Sources, ReportsSourcesWithOneName) {
  for (const char* file :
       {"flat/SRV1.xml", "flat/SRV2.xml", "flat/SRV.3.xml", "flat/MetaBase_SRV4.xml", "flat/MetaBase.xml",
        "a/XY/one.xml", "b/xy/MetaBase.xml", "b/xy/MetaBase_0000000012.xml", "flat/unrelated.txt"})
    folder_.file(file, std::string_view(file).ends_with("txt") ? "text" : kWeb01);
  for (const char* older : {"a/XY/one.xml", "b/xy/MetaBase_0000000012.xml"})
    fs::last_write_time(path(older), fs::file_time_type::clock::now() - std::chrono::hours(1));
  const std::string chosen = "using '" + path("b/xy/MetaBase.xml") + "' of 2";
  const Result result =
      collect({path("flat"), path("a"), path("b")}, 1, "several sources are called 'xy': " + chosen);
  EXPECT_NE(result.err.find("ignoring '" + path("a/XY/one.xml") + "' of 2"), std::string::npos) << result.err;
  EXPECT_NE(result.out.find("xy: " + chosen), std::string::npos) << result.out;
  EXPECT_EQ(servers(), (Strings{"MetaBase_SRV4", "SRV.3", "SRV1", "SRV2", "flat", "xy"}));
  test::runExpecting(folder_, {"collect", "Y=" + path("b"), "--list"}, 0,
                     path("b/xy/MetaBase_0000000012.xml") + "  Y       older version");
  test::runExpecting(folder_, {"collect", "Y=" + path("flat"), "--list"}, 2, "exactly one metabase; found 5");
  test::runExpecting(folder_,
                     {"collect", path("b/xy/MetaBase_0000000012.xml"), path("b/xy/MetaBase.xml"), "--list"},
                     0, path("b/xy/MetaBase_0000000012.xml") + "  xy      older version");
}

TEST_F(Sources, ReportsWhatIsOnlyCalledLikeAMetabase) {
  using namespace std::string_literals;
  folder_.file("fleet/EMPTY/MetaBase.xml", "");
  folder_.file("fleet/COPY/MetaBase_0000000012_0000000000.xml.gz", "text");
  writeArchive(path("fleet/BAD.zip"), {{"BAD/MetaBase.xml", "text"}});
  fs::create_symlink("EMPTY/MetaBase.xml", path("fleet/METABASE.xml"));
  ASSERT_EQ(::mkfifo(path("fleet/COPY/MetaBase.xml").c_str(), 0600), 0);
  for (const std::string& text : {"a=-lh9 b"s, "070701 is a date"s, "\x5D\0\0"s, "\x60\xEA"s})
    folder_.file("fleet/" + std::to_string(text[0]), text);
  const std::string err = collect({path("fleet"), "--list"}, 2).err;
  for (const char* problem :
       {"EMPTY/MetaBase.xml': it is not a metabase",
        "COPY/MetaBase_0000000012_0000000000.xml.gz': it is not a metabase",
        "BAD.zip:BAD/MetaBase.xml': it is not a metabase", "METABASE.xml': it is a link, not followed",
        "COPY/MetaBase.xml': it is not a regular file"}) {
    EXPECT_NE(err.find("cannot read '" + path("fleet/") + problem), std::string::npos) << err;
  }
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 5) << err;
}

TEST_F(Sources, ReportsAnUnreadableFolder) {
  folder_.file("fleet/GOOD/MetaBase.xml", kWeb01);
  folder_.file("fleet/CLOSED/MetaBase.xml", kWeb01);
  fs::permissions(path("fleet/CLOSED"), fs::perms::none);
  collect({path("fleet")}, 1, "cannot read '" + path("fleet/CLOSED") + "': ", test::dropFileCapabilities);
  fs::permissions(path("fleet/CLOSED"), fs::perms::owner_all);
  EXPECT_EQ(servers(), Strings{"GOOD"});
}

TEST_F(Sources, FindsMetabasesInArchivesAsInFolders) {
  const std::vector<Member> members = {{"readme.txt", "nothing"},
                                       {"ONE/C/WINNT/system32/inetsrv/MetaBase.xml", kWeb01, 2000},
                                       {"ONE/History/old.xml", kWeb01, 1000},
                                       {"../../TWO/MetaBase.xml", kWeb01},
                                       {"inetsrv/MetaBase.xml", kWeb01}};
  for (const std::string ending : {".zip", ".tar.gz", ".tar", ".7z"}) {
    SCOPED_TRACE(ending);
    fs::remove(path("inventory.db"));
    writeArchive(path("THREE" + ending), members);
    collect({path("THREE" + ending)}, 0, "ignoring '" + path("THREE" + ending) + ":ONE/History/old.xml");
    EXPECT_EQ(servers(), (Strings{"ONE", "THREE", "TWO"}));
  }
  EXPECT_FALSE(fs::exists(folder_.path().parent_path() / "TWO"));
  writeArchive(path("TWICE.tar"), {{"FOUR.xml", kWeb01}, {"FOUR.xml", kWeb01}});
  collect({path("TWICE.tar"), "--list"}, 1, "several sources are called 'FOUR'");
}

TEST_F(Sources, SearchesArchivesWithinArchives) {
  const auto archiveOf = [&](const std::string& name, const std::vector<Member>& members) {
    writeArchive(path(name), members, name == "SECRET.zip" ? "zip:encryption=traditional" : nullptr);
    return Member{"sub/" + name, test::contents(path(name))};
  };
  const Member web02 = archiveOf("WEB02.zip", {{"inetsrv/MetaBase.xml", kWeb01}});
  const Member tooDeep = archiveOf("2.tar", {archiveOf("3.7z", {web02})});
  folder_.folder("fleet");
  writeArchive(path("fleet/outer.zip"),
               {web02,
                archiveOf("middle.tar.gz", {archiveOf("WEB03.7z", {{"a.xml", kWeb01}})}),
                archiveOf("SECRET.zip", {{"MetaBase.xml", kWeb01}}),
                archiveOf("1.tar", {tooDeep}),
                {"old.rar", "Rar!\x1A\x07 unreadable"}});
  const std::string outer = "cannot read '" + path("fleet/outer.zip") + ":";
  const Result result = collect({path("fleet")}, 1, outer + "old.rar': the format RAR is not supported");
  for (const std::string problem : {"sub/SECRET.zip:MetaBase.xml': it is encrypted",
                                    "sub/1.tar:sub/2.tar:sub/3.7z': it is an archive within 3 others"})
    EXPECT_NE(result.err.find(outer + problem), std::string::npos) << result.err;
  EXPECT_EQ(servers(), (Strings{"WEB02", "WEB03"}));
  collect({path("fleet"), "--max-size", "1kB"}, 2,
          "the archives in '" + path("fleet/outer.zip") + "' are together larger");
}

TEST_F(Sources, StartsNoProgramToDecompress) {
  for (const char* program : {"bin/grzip", "bin/lrzip"}) {
    fs::permissions(folder_.file(program, "#!/bin/sh\n/usr/bin/touch '" + path("started") + "'\n"),
                    fs::perms::owner_all);
  }
  using namespace std::string_literals;
  const std::string grzip = folder_.file("a", "GRZipII\0\2\4:)"s + std::string(40, 'x'));
  const std::string lrzip = folder_.file("b", "LRZI\0\6"s + std::string(40, 'x'));
  test::runExpecting(folder_, {"check", grzip, lrzip, folder_.path().string()}, 2, "the format lrzip is not",
                     [&] { ::setenv("PATH", path("bin").c_str(), 1); });
  EXPECT_FALSE(fs::exists(path("started")));
}

TEST_F(Sources, SkipsBadArchivesOnly) {
  writeArchive(path("GOOD.zip"), {{"GOOD/MetaBase.xml", kWeb01}});
  writeArchive(path("BAD.zip"), {{"SECRET/MetaBase.xml", kWeb01}}, "zip:encryption=traditional");
  const Result encrypted =
      collect({path("BAD.zip"), path("GOOD.zip")}, 1, "BAD.zip:SECRET/MetaBase.xml': it is encrypted");
  EXPECT_EQ(encrypted.err.find("no metabase in"), std::string::npos);
  EXPECT_EQ(servers(), Strings{"GOOD"});

  writeArchive(path("DAMAGED.zip"), {{"FIRST/MetaBase.xml", kWeb01}, {"SECOND/MetaBase.xml", kWeb01}},
               "zip:compression=store");
  std::string bytes = test::contents(path("DAMAGED.zip"));
  bytes[5000] ^= 1;
  collect({folder_.file("DAMAGED.zip", bytes)}, 1, "DAMAGED.zip:FIRST/MetaBase.xml': ZIP bad CRC");
  EXPECT_EQ(servers(), (Strings{"GOOD", "SECOND"}));

  bytes[5000] ^= 1;
  for (const std::string record : {"PK\3\4", "PK\1\2"})
    bytes[bytes.rfind(record) + (record[2] == 1 ? 10 : 8)] = 97;
  collect({folder_.file("UNKNOWN.zip", bytes)}, 1,
          "UNKNOWN.zip:SECOND/MetaBase.xml': Unsupported ZIP compression");

  writeArchive(path("LARGE.tar.gz"), {{"LARGE/MetaBase.xml", kWeb01 + std::string(4000000, ' ')}});
  collect({path("LARGE.tar.gz"), "--max-size", "1MB"}, 2, "LARGE/MetaBase.xml': it is larger than");

  const std::string whole = test::contents(path("LARGE.tar.gz"));
  folder_.file("CUT.tar.gz", whole.substr(0, whole.size() / 2));
  const std::string words = "CUT.tar.gz': truncated gzip input";
  EXPECT_NE(collect({path("CUT.tar.gz"), "--list"}, 2, words).out.find("not read"), std::string::npos);
}

TEST_F(Sources, ReadsAnArchiveAsOfTheFirstPass) {
  writeArchive(path("SOON.zip"), {{"SOON/MetaBase.xml", kWeb01}});
  ASSERT_EQ(::mkfifo(path("FIRST").c_str(), 0600), 0);
  test::Program program(folder_,
                        {"collect", path("FIRST"), path("SOON.zip"), "--database", path("inventory.db")});
  {
    // The program opens the FIFO after its first pass over all sources.
    int fifo = -1;
    while ((fifo = ::open(path("FIRST").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0) {
      ASSERT_TRUE(program.isRunning());
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::ofstream first(path("FIRST"), std::ios::binary);
    folder_.file("SOON.zip", std::string(fs::file_size(path("SOON.zip")), 'x'));
    first << kWeb01;
    ::close(fifo);
  }
  const Result result = program.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("SOON.zip:SOON/MetaBase.xml has changed"), std::string::npos) << result.out;
  EXPECT_EQ(servers(), (Strings{"FIRST", "SOON"}));
}

TEST_F(Sources, FollowsLinksLikeTheSystem) {
  folder_.file("real/below/unused", "");
  folder_.file("real/WEB.xml", kWeb01);
  fs::create_directory_symlink(path("real/below"), path("link"));
  const Result listed = test::run(folder_, {"collect", path("link/../WEB.xml"), "--list"});
  EXPECT_NE(listed.out.find("\n" + path("real/WEB.xml") + "  WEB     collected\n"), std::string::npos)
      << listed.out;
  test::runExpecting(folder_, {"collect", path("link/./..//"), "--database", path("link/../i.db")}, 0, "");
  EXPECT_TRUE(fs::exists(path("real/i.db")));
}

TEST_F(Sources, ReadsStreamsToTheirEnd) {
  const std::string given = folder_.file("given.xml", kWeb01);
  collect({"IN=-"}, 0, "", [&] { ::dup2(::open(given.c_str(), O_RDONLY), STDIN_FILENO); });

  ASSERT_EQ(::mkfifo(path("PIPE").c_str(), 0600), 0);
  const pid_t writer = test::runInChild([&] { std::ofstream(path("PIPE"), std::ios::binary) << kWeb01; });
  collect({path("PIPE")});
  ::close(::open(path("PIPE").c_str(), O_RDONLY | O_NONBLOCK));  // ends the writer if the program didn't
  EXPECT_EQ(test::waitFor(writer), 0);
  EXPECT_EQ(servers(), (Strings{"IN", "PIPE"}));
  collect({"ZERO=/dev/zero", "--max-size", "2MB"}, 2, "it is larger than");
}

TEST_F(Sources, CollectsAnExportOfOneSite) {
  folder_.file("ONE.xml",
               "<configuration><MBProperty>"
               "<IIsFtpServer Location='/LM/MSFTPSVC/7' ServerComment='One' ServerBindings=':21:' "
               "LogPluginClsid='{FF160663-DE82-11CF-BC0A-00AA006111E0}'/>"
               "<IIsFtpVirtualDir Location='/LM/MSFTPSVC/7/ROOT' Path='C:\\x'/>"
               "</MBProperty></configuration>");
  collect({path("ONE.xml")}, 0, "no element of the FTP service (a partial export)");
  sqlite::Database database(path("inventory.db"), sqlite::Database::Mode::kReadOnly, {});
  EXPECT_EQ(database.value("select \"Protocol Status\" || Host from tblExtendedLogSetting"), "YesNo");
}

TEST_F(Sources, ReportsParseWarningsAndCollects) {
  const std::string odd = folder_.file("ODD.xml", R"(<?xml version="1.0"?>
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
  const Result checked = test::runExpecting(
      folder_, {"check", odd, SAMPLES_DIRECTORY "/WEB01/MetaBase.xml"}, 1,
      "\n  1 x check, 0x80040307\n      AppPoolId: duplicate property: the first one is used\n"
      "      at IIS://ODD/W3SVC (line 8)\n");
  EXPECT_NE(checked.out.find("WEB01/MetaBase.xml: a metabase of"), std::string::npos);
  test::runExpecting(folder_, {"check", folder_.file("x.txt", "text")}, 2, "");
  test::runExpecting(folder_, {"check", "-", "-"}, 2, "METABASE '-': ");
  test::runExpecting(folder_, {"check", odd}, 1, "", test::breakOutputPipe);

  collect({odd, "--only", "Security Accounts"}, 1);
  sqlite::Database database(path("inventory.db"), sqlite::Database::Mode::kReadOnly, {});
  EXPECT_EQ(database.value("select count(*) from Problems where Routine = 'check' and Kind = 'problem'"),
            "3");
  EXPECT_EQ(database.value("select Node from Problems where Message like '%Custom%'"),
            "IIS://ODD/MSFTPSVC/1");
  EXPECT_EQ(database.value(
                "select Node || ',' || Property from Problems where Message like '%duplicate property%'"),
            "IIS://ODD/W3SVC,AppPoolId");
  const std::string log = test::contents(path("ODD.log"));
  EXPECT_NE(log.find("\tMetabase                                \tcheck    "), std::string::npos);
}

}  // namespace
