// Version texts: the character classifier, the tokenizer, the ordering of two versions, the
// bound test against a configured minimum or maximum, the pre-release test and the prefix
// stripper for runtime folder names. Two splitting schemes on purpose: the ordering keeps
// separators as tokens and classifies characters, the bound test splits on "._-+" only.
#include <algorithm>
#include <string>

#include "base/strings.h"
#include "base/unicode.h"
#include "launcher/character_classes.h"
#include "launcher/version_compare.h"

namespace bwk {

namespace {

constexpr int kNumeric = 0;
constexpr int kAlphabetic = 1;
constexpr int kSeparator = 2;

int classOfCodePoint(char32_t c) {
  // Beyond U+FFFF the first UTF-16 unit is a surrogate: neither digit nor separator.
  if (c > 0xFFFF) return kAlphabetic;
  if (characters::isDecimalDigit(c)) return kNumeric;
  if (characters::isSeparator(c)) return kSeparator;
  return kAlphabetic;
}

// The text as UTF-16 units, so that letter runs order as the platform's strings do. A byte
// that is not valid UTF-8 becomes a lone low surrogate of its own value, which keeps
// different bytes different.
std::u16string utf16Units(std::string_view s) {
  std::u16string units;
  for (size_t i = 0; i < s.size();) {
    unicode::Utf8Character c = unicode::decodeUtf8(s, i);
    if (c.codePoint == U'\uFFFD' && c.length == 1 && static_cast<unsigned char>(s[i]) >= 0x80) {
      units.push_back(static_cast<char16_t>(0xDC00 + static_cast<unsigned char>(s[i])));
    } else if (c.codePoint > 0xFFFF) {
      char32_t v = c.codePoint - 0x10000;
      units.push_back(static_cast<char16_t>(0xD800 + (v >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + (v & 0x3FF)));
    } else {
      units.push_back(static_cast<char16_t>(c.codePoint));
    }
    i += c.length;
  }
  return units;
}

int sign(int value) { return (value > 0) - (value < 0); }

}  // namespace

int typeOfCharacter(std::string_view s) {
  if (s == ".") return kSeparator;
  if (s.empty()) return kAlphabetic;
  return classOfCodePoint(unicode::decodeUtf8(s, 0).codePoint);
}

std::vector<std::string> splitVersionString(std::string_view s) {
  std::vector<std::string> tokens;
  if (s.empty()) return tokens;
  unicode::Utf8Character first = unicode::decodeUtf8(s, 0);
  std::string current(s.substr(0, first.length));
  int previousClass = classOfCodePoint(first.codePoint);
  for (size_t i = first.length; i < s.size();) {
    unicode::Utf8Character c = unicode::decodeUtf8(s, i);
    std::string_view character = s.substr(i, c.length);
    int type = classOfCodePoint(c.codePoint);
    // Every separator is a token by itself; a change of class ends a run.
    if (previousClass == kSeparator || previousClass != type) {
      tokens.push_back(std::move(current));
      current.assign(character);
    } else {
      current.append(character);
    }
    previousClass = type;
    i += c.length;
  }
  tokens.push_back(std::move(current));
  return tokens;
}

int compareVersion(std::string_view a, std::string_view b) {
  std::vector<std::string> tokensA = splitVersionString(a);
  std::vector<std::string> tokensB = splitVersionString(b);
  size_t n = std::min(tokensA.size(), tokensB.size());
  for (size_t i = 0; i < n; ++i) {
    int ta = typeOfCharacter(tokensA[i]);
    int tb = typeOfCharacter(tokensB[i]);
    if (ta != tb) {
      // Ranking: alphabetic < separator < numeric.
      if (ta == kAlphabetic) return -1;
      if (tb == kAlphabetic) return 1;
      return ta == kNumeric ? 1 : -1;
    }
    if (ta == kAlphabetic) {
      int order = sign(utf16Units(tokensA[i]).compare(utf16Units(tokensB[i])));
      if (order != 0) return order;
    } else if (ta == kNumeric) {
      long long va = text::integerValue(tokensA[i]);
      long long vb = text::integerValue(tokensB[i]);
      if (va != vb) return va > vb ? 1 : -1;
    }
    // Two separators are equal whatever their characters.
  }
  if (tokensA.size() == tokensB.size()) return 0;
  // A trailing letter run (such as "ea") lowers a version; anything else raises it.
  if (tokensA.size() < tokensB.size()) return typeOfCharacter(tokensB[n]) == kAlphabetic ? 1 : -1;
  return typeOfCharacter(tokensA[n]) == kAlphabetic ? -1 : 1;
}

bool compareVersion(const std::optional<std::string>& bound, const std::vector<std::string>& versionList, bool max) {
  if (!bound || bound->empty()) return true;
  std::vector<std::string> boundComponents = text::splitAny(*bound, "._-+");
  for (size_t i = 0; i < boundComponents.size(); ++i) {
    long long candidate = i < versionList.size() ? text::integerValue(versionList[i]) : 0;
    long long limit = text::integerValue(boundComponents[i]);
    if (candidate == limit) continue;
    return max ? candidate < limit : candidate > limit;
  }
  // Equal to the bound's own precision: bounds are inclusive.
  return true;
}

bool isBetaVersion(const std::optional<std::string>& s) {
  // Plain substring search on purpose: "Team" and "release" count as markers too.
  return s && (text::contains(*s, "beta") || text::contains(*s, "ea") || text::contains(*s, "rc"));
}

std::string removeJrePrefix(std::string_view name) {
  if (text::startsWith(name, "openjdk-")) name.remove_prefix(8);
  if (text::startsWith(name, "openjdk")) name.remove_prefix(7);
  if (text::startsWith(name, "jdk-") || text::startsWith(name, "jre-")) name.remove_prefix(4);
  if (text::startsWith(name, "jdk") || text::startsWith(name, "jre")) name.remove_prefix(3);
  return std::string(name);
}

}  // namespace bwk
