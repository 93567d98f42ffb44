// Every range of characters, code points and numbers the readers accept, at both ends, each end read as inside.
#include "test_support.h"

#include <climits>
#include <cmath>

#include "base/plist_reader.h"
#include "base/unicode.h"

namespace bwk::test {
namespace {

// 513 levels of arrays are read, 514 are refused, in both text formats.
TEST(RangeEnds, Nesting) {
  for (int levels : {513, 514}) {
    std::string text = std::string(levels, '(') + std::string(levels, ')'), xmlDocument = "<plist version=\"1.0\">";
    for (int i = 0; i < levels; ++i) xmlDocument += "<array>";
    for (int i = 0; i < levels; ++i) xmlDocument += "</array>";
    EXPECT_EQ(readPropertyList(text).has_value(), levels == 513) << levels;
    EXPECT_EQ(readPropertyList(xmlDocument + "</plist>").has_value(), levels == 513) << levels;
  }
}

TEST(RangeEnds, ValuesReadAsOtherTypes) {
  auto value = [](PlistValue v) { return PlistValue(PlistDict{{"k", std::move(v)}}); };
  // Booleans: strings by their first significant character.
  const std::pair<PlistValue, bool> booleans[] = {{"1", true},   {" +09", true}, {"9", true},
                                                  {"-0", false}, {"y", true},    {"no", false},
                                                  {"", false},   {2, true},      {0.0, false}};
  for (const auto& [v, expected] : booleans) EXPECT_EQ(value(v).boolean("k"), expected) << v.description();
  const std::vector<std::pair<PlistValue, std::optional<int64_t>>> integers = {
      {2.9, 2}, {-2.9, -2}, {std::nan(""), 0}, {true, 1}, {false, 0}, {" 12x", 12}, {PlistValue(PlistArray{}), {}}};
  for (const auto& [v, expected] : integers) EXPECT_EQ(value(v).integer("k"), expected) << v.description();
  EXPECT_EQ(value(PlistValue(PlistDict{{"a", 1}})).dictionary("k")->size(), 1u);
  EXPECT_TRUE(!value(1).dictionary("k") && !value(1).dictionary("other"));
  EXPECT_EQ(value(9223372036854775808.0).integer("k"), INT64_MAX);
  EXPECT_EQ(value(-9223372036854775808.0).integer("k"), INT64_MIN);
  EXPECT_TRUE(text::integerValue("-90") == -90 && text::trimHorizontal("\v\f\t x y \t\f\v") == "x y");
  EXPECT_EQ(text::integerValue("9223372036854775806"), 9223372036854775806);
  // Plain words stay unquoted in a description; the first byte of a UTF-8 sequence may be 0x80.
  EXPECT_EQ(PlistValue(PlistArray{"a/b:c-d.e_$", "\xC3\x80", "a b"}).description(),
            "(\n    a/b:c-d.e_$,\n    \xC3\x80,\n    \"a b\"\n)");
}

TEST(RangeEnds, HexadecimalDigits) {
  std::string values;
  for (char c : std::string("/09:@AFG`afg")) values += std::to_string(text::hexDigitValue(c)) + " ";
  EXPECT_EQ(values, "-1 0 9 -1 -1 10 15 -1 -1 10 15 -1 ");
}

TEST(RangeEnds, Unicode) {
  std::string replaced;
  for (char32_t cp :
       {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xD7FFu, 0xD800u, 0xDFFFu, 0xE000u, 0xFFFFu, 0x10000u, 0x10FFFFu, 0x110000u})
    unicode::appendUtf8(replaced, cp);
  EXPECT_EQ(replaced,
            "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBD\xEF\xBF\xBD\xEE\x80\x80\xEF\xBF\xBF"
            "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\xEF\xBF\xBD");
  EXPECT_TRUE(text::isValidUtf8(replaced));
  std::vector<char32_t> decoded;
  for (size_t i = 0; i < replaced.size(); i += unicode::decodeUtf8(replaced, i).length)
    decoded.push_back(unicode::decodeUtf8(replaced, i).codePoint);
  EXPECT_EQ(decoded, (std::vector<char32_t>{0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xFFFD, 0xFFFD, 0xE000, 0xFFFF, 0x10000,
                                            0x10FFFF, 0xFFFD}));
  // Overlong, a surrogate, past U+10FFFF, no continuation, cut short: no character, one byte long.
  for (std::string bytes : {"\x80", "\xC1\xBF", "\xC3\x41", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xE2\x82",
                            "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"}) {
    unicode::Utf8Character read = unicode::decodeUtf8(bytes, 0);
    EXPECT_EQ(std::pair(read.codePoint, read.length), std::pair(U'\uFFFD', size_t{1})) << bytes;
    EXPECT_FALSE(text::isValidUtf8(bytes)) << bytes;
  }
  EXPECT_EQ(unicode::utf16ToUtf8(std::string("\xD8\x00\xDC\x00\xDB\xFF\xDF\xFF", 8), true),
            "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  EXPECT_EQ(unicode::decodeText("\xFF\xFE"), "") << "a byte-order mark and nothing else";
}

}  // namespace
}  // namespace bwk::test
