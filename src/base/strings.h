#pragma once
// Small text helpers shared by every layer.
#include <string>
#include <string_view>
#include <vector>

namespace bwk::text {

inline bool startsWith(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}
inline bool endsWith(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}
inline bool contains(std::string_view s, std::string_view part) { return s.find(part) != std::string_view::npos; }

// Splits at every occurrence of `separator`; empty pieces are kept ("a::b" gives a, "", b).
std::vector<std::string> split(std::string_view s, std::string_view separator);
// Splits at every character that is one of `separators`; empty pieces are kept.
std::vector<std::string> splitAny(std::string_view s, std::string_view separators);
std::string join(const std::vector<std::string>& parts, std::string_view separator);
std::string replaceAll(std::string s, std::string_view from, std::string_view to);
// Trims spaces and tabs (and other horizontal white space) at both ends, not line ends.
std::string trimHorizontal(std::string_view s);
// Without its double quotes when it has one at each end; with a quote at one end only, as it is.
std::string unquoted(std::string_view s);
// The leading decimal integer of a text, 0 when there is none (like NSString integerValue).
long long integerValue(std::string_view s);
bool isValidUtf8(std::string_view s);
// ASCII digits only, whatever the locale.
inline bool isDigit(char c) { return c >= '0' && c <= '9'; }
// 0 to 15 for a hexadecimal digit of either case, -1 for any other character.
int hexDigitValue(char c);

}  // namespace bwk::text
