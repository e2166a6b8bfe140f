// Metabase files that mean no good, or are far larger than any real one. Work that grows with the square of
// the file's size would keep these tests from ending.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/servers.h"
#include "platform/store/private_database.h"
#include "tests/support/collection.h"
#include "tests/support/folder.h"

namespace {

using automation::fromUtf8;
using automation::ObjectRef;
using automation::read;
using automation::Text;
using automation::TextView;
using automation::toText;
using automation::Variant;
using platform::metabase::Metabase;
using platform::store::PrivateDatabase;
using std::to_string;
namespace number = platform::metabase::number;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kShare = 10;
#else
constexpr std::size_t kShare = 1;
#endif
constexpr std::size_t kTenThousand = 10000 / kShare;
constexpr std::size_t kMillion = 1000000 / kShare;
constexpr std::size_t kLargeValue = (std::size_t{64} << 20) / kShare;

const std::string kHead = "<?xml version =\"1.0\"?>\r\n<configuration>\r\n<MBProperty>\r\n";
const std::string kTail = "</MBProperty>\r\n</configuration>\r\n";

// The failure's number and message, "" where the operation doesn't fail.
std::pair<std::int32_t, std::string> failureOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (const automation::Failure& failure) {
    return {failure.number(), automation::toUtf8(failure.description())};
  }
  return {0, ""};
}

std::pair<std::int32_t, std::string> failureOfParsing(std::string_view bytes) {
  return failureOf([&] { Metabase::parse(bytes, "file"); });
}

class Hostile : public testing::Test {
 protected:
  static void SetUpTestSuite() { test::registerEverything(); }

  // Makes the elements the metabase of the server H.
  static void serve(const std::string& elements) {
    platform::metabase::mapServer(u"H", Metabase::parse(kHead + elements + kTail, "file"));
  }
  static ObjectRef object(const std::string& path) {
    return automation::GetObject(fromUtf8("IIS://H" + path));
  }

  test::Folder directory_;
};

TEST_F(Hostile, TenThousandPropertiesInheritedByTenThousandChildren) {
  std::string own;
  std::string handed;
  std::string children;
  for (std::size_t at = 0; at < kTenThousand; ++at) {
    own += " Own" + to_string(at) + "=\"x\"";
    handed += "<Custom Name=\"Handed" + to_string(at) + "\" Value=\"" + to_string(at) +
              "\" Type=\"STRING\" Attributes=\"INHERIT\"/>\r\n";
    children += "<IIsFtpServer Location=\"/LM/MSFTPSVC/" + to_string(at) + "\"/>";
  }
  serve("<IIsFtpService Location=\"/LM/MSFTPSVC\"" + own + ">" + handed + "</IIsFtpService>" + children);
  const auto walk = automation::children(object("/MSFTPSVC"));
  std::size_t right = 0;
  while (const ObjectRef child = walk->next()) {
    const Text name = toText(read(child, u"Name"));
    right += toText(read(child, u"handed" + name)) == name && read(child, u"Own" + name).isNull();
  }
  EXPECT_EQ(right, kTenThousand);
}

TEST_F(Hostile, AMillionNodes) {
  // Half of them are children of one node.
  std::string bytes = kHead;
  for (std::size_t at = 0; at < kMillion / 2; ++at) {
    bytes += "<IIsFtpVirtualDir Location=\"/LM/MSFTPSVC/" + to_string(at) + "/root\"/>\n";
  }
  const auto metabase = Metabase::parse(bytes + kTail, "file");
  EXPECT_EQ(metabase->nodeCount(), kMillion + 3);
  const auto service = metabase->find(metabase->root(), u"LM/msftpsvc").value();
  std::size_t walked = 0;
  std::size_t found = 0;
  for (auto node = metabase->firstChild(service); node; node = metabase->nextSibling(*node)) {
    const auto below = metabase->find(service, fromUtf8(to_string(walked++) + "/ROOT"));
    found += below && metabase->parent(*below) == node;
  }
  EXPECT_EQ(walked, kMillion / 2);
  EXPECT_EQ(found, walked);
  for (std::size_t at = 0; at < kMillion / 2; ++at) bytes += "<a Location=\"/lm/MSFTPSVC/7/Root\"/>\n";
  const auto odd = Metabase::parse(bytes + kTail, "file");
  const auto& last = odd->oddities().back();
  EXPECT_EQ(last.reason, "odd places from here on: " + to_string(kMillion / 2 - 10000));
  EXPECT_EQ(
      odd->describe(odd->oddities().front(), u"H"),
      "IIS://H/MSFTPSVC/7/root (IIsFtpVirtualDir): the node stands twice, and its element on line 11 counts "
      "(line " +
          to_string(kMillion / 2 + 4) + ")");
}

TEST_F(Hostile, AValueOf64MiB) {
  const auto valueOf = [&](const std::string& property, const std::string& piece, TextView asked) {
    std::string all;
    while (all.size() + piece.size() <= kLargeValue) all += piece;
    serve("<a Location=\"/LM/MSFTPSVC/1\" " + property + "=\"" + all + "\"/>");
    all = {};
    return read(object("/MSFTPSVC/1"), asked);
  };
  const Text comment = toText(valueOf("ServerComment", "\xC3\xBC&lt;", u"ServerComment"));
  EXPECT_EQ(comment.size(), kLargeValue / 6 * 2);
  EXPECT_EQ(comment.find_first_not_of(u"\u00FC<"), Text::npos);
  const Variant lines = valueOf("ServerBindings", std::string(1000, 'x') + "\r\n\t", u"ServerBindings");
  EXPECT_EQ(automation::upperBound(lines), static_cast<std::int32_t>(kLargeValue / 1003) - 1);
  EXPECT_EQ(toText(automation::element(lines, 7)), Text(1000, u'x'));

  // What can't be read isn't quoted at full length, for the message goes into a log.
  const std::pair<const char*, const char*> wrong[] = {{"MaxConnections", "9"},
                                                       {"AllowAnonymous", "TRUE"},
                                                       {"AccessFlags", "AccessWrite|"},
                                                       {"IPSecurity", "F0"}};
  for (const auto& [property, piece] : wrong) {
    const std::string name = property;
    const std::string message =
        failureOf([&, value = piece] { valueOf(name, value, fromUtf8(name)); }).second;
    EXPECT_TRUE(message.find(name) != std::string::npos && message.size() < 500) << message;
  }
}

// A tree with missing parents and a path of a thousand pieces, in any order, against what its text says.
TEST_F(Hostile, ParentsMissingAtSeveralLevelsInAnyOrder) {
  std::mt19937 random(static_cast<unsigned>(GTEST_FLAG_GET(random_seed)));
  std::map<std::string, std::string> nodes{{"/MSFTPSVC", "x"}};  // the comment, "" where there is no element
  std::string chain = "/MSFTPSVC";
  for (int at = 0; at < static_cast<int>(1000 / kShare); ++at)
    nodes[chain += "/piece" + to_string(at)] = at % 3 == 0 ? chain : "";
  for (int at = 0; at < 3000; ++at) {
    std::string place = "/MSFTPSVC";
    for (auto depth = random() % 8; depth > 0; --depth) nodes[place += "/n" + to_string(random() % 4)];
    nodes[place] = to_string(random());
  }
  std::vector<std::string> elements;
  for (const auto& [place, comment] : nodes) {
    if (comment.empty()) continue;
    elements.push_back("<a Location=\"/LM" + place + "\" ServerComment=\"" + comment + "\"/>");
  }
  for (int pass = 0; pass < 3; ++pass) {
    if (pass == 1) std::reverse(elements.begin(), elements.end());
    if (pass == 2) std::shuffle(elements.begin(), elements.end(), random);
    serve(std::accumulate(elements.begin(), elements.end(), std::string()));
    EXPECT_EQ(platform::metabase::snapshotOf(u"H")->nodeCount(), nodes.size() + 2);
    for (const auto& [place, comment] : nodes) {
      std::string nearest = place;
      while (nodes[nearest].empty()) nearest.resize(nearest.rfind('/'));
      ASSERT_EQ(toText(read(object(place), u"ServerComment")), fromUtf8(nodes[nearest])) << place;
      ASSERT_EQ(toText(read(object(place), u"Class")), comment.empty() ? u"IIsConfigObject" : u"a");
    }
  }
}

TEST_F(Hostile, TheDeepestTreeIsWalkedByItsPaths) {
  std::string deepest = "/MSFTPSVC/1";
  const std::size_t levels = 16000 / kShare;
  for (std::size_t at = 0; at < levels; ++at) deepest += "/d";
  serve("<a Location=\"/LM/MSFTPSVC\" Own=\"x\"/><a Location=\"/LM" + deepest + "\"/><a Location=\"/LM" +
        std::string(20000, '/') + "\"/>");
  EXPECT_EQ(platform::metabase::snapshotOf(u"H")->oddities().size(), 1U);
  Text place = u"IIS://H/MSFTPSVC/1";
  std::size_t found = 0;
  for (std::size_t at = 0; at < levels; ++at) {
    place += u"/d";
    found += read(automation::GetObject(place), u"ConnectionTimeout").as<std::int32_t>() != nullptr;
  }
  EXPECT_EQ(found, levels);
}

TEST_F(Hostile, NoFileThatIsCutOffOrHasANulPassesWhereverItIs) {
  const std::string whole =
      "\xEF\xBB\xBF" + kHead + "<!-- a note --><a\tLocation =\"/LM/1\"\r\n\tServerComment=\"Z\xC3\xBCrich " +
      "&amp;\">\r\n<Custom Name=\"Own\" Value=\"\xF0\x9F\x98\x80\" Type=\"STRING\"/></a>\r\n" + kTail;
  for (std::size_t at = 1; at <= whole.size(); ++at) {
    ASSERT_NE(failureOfParsing(std::string(whole).insert(at, 1, '\0')).first, 0) << at;
    const bool complete = at >= whole.size() - 2;
    ASSERT_EQ(failureOfParsing(std::string_view(whole).substr(0, at)).first == 0, complete) << at;
  }
}

TEST_F(Hostile, OnePathInDisguiseIsOneAndANameThatIsNoTextNone) {
  const std::string z = "<a Location=\"/LM/x/y/z\"/><a Location=\"/LM/x\"/>";  // x was only implied
  serve(z + "<a Location=\"/LM/\xEF\xBF\xBD\"/><a Location=\"/LM/\xF0\x9F\x98\x80\" Own=\"1\"/>");
  EXPECT_EQ(toText(read(automation::GetObject(u"IIS://h/\U0001F600"), u"own")), u"1");
  for (const Text& path : {Text(u"\xD83D"), Text(u"\xDE00\xD83D"), Text(1, u'\0')}) {
    const auto find = [&] { automation::GetObject(u"IIS://H/" + path); };
    EXPECT_EQ(failureOf(find).first, number::kPathNotFound);
  }
  for (const char* again : {"/LM/x/y/&#x5A;", "/LM/X", "/LM/\xC3\x9C"}) {
    const std::string all = z + "<a Location=\"/LM/\xC3\xBC\"/><a Location=\"" + again + "\"/>";
    EXPECT_EQ(Metabase::parse(kHead + all + kTail, "file")->oddities().size(), 1U) << again;
  }
}

TEST_F(Hostile, ATabThatFailsForEverySiteLogsOneRecordForEach) {
  for (const std::size_t sites : {std::size_t{30}, std::size_t{300}}) {
    std::string elements = "<a Location=\"/LM/W3SVC/AppPools\"/>";
    elements += "<IIsFtpInfo Location=\"/LM/MSFTPSVC/Info\" MajorIIsVersionNumber=\"6\"/>";
    for (std::size_t site = 1; site <= sites; ++site) {
      const std::string place = "/LM/MSFTPSVC/" + to_string(site);
      elements += "<IIsFtpServer Location=\"" + place + "\" ServerBindings=\"none\" LogPluginClsid=\"\"/>" +
                  "<IIsFtpVirtualDir Location=\"" + place + "/ROOT\" Path=\"C:\\f\"/>";
    }
    serve(elements);
    const auto place = directory_.folder(to_string(sites));
    PrivateDatabase database(place / "inventory.db");
    test::createTables(database.database());
    const platform::store::Loan loan(database);
    test::collectEverything("H", place / "inventory.db", place);
    std::istringstream log(test::contents(place / "H.log"));
    std::size_t records = 0;
    for (std::string line; std::getline(log, line);) records += line.find("GetServerGeneral") != line.npos;
    EXPECT_EQ(records, sites);
    // The list of sites and the six tabs that didn't fail.
    EXPECT_EQ(test::everyRow(database.database()).size(), 7 * sites);
  }
}

}  // namespace
