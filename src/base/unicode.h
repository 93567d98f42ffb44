#pragma once
// Conversions between the encodings the property-list readers meet: UTF-16 (binary
// strings, .strings files with a byte-order mark, \U escapes) and Latin-1 fallbacks, all
// turned into UTF-8.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace bwk::unicode {

// One character of UTF-8 text: its code point and how many bytes it takes. A byte that
// does not start a valid sequence (overlong, a surrogate, past U+10FFFF, cut short)
// counts as one character U+FFFD of length 1.
struct Utf8Character {
  char32_t codePoint;
  size_t length;
};
Utf8Character decodeUtf8(std::string_view text, size_t offset);

// Appends one code point as UTF-8; surrogates and values above U+10FFFF become U+FFFD.
void appendUtf8(std::string& out, char32_t codePoint);
// Decodes UTF-16 code units from bytes (an odd trailing byte is ignored); unpaired
// surrogates become U+FFFD.
std::string utf16ToUtf8(std::string_view bytes, bool bigEndian);
// Each byte is its own code point (ISO 8859-1).
std::string latin1ToUtf8(std::string_view bytes);

// Text as the text readers want it: a UTF-16 byte-order mark (either order) converts the
// rest to UTF-8, a UTF-8 byte-order mark is dropped, and bytes that are not valid UTF-8
// are read as Latin-1 so that every result is valid UTF-8.
std::string decodeText(std::string_view bytes);

}  // namespace bwk::unicode
