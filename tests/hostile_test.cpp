// Malicious metabase files, and files so large that quadratic algorithms would not finish.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "automation/runtime.h"
#include "platform/metabase/servers.h"

namespace {

using automation::fromUtf8;
using automation::ObjectRef;
using automation::read;
using automation::Text;
using automation::toText;
using platform::metabase::Metabase;
using std::to_string;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::size_t kDivisor = 10;
#else
constexpr std::size_t kDivisor = 1;
#endif
constexpr std::size_t kTenThousand = 10000 / kDivisor;
constexpr std::size_t kMillion = 1000000 / kDivisor;
constexpr std::size_t kLargeValue = (std::size_t{64} << 20) / kDivisor;

constexpr std::size_t kLongestValue = std::size_t{1} << 20;

const std::string kHead = "<?xml version =\"1.0\"?>\r\n<configuration>\r\n<MBProperty>\r\n";
const std::string kTail = "</MBProperty>\r\n</configuration>\r\n";

class Hostile : public testing::Test {
 protected:
  static void SetUpTestSuite() { platform::metabase::registerMoniker(); }

  static std::shared_ptr<const Metabase> parse(const std::string& elements) {
    return Metabase::parse(kHead + elements + kTail, "file");
  }
  // Serves the elements as the metabase of the server H.
  static void serve(const std::string& elements) { platform::metabase::mapServer(u"H", parse(elements)); }
  static ObjectRef object(const std::string& path) {
    return automation::GetObject(fromUtf8("IIS://H" + path));
  }
};

TEST_F(Hostile, ReadsTenThousandInheritedPropertiesOfTenThousandChildren) {
  std::string own, handed, children;
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

TEST_F(Hostile, ReadsAMillionNodes) {
  std::string elements;
  for (std::size_t at = 0; at < kMillion / 2; ++at)
    elements += "<IIsFtpVirtualDir Location=\"/LM/MSFTPSVC/" + to_string(at) + "/root\"/>\n";
  const auto metabase = parse(elements);
  EXPECT_EQ(metabase->nodeCount(), kMillion + 3);
  const auto service = metabase->find(metabase->root(), u"LM/msftpsvc").value();
  std::size_t walked = 0, found = 0;
  for (auto node = metabase->firstChild(service); node; node = metabase->nextSibling(*node)) {
    const auto below = metabase->find(service, fromUtf8(to_string(walked++) + "/ROOT"));
    found += below && metabase->parent(*below) == node;
  }
  EXPECT_EQ(found, kMillion / 2);
  for (std::size_t at = 0; at < kMillion / 2; ++at) elements += "<a Location=\"/lm/MSFTPSVC/7/Root\"/>\n";
  const auto odd = parse(elements);
  EXPECT_EQ(odd->warnings().back().reason, "further warnings: " + to_string(kMillion / 2 - 10000));
  const std::string line = to_string(kMillion / 2 + 4);
  EXPECT_TRUE(
      odd->describe(odd->warnings().front(), u"H").ends_with("on line 11 is used (line " + line + ")"));
}

TEST_F(Hostile, RefusesAValueOf64MiBAndReadsOneOf1MiB) {
  const auto valueOf = [](const std::string& property, const std::string& piece, std::size_t size) {
    std::string all;
    while (all.size() + piece.size() <= size) all += piece;
    serve("<a Location=\"/LM/MSFTPSVC/1\" " + property + "=\"" + all + "\"/>");
    return read(object("/MSFTPSVC/1"), fromUtf8(property));
  };
  for (const char* property : {"ServerComment", "ServerBindings"})
    EXPECT_THROW(valueOf(property, "x\r\n\t", kLargeValue), automation::Failure);
  const Text comment = toText(valueOf("ServerComment", "ü&lt;", kLongestValue));
  EXPECT_EQ(comment.size(), kLongestValue / 6 * 2);
  EXPECT_EQ(comment.find_first_not_of(u"ü<"), Text::npos);
  const automation::Variant lines =
      valueOf("ServerBindings", std::string(1000, 'x') + "\r\n\t", kLongestValue);
  EXPECT_EQ(automation::upperBound(lines), static_cast<std::int32_t>(kLongestValue / 1003) - 1);
  EXPECT_EQ(toText(automation::element(lines, 7)), Text(1000, u'x'));
}

// A tree with missing parents and a long path, in any order, compared with its source.
TEST_F(Hostile, CreatesMissingParentsInAnyOrder) {
  std::mt19937 random(static_cast<unsigned>(GTEST_FLAG_GET(random_seed)));
  std::map<std::string, std::string> nodes{{"/MSFTPSVC", "x"}};  // the comment, "" if there is no element
  std::string chain = "/MSFTPSVC";
  for (std::size_t at = 0; at < kTenThousand; ++at) nodes[chain += "/d"] = at % 3 == 0 ? to_string(at) : "";
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
  for (const bool inOrder : {true, false}) {
    if (!inOrder) std::shuffle(elements.begin(), elements.end(), random);
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

}  // namespace
