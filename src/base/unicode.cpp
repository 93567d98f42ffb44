#include "base/unicode.h"

#include "base/strings.h"

namespace bwk::unicode {

Utf8Character decodeUtf8(std::string_view text, size_t offset) {
  constexpr Utf8Character invalid{U'\uFFFD', 1};
  auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char lead = byte(offset);
  if (lead < 0x80) return {lead, 1};
  size_t length;
  char32_t codePoint;
  char32_t minimum;
  if ((lead & 0xE0) == 0xC0) {
    length = 2, codePoint = lead & 0x1F, minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, codePoint = lead & 0x0F, minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4, codePoint = lead & 0x07, minimum = 0x10000;
  } else {
    return invalid;
  }
  if (offset + length > text.size()) return invalid;
  for (size_t i = 1; i < length; ++i) {
    unsigned char next = byte(offset + i);
    if ((next & 0xC0) != 0x80) return invalid;
    codePoint = (codePoint << 6) | (next & 0x3F);
  }
  // Overlong forms, surrogates and values past the last code point are not characters.
  if (codePoint < minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return invalid;
  return {codePoint, length};
}

void appendUtf8(std::string& out, char32_t cp) {
  if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = 0xFFFD;
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

std::string utf16ToUtf8(std::string_view bytes, bool bigEndian) {
  std::string out;
  out.reserve(bytes.size());
  size_t units = bytes.size() / 2;
  auto unitAt = [&](size_t i) -> char16_t {
    auto hi = static_cast<unsigned char>(bytes[2 * i + (bigEndian ? 0 : 1)]);
    auto lo = static_cast<unsigned char>(bytes[2 * i + (bigEndian ? 1 : 0)]);
    return static_cast<char16_t>((hi << 8) | lo);
  };
  for (size_t i = 0; i < units; ++i) {
    char16_t u = unitAt(i);
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < units) {
      char16_t next = unitAt(i + 1);
      if (next >= 0xDC00 && next <= 0xDFFF) {
        appendUtf8(out, 0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) + (next - 0xDC00));
        ++i;
        continue;
      }
    }
    appendUtf8(out, u);  // a lone surrogate turns into U+FFFD there
  }
  return out;
}

std::string latin1ToUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (char c : bytes) appendUtf8(out, static_cast<unsigned char>(c));
  return out;
}

std::string decodeText(std::string_view bytes) {
  if (bytes.size() >= 2) {
    auto b0 = static_cast<unsigned char>(bytes[0]);
    auto b1 = static_cast<unsigned char>(bytes[1]);
    if (b0 == 0xFE && b1 == 0xFF) return utf16ToUtf8(bytes.substr(2), true);
    if (b0 == 0xFF && b1 == 0xFE) return utf16ToUtf8(bytes.substr(2), false);
  }
  if (text::startsWith(bytes, "\xEF\xBB\xBF")) bytes.remove_prefix(3);
  if (text::isValidUtf8(bytes)) return std::string(bytes);
  return latin1ToUtf8(bytes);
}

}  // namespace bwk::unicode
