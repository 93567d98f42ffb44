#include "base/strings.h"

#include <cctype>
#include <climits>

#include "base/unicode.h"

namespace bwk::text {

std::vector<std::string> split(std::string_view s, std::string_view separator) {
  std::vector<std::string> parts;
  if (separator.empty()) {
    parts.emplace_back(s);
    return parts;
  }
  size_t start = 0;
  for (;;) {
    size_t at = s.find(separator, start);
    if (at == std::string_view::npos) {
      parts.emplace_back(s.substr(start));
      return parts;
    }
    parts.emplace_back(s.substr(start, at - start));
    start = at + separator.size();
  }
}

std::vector<std::string> splitAny(std::string_view s, std::string_view separators) {
  std::vector<std::string> parts;
  std::string current;
  for (char c : s) {
    if (separators.find(c) != std::string_view::npos) {
      parts.push_back(std::move(current));
      current.clear();
    } else {
      current += c;
    }
  }
  parts.push_back(std::move(current));
  return parts;
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += separator;
    out += parts[i];
  }
  return out;
}

std::string replaceAll(std::string s, std::string_view from, std::string_view to) {
  if (from.empty()) return s;
  size_t at = 0;
  while ((at = s.find(from, at)) != std::string::npos) {
    s.replace(at, from.size(), to);
    at += to.size();
  }
  return s;
}

std::string trimHorizontal(std::string_view s) {
  auto blank = [](unsigned char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; };
  size_t b = 0, e = s.size();
  while (b < e && blank(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && blank(static_cast<unsigned char>(s[e - 1]))) --e;
  return std::string(s.substr(b, e - b));
}

std::string unquoted(std::string_view s) {
  if (s.size() >= 2 && s.front() == '"' && s.back() == '"') s = s.substr(1, s.size() - 2);
  return std::string(s);
}

long long integerValue(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
  bool negative = false;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
  long long value = 0;
  bool saturated = false;
  for (; i < s.size() && isDigit(s[i]); ++i) {
    int digit = s[i] - '0';
    if (value > (LLONG_MAX - digit) / 10) {
      saturated = true;
      break;
    }
    value = value * 10 + digit;
  }
  if (saturated) return negative ? LLONG_MIN : LLONG_MAX;
  return negative ? -value : value;
}

bool isValidUtf8(std::string_view s) {
  for (size_t i = 0; i < s.size();) {
    unicode::Utf8Character c = unicode::decodeUtf8(s, i);
    if (c.codePoint == U'\uFFFD' && c.length == 1) return false;
    i += c.length;
  }
  return true;
}

int hexDigitValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace bwk::text
