// Redacted metabases: what is kept, what is replaced, and that a collection is equal but for the replaced
// words.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/redact/redact.h"
#include "sqlite/database.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"
#include "tests/support/utf16.h"

namespace {

namespace fs = std::filesystem;
using test::runExpecting;

const std::string kWeb01 = test::contents(SAMPLES_DIRECTORY "/WEB01/MetaBase.xml");
const std::string kLegacy = test::contents(SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml");

host::Redaction redact(const std::string& text) {
  os::FileBytes file{std::make_unique<char[]>(text.size() + 1), text.size(), {}};
  std::copy(text.begin(), text.end(), file.bytes.get());
  return host::redactMetabase(std::move(file), "m.xml");
}

bool isWordCharacter(char unit) {
  return std::isalnum(static_cast<unsigned char>(unit)) != 0 || (unit & 0x80) != 0;
}

// Calls `word` with each word or dotted address of a text, and `other` with each character between them.
template <typename Word, typename Other>
void forEachWord(const std::string& text, const Word& word, const Other& other) {
  for (std::size_t at = 0, end = 0; at < text.size(); at = end) {
    const bool isAddress =
        std::isdigit(static_cast<unsigned char>(text[at])) != 0 &&
        std::count(text.begin() + static_cast<std::ptrdiff_t>(at),
                   text.begin() + static_cast<std::ptrdiff_t>(
                                      std::min(text.find_first_not_of("0123456789.", at), text.size())),
                   '.') == 3;
    for (end = at; end < text.size() && (isWordCharacter(text[end]) || (isAddress && text[end] == '.'));)
      ++end;
    if (end > at) {
      word(text.substr(at, end - at));
    } else {
      other(text[end++]);
    }
  }
}

std::string lower(std::string text) {
  for (char& unit : text) unit = static_cast<char>(std::tolower(static_cast<unsigned char>(unit)));
  return text;
}

class Redaction : public testing::Test {
 protected:
  // The rows and problems of a metabase. Both of a comparison have the same file name.
  std::vector<std::string> collect(const std::string& text, const std::string& database) const {
    const std::string file = folder_.file("MetaBase.xml", text);
    const auto result = test::run(folder_, {"collect", "S=" + file, "-d", (folder_ / database).string()});
    EXPECT_LE(result.status, 1) << result.err;
    std::vector<std::string> rows = test::readAllRows(folder_ / database);
    std::erase_if(rows, [](const std::string& row) {
      return row.starts_with("Collections: ") || row.starts_with("Problems: ");
    });
    sqlite::Database opened(folder_ / database, sqlite::Database::Mode::kReadOnly, {});
    auto problems = opened.prepare(
        "select coalesce(Item, '-') || ' ' || coalesce(Node, '-') || ' ' || Message from Problems");
    while (problems.step()) rows.emplace_back(problems.text(0).value_or("-"));
    return rows;
  }

  test::Folder folder_;
};

TEST_F(Redaction, CollectsTheSameRowsButForTheReplacedWords) {
  std::ostringstream generated;
  test::writeMetabase(test::optionsForSites(30), generated);
  int number = 0;
  for (const std::string& text : {kWeb01, kLegacy, generated.str(), test::utf16(kWeb01, true)}) {
    const host::Redaction redaction = redact(text);
    std::map<std::string, std::string> originals;
    for (const auto& [original, replacement] : redaction.replaced) originals[replacement] = original;
    EXPECT_EQ(originals.size(), redaction.replaced.size());
    std::vector<std::string> expected = collect(text, std::to_string(++number) + ".db");
    std::vector<std::string> rows;
    for (const std::string& row : collect(redaction.file, std::to_string(++number) + ".db")) {
      std::string& mapped = rows.emplace_back();
      forEachWord(
          row,
          [&](std::string word) {
            // The component joins the lines of a message.
            while (!word.empty()) {
              std::size_t size = word.size();
              while (size > 1 && !originals.contains(word.substr(0, size))) --size;
              const auto found = originals.find(word.substr(0, size));
              mapped += found == originals.end() ? word.substr(0, size) : found->second;
              word.erase(0, size);
            }
          },
          [&](char unit) { mapped += unit; });
    }
    std::sort(expected.begin(), expected.end());
    std::sort(rows.begin(), rows.end());
    EXPECT_GT(rows.size(), 20U);
    EXPECT_EQ(rows, expected);
  }
}

TEST_F(Redaction, KeepsNoWordThatIsNotListed) {
  std::set<std::string> listed;
  const auto list = [&](const std::string& word) { listed.insert(lower(word)); };
  const auto skip = [](char) {};
  forEachWord(test::contents(SOURCE_DIRECTORY "/host/redact/harmless.tsv"), list, skip);
  for (const char* const table : {"schema.tsv", "schema_flags.tsv", "schema_classes.tsv"})
    forEachWord(test::contents(SOURCE_DIRECTORY "/platform/metabase/" + std::string(table)), list, skip);
  forEachWord("\xEF\xBB\xBF version amp lt gt quot apos x000A x000D", list, skip);
  for (const std::string& text : {kWeb01, kLegacy}) {
    std::set<std::string> kept;
    forEachWord(
        redact(text).file, [&](const std::string& word) { kept.insert(lower(word)); }, skip);
    forEachWord(
        text,
        [&](const std::string& word) {
          const bool isNumber = word.find_first_not_of("0123456789.") == std::string::npos;
          const bool isMask = word.starts_with("255.") || word == "0.0.0.0";
          if (word.size() == 1 || listed.contains(lower(word)) || isMask) return;
          if (isNumber && word.find('.') == std::string::npos) return;
          // Binary lists keep their structure.
          EXPECT_TRUE(word.starts_with("18000080") || !kept.contains(lower(word))) << word;
        },
        skip);
  }
}

TEST_F(Redaction, ReplacesEachKindOfValueByOneOfItsKind) {
  const std::string before =
      "<?xml version=\"1.0\"?>\r\n<configuration><!-- by\r\nAnn --><MBProperty><?ann x?>stray\n"
      "<IIsFtpServer\tLocation ='/LM/MSFTPSVC/77'\r\n\tServerComment=\"Ann &amp; Zo&#xEB;'s ANN 2077 aNN\"\n"
      " MaxConnections=\"12x\" ConnectionTimeout=\"-55\" AccessFlags=\"AccessRead | Annual\" Ann='1' "
      "ANN='2'\n"
      " ServerBindings=\"8.8.4.4:21:ann.net\n\t8.8.4.9:8021:\n\t300.8.4.4:x99\" "
      "LogPluginClsid=\"{ff160663-DE82-11cf-bc0a-00aa006111e0}\"\n"
      " AnonymousUserPass=\"ab\ncd\" Path=\"C:\\WINDOWS\\Ann\\77\\x.asp\" "
      "AppRoot=\"IIS://ann/W3SVC/77/Root/77\"\n"
      " IPSecurity=\"GrantByDefault=TRUE\n\tIPDeny=172.16.9.1, 255.255.255.0\n\tIPDeny=172.16\"/>\r\n"
      "<x:Custom Name='Secret' ID='60001' Value='ann' Attributes='INHERIT | SECURE' Type='STRING'/>"
      "<Custom Name='' ID='6021' Value='ann'/><Custom Name='UnknownName_60002' ID='60002' Value='01fe' "
      "Type='BINARY'/>"
      "<Custom Name='IPSecurity' Value='18000080616e6e2e01'/><Custom Name='k' Value='49634462ff'/>\r\n"
      "</MBProperty></configuration>";
  const std::string after =
      "<?xml version=\"1.0\"?>\r\n<configuration><!--\r\n--><MBProperty><!---->word1\n"
      "<IIsFtpServer\tLocation ='/LM/MSFTPSVC/77'\r\n\tServerComment=\"Word2 &amp; W\u00F6rd3's WORD2 word4 "
      "wOrd2\"\n"
      " MaxConnections=\"word5\" ConnectionTimeout=\"-55\" AccessFlags=\"AccessRead | Word6\" Word2='1' "
      "WORD2='2'\n"
      " ServerBindings=\"223.254.254.4:21:word2.word7\n\t223.254.254.9:8021:\n\tword8.8.4.4:word9\" "
      "LogPluginClsid=\"{ff160663-DE82-11cf-bc0a-00aa006111e0}\"\n"
      " AnonymousUserPass=\"\n\" Path=\"C:\\WINDOWS\\Word2\\word10\\x.asp\" "
      "AppRoot=\"IIS://word2/W3SVC/77/Root/word10\"\n"
      " IPSecurity=\"GrantByDefault=TRUE\n\tIPDeny=172.31.254.1, "
      "255.255.255.0\n\tIPDeny=word11.word12\"/>\r\n"
      "<x:Custom Name='Word13' ID='60001' Value='' Attributes='INHERIT | SECURE' Type='STRING'/>"
      "<Custom Name='' ID='6021' Value=''/><Custom Name='UnknownName_60002' ID='60002' Value='000e' "
      "Type='BINARY'/>"
      "<Custom Name='IPSecurity' Value='defefe00ddfefe0001'/><Custom Name='k' Value=''/>\r\n"
      "</MBProperty></configuration>";
  EXPECT_EQ(redact(before).file, after);
  EXPECT_EQ(redact(test::utf16(before, true)).file, test::utf16(after, true));
  EXPECT_EQ(redact(after).file.find("word1\n"), std::string::npos) << "the words of the file are not used";
}

TEST_F(Redaction, WritesItsFilesWholeAndReplacesNoOther) {
  const std::string file = folder_.file("m.xml", kWeb01);
  const std::string out = (folder_ / "out.xml").string();
  const std::string table = (folder_ / "words.csv").string();
  const auto expect = [&](test::Arguments arguments, int status, const std::string& words,
                          const std::function<void()>& prepare = {}) {
    arguments.insert(arguments.begin(), "redact");
    return runExpecting(folder_, arguments, status, words, prepare).out;
  };
  expect({folder_.file("cut.xml", kWeb01.substr(0, 5000)), "-o", out}, 2, "cut.xml, line ");
  expect({file, "-o", out}, 2, "cannot write the output",
         [] { ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); });
  EXPECT_FALSE(fs::exists(out));
  EXPECT_NE(expect({file, "-o", out}, 0, "Original,Replacement").find("\nWEB01,WORD"), std::string::npos);
  EXPECT_EQ(test::contents(out), redact(kWeb01).file);
  expect({file, "-o", out}, 2, "cannot write '" + out + "': the file exists (use --force to replace it)");
  expect({file, "-o", file, "--force"}, 2, "it is the file to redact");
  expect({file, "-o", out, "--table", out, "--force"}, 2, "not to be in the redacted file");
  folder_.file("words.csv", "old");
  expect({file, "-o", out, "--table", table, "--force"}, 0, "texts replaced");
  struct stat status {};
  ASSERT_EQ(::stat(table.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  EXPECT_NE(test::contents(table).find("\nWEB01,WORD"), std::string::npos);
}

TEST_F(Redaction, IsInterruptedWhileItsTableIsNotRead) {
  const fs::path directory = folder_.folder("redacted");
  test::Program program(
      folder_, {"redact", folder_.file("m.xml", kWeb01), "-o", (directory / "out.xml").string()}, [] {
        int ends[2];
        if (::pipe2(ends, O_NONBLOCK) != 0) throw std::runtime_error("no pipe");
        while (::write(ends[1], "", 1) == 1) {
        }
        ::fcntl(ends[1], F_SETFL, 0);
        ::dup2(ends[1], STDOUT_FILENO);
      });
  while (program.isRunning() && fs::is_empty(directory)) ::usleep(1000);
  ::kill(program.id(), SIGTERM);
  EXPECT_EQ(program.wait().status, -SIGTERM);
  EXPECT_TRUE(fs::is_empty(directory));
}

}  // namespace
