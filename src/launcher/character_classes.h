#pragma once
// The character sets that decide how version texts split: decimal digits and separators
// (white space, line ends and punctuation), for UTF-8 text.
#include <cstddef>
#include <string_view>

namespace bwk::characters {

// One character of UTF-8 text: its code point and how many bytes it takes. A byte that
// does not start a valid sequence counts as one character U+FFFD of length 1.
struct Utf8Character {
  char32_t codePoint;
  size_t length;
};
Utf8Character decodeUtf8(std::string_view text, size_t offset);

// Unicode general category Nd.
bool isDecimalDigit(char32_t codePoint);
// White space and line ends (Zs, Zl, Zp, U+0009 to U+000D, U+0085) and punctuation (every
// P category).
bool isSeparator(char32_t codePoint);

}  // namespace bwk::characters
