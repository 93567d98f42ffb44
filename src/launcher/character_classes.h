#pragma once
// The character sets that decide how version texts split: decimal digits and separators
// (white space, line ends and punctuation).

namespace bwk::characters {

// Unicode general category Nd.
bool isDecimalDigit(char32_t codePoint);
// White space and line ends (Zs, Zl, Zp, U+0009 to U+000D, U+0085) and punctuation (every
// P category).
bool isSeparator(char32_t codePoint);

}  // namespace bwk::characters
