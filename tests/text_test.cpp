// Conversion between UTF-16 and UTF-8, and case-insensitive comparison.

#include "automation/text.h"

#include <gtest/gtest.h>

namespace test {
namespace {

using namespace automation;

// ASCII is converted in blocks: any other unit may be at any position of a block, or after the last one.
TEST(Text, ConvertsToUtf8AndBackAtAnyPosition) {
  const std::pair<Text, std::string> pieces[] = {
      {u"\u00DF", "\xC3\x9F"}, {u"\u20AC", "\xE2\x82\xAC"}, {u"\U0001F5C4", "\xF0\x9F\x97\x84"}};
  for (std::size_t length = 0; length <= 20; ++length) {
    const Text ascii(length, u'~');
    EXPECT_EQ(fromUtf8(toUtf8(ascii)), ascii);
    for (std::size_t at = 0; at <= length; ++at) {
      for (const auto& [text, utf8] : pieces) {
        const Text whole = Text(ascii).insert(at, text);
        const std::string bytes = std::string(length, '~').insert(at, utf8);
        EXPECT_EQ(toUtf8(whole), bytes) << length << " " << at;
        EXPECT_EQ(fromUtf8(bytes), whole) << length << " " << at;
      }
    }
  }
  // Invalid UTF-8 and unpaired surrogates become the replacement character.
  EXPECT_EQ(fromUtf8("12345678\xC3"), u"12345678\uFFFD");
  EXPECT_EQ(fromUtf8("\x80\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(toUtf8(Text(1, char16_t{0xD800}) + u"x"), "\xEF\xBF\xBDx");
}

TEST(Text, ComparesWithoutRegardToCase) {
  for (std::uint32_t point = 0; point <= 0xFFFF; ++point) {
    const auto unit = static_cast<char16_t>(point);
    const Text text(1, unit), lower(1, toLower(unit));
    EXPECT_TRUE(equalsIgnoringCase(text, lower) && equalsIgnoringCase(lower, text)) << point;
    EXPECT_EQ(toLower(lower[0]), lower[0]) << point;
  }
  EXPECT_FALSE(equalsIgnoringCase(u"[", u"{")) << "neighbours of the letters";
  EXPECT_FALSE(equalsIgnoringCase(u"Info", u"Inf"));
  EXPECT_TRUE(equalsIgnoringCase(u"\u00C4PFEL \u0416", u"\u00E4pfel \u0436"));
}

}  // namespace
}  // namespace test
