// The character sets and the UTF-8 reading behind version comparison, at the ends of every
// range they accept.
#include <gtest/gtest.h>

#include "launcher/character_classes.h"
#include "launcher/version_compare.h"

namespace bwk::test {
namespace {

TEST(RangeEnds, Utf8Characters) {
  struct Case {
    const char* bytes;
    char32_t codePoint;
    size_t length;
  } cases[] = {
      {"\x7F", 0x7F, 1},
      {"\x80", 0xFFFD, 1},
      {"\xE0\xA0\x80", 0x800, 3},
      {"\xF0\x90\x80\x80", 0x10000, 4},
      {"\xC2\x80", 0x80, 2},
      {"\xC1\xBF", 0xFFFD, 1},
      {"\xED\x9F\xBF", 0xD7FF, 3},
      {"\xED\xA0\x80", 0xFFFD, 1},
      {"\xED\xBF\xBF", 0xFFFD, 1},
      {"\xEE\x80\x80", 0xE000, 3},
      {"\xF4\x8F\xBF\xBF", 0x10FFFF, 4},
      {"\xF4\x90\x80\x80", 0xFFFD, 1},
      {"\xE2\x82", 0xFFFD, 1},
  };
  for (const Case& c : cases) {
    characters::Utf8Character read = characters::decodeUtf8(c.bytes, 0);
    EXPECT_EQ(read.codePoint, c.codePoint) << c.bytes;
    EXPECT_EQ(read.length, c.length) << c.bytes;
  }
}

TEST(RangeEnds, CharacterClasses) {
  for (char32_t digit : {U'0', U'9', U'\u0660', U'\u0669', U'\uFF10', U'\uFF19'})
    EXPECT_TRUE(characters::isDecimalDigit(digit)) << static_cast<uint32_t>(digit);
  for (char32_t other : {U'/', U':', U'\u065F', U'\u066A'})
    EXPECT_FALSE(characters::isDecimalDigit(other)) << static_cast<uint32_t>(other);
  for (char32_t separator : {U'\t', U'\r', U' ', U'!', U'#', U'\uFF01', U'\uFF03', U'\uFF65'})
    EXPECT_TRUE(characters::isSeparator(separator)) << static_cast<uint32_t>(separator);
  for (char32_t other : {U'\u0008', U'\u000E', U'\uFF04', U'\uFF66', U'a'})
    EXPECT_FALSE(characters::isSeparator(other)) << static_cast<uint32_t>(other);
  // A byte that starts no character keeps its own value: 0x80 is not the replacement character.
  EXPECT_NE(compareVersion("1a\x80", "1a\xEF\xBF\xBD"), 0);
}

}  // namespace
}  // namespace bwk::test
