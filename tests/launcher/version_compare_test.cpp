// Version texts: classifier, ordering, bound test, pre-release test, prefixes.
#include "test_support.h"

#include "launcher/character_classes.h"
#include "launcher/version_compare.h"

namespace bwk {
namespace {

using Tokens = std::vector<std::string>;

// 0 digit, 1 other, 2 separator; only the first character decides.
TEST(TypeOfCharacter, Classes) {
  const std::pair<const char*, int> cases[] = {
      {"0", 0},        {"9", 0},   {".", 2},  {"_", 2}, {"-", 2}, {" ", 2},      {"\t", 2},
      {"(", 2},        {"+", 1},   {"$", 1},  {"a", 1}, {"Z", 1}, {"\u0663", 0},  // ARABIC-INDIC DIGIT THREE (Nd)
      {"\u00B2", 1},    // SUPERSCRIPT TWO is No, not a decimal digit
      {"\xFF", 1},      // not UTF-8
      {"\xE2\x80", 1},  // truncated sequence
      {"9ea", 0},      {"ea9", 1}, {"-9", 2},
  };
  for (const auto& [text, type] : cases) EXPECT_EQ(typeOfCharacter(text), type) << text;
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
  EXPECT_GT(compareVersion("1a\xEF\xBF\xBF", "1a\xEF\xBF\xBE"), 0) << "U+FFFF is one unit, after U+FFFE";
}

// Numbers beyond 64 bits saturate, so both are the largest value.
TEST(CompareVersion, OrderingAndBounds) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"1.8.0_291", "1.8.0_301", -1},
      {"1.8", "1_8", 0},
      {"9", "9-ea", -1},
      {"9", "9ea", 1},
      {"zulu-17.jdk", "temurin-17.jdk", 1},
      {"za", "ab", 1},
      {"", "", 0},
      {"17.0.2-ea", "17.0.2-ea", 0},
      {"", "1", -1},
      {"", "a", 1},
      {"1.08", "1.8", 0},
      {".DS_Store", "17.jdk", -1},
      {".DS_Store", "temurin-21.jdk", 1},
      {"99999999999999999999", "99999999999999999998", 0},
      {"99999999999999999999", "9223372036854775806", 1},
  };
  for (const auto& [a, b, result] : cases) {
    EXPECT_EQ(compareVersion(std::string_view(a), std::string_view(b)), result) << a << " vs " << b;
    EXPECT_EQ(compareVersion(std::string_view(b), std::string_view(a)), -result) << b << " vs " << a;
  }
  const std::tuple<Tokens, std::optional<std::string>, bool, bool> bounds[] = {
      // candidate, bound, max, in
      {{"1", "8", "0", "291"}, "1.8", false, true},
      {{"17", "0", "2"}, "11", true, false},
      {{"1", "7", "0", "80"}, "1.8", false, false},
      {{"1", "8", "0"}, "1.8.0_291", false, false},
      {{"1", "8", "0"}, "1.8.0_291", true, true},
      {{"1", "8u291"}, "1.8", true, true},
      {{"21"}, "17+", false, true},
      {{"5"}, std::nullopt, true, true},
      {{"5"}, "", false, true},
      {{}, "1", false, false},
      {{"x"}, "0", false, true},
  };
  for (const auto& [candidate, bound, max, in] : bounds)
    EXPECT_EQ(compareVersion(bound, candidate, max), in) << bound.value_or("(absent)") << (max ? " max" : " min");
}

TEST(VersionTexts, BetaMarkersAndJrePrefixes) {
  const std::pair<std::optional<std::string>, bool> cases[] = {
      {std::nullopt, false}, {"1.8.0-rc1", true}, {"17-ea", true}, {"9-beta", true},  {"src", true},
      {"Release", true},     {"Team", true},      {"RC1", false},  {"17.0.2", false}, {"BETA", false},
  };
  for (const auto& [text, beta] : cases) EXPECT_EQ(isBetaVersion(text), beta) << text.value_or("(absent)");
  const std::pair<const char*, const char*> prefixes[] = {
      {"jdk1.8.0_291.jdk", "1.8.0_291.jdk"},
      {"jdk-17.0.2.jdk", "17.0.2.jdk"},
      {"openjdk-11.jdk", "11.jdk"},
      {"temurin-21.jdk", "temurin-21.jdk"},
      {"openjdk-jdk-17", "17"},
      {"openjdkjre-8", "8"},
      {"jre", ""},
      {"jre-jdk-1", "-1"},  // each step works on the previous one's result
  };
  for (const auto& [name, stripped] : prefixes) EXPECT_EQ(removeJrePrefix(name), stripped) << name;
}

}  // namespace
}  // namespace bwk
