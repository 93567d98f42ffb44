// The XML property-list format, parsed with pugixml and turned into PlistValue.
#include <locale.h>
#include <stdlib.h>
#ifdef __APPLE__
#include <xlocale.h>  // strtod_l and newlocale
#endif

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <pugixml.hpp>
#include <string>

#include "base/plist_reader.h"
#include "base/strings.h"

namespace bwk {

namespace {

constexpr int kMaxXmlDepth = 512;

// "<name>"; built by appending, which also keeps GCC 12's -Wrestrict false positive on
// `"<" + std::string(...)` away.
std::string tag(std::string_view name) {
  std::string out = "<";
  out += name;
  out += '>';
  return out;
}

bool isXmlWhitespace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view trimXmlSpace(std::string_view s) {
  while (!s.empty() && isXmlWhitespace(s.front())) s.remove_prefix(1);
  while (!s.empty() && isXmlWhitespace(s.back())) s.remove_suffix(1);
  return s;
}

std::optional<int64_t> parseInteger(std::string_view s) {
  s = trimXmlSpace(s);
  bool negative = false;
  if (!s.empty() && (s[0] == '+' || s[0] == '-')) {
    negative = s[0] == '-';
    s.remove_prefix(1);
  }
  int base = 10;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    base = 16;
    s.remove_prefix(2);
  }
  uint64_t magnitude = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), magnitude, base);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  constexpr uint64_t kMaxPositive = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (!negative) {
    if (magnitude > kMaxPositive) return std::nullopt;
    return static_cast<int64_t>(magnitude);
  }
  if (magnitude > kMaxPositive + 1) return std::nullopt;
  return magnitude == kMaxPositive + 1 ? std::numeric_limits<int64_t>::min() : -static_cast<int64_t>(magnitude);
}

// The C locale, made once: reals are read the same whatever locale the process runs in.
locale_t cLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return locale;
}

// A decimal real, "inf", "infinity", "nan" or "nan(chars)" (any case), after an optional sign.
std::optional<double> parseReal(std::string_view s) {
  s = trimXmlSpace(s);
  bool negative = false;
  if (!s.empty() && (s[0] == '+' || s[0] == '-')) {
    negative = s[0] == '-';
    s.remove_prefix(1);
  }
  if (s.empty()) return std::nullopt;
  // strtod also skips leading white space, takes a second sign and reads hexadecimal
  // numbers: none of them is a real here.
  char first = s[0];
  bool digitOrPoint = text::isDigit(first) || first == '.';
  if (!digitOrPoint && first != 'i' && first != 'I' && first != 'n' && first != 'N') return std::nullopt;
  if (s.size() > 1 && first == '0' && (s[1] == 'x' || s[1] == 'X')) return std::nullopt;
  // A copy ends in a terminating zero; a zero inside the text stops the parse short of the end.
  std::string text(s);
  char* end = nullptr;
  locale_t locale = cLocale();
  double value = locale ? strtod_l(text.c_str(), &end, locale) : std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size()) return std::nullopt;
  // Out of range gives infinity or the nearest tiny value, as the platform does.
  return negative ? -value : value;
}

int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

// "2001-01-01T00:00:00Z"; the time part and the zone letter may be left out.
std::optional<double> parseDate(std::string_view s) {
  s = trimXmlSpace(s);
  auto number = [&](size_t digits, int& out) {
    if (s.size() < digits) return false;
    out = 0;
    for (size_t i = 0; i < digits; ++i) {
      if (!text::isDigit(s[i])) return false;
      out = out * 10 + (s[i] - '0');
    }
    s.remove_prefix(digits);
    return true;
  };
  auto expect = [&](char c) {
    if (s.empty() || s[0] != c) return false;
    s.remove_prefix(1);
    return true;
  };
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (!number(4, year) || !expect('-') || !number(2, month) || !expect('-') || !number(2, day)) return std::nullopt;
  if (!s.empty() && s[0] == 'T') {
    s.remove_prefix(1);
    if (!number(2, hour) || !expect(':') || !number(2, minute) || !expect(':') || !number(2, second))
      return std::nullopt;
  }
  if (!s.empty() && s[0] == 'Z') s.remove_prefix(1);
  if (!s.empty()) return std::nullopt;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return std::nullopt;
  int64_t days =
      daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) - daysFromCivil(2001, 1, 1);
  return static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second);
}

int base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

std::optional<std::vector<uint8_t>> decodeBase64(std::string_view s) {
  std::vector<uint8_t> out;
  uint32_t bits = 0;
  int count = 0;
  bool padding = false;
  for (char c : s) {
    if (isXmlWhitespace(c)) continue;
    if (c == '=') {
      padding = true;
      continue;
    }
    int v = base64Value(c);
    if (v < 0 || padding) return std::nullopt;
    bits = (bits << 6) | static_cast<uint32_t>(v);
    if (++count == 4) {
      out.push_back(static_cast<uint8_t>(bits >> 16));
      out.push_back(static_cast<uint8_t>(bits >> 8));
      out.push_back(static_cast<uint8_t>(bits));
      bits = 0;
      count = 0;
    }
  }
  if (count == 1) return std::nullopt;
  if (count == 2) out.push_back(static_cast<uint8_t>(bits >> 4));
  if (count == 3) {
    out.push_back(static_cast<uint8_t>(bits >> 10));
    out.push_back(static_cast<uint8_t>(bits >> 2));
  }
  return out;
}

class XmlReader {
 public:
  explicit XmlReader(std::string_view source) : source_(source) {}

  std::optional<PlistValue> read(std::string* error) {
    pugi::xml_document document;
    pugi::xml_parse_result parsed = document.load_buffer(
        source_.data(), source_.size(), pugi::parse_default | pugi::parse_ws_pcdata, pugi::encoding_utf8);
    if (!parsed) {
      if (error) *error = "XML property list: " + std::string(parsed.description()) + at(parsed.offset);
      return std::nullopt;
    }
    pugi::xml_node root = document.document_element();
    std::optional<PlistValue> result;
    if (!root) {
      fail(root, "no root element");
    } else if (std::string_view(root.name()) == "plist") {
      pugi::xml_node only;
      for (pugi::xml_node child : root.children()) {
        if (!checkIgnorable(child, "plist")) break;
        if (child.type() != pugi::node_element) continue;
        if (only) {
          fail(child, "more than one value in <plist>");
          break;
        }
        only = child;
      }
      if (error_.empty() && !only) fail(root, "empty <plist>");
      if (error_.empty()) result = value(only, 0);
    } else {
      result = value(root, 0);
    }
    if (!result && error) *error = "XML property list: " + error_;
    return result;
  }

 private:
  std::string at(ptrdiff_t offset) const {
    if (offset < 0 || static_cast<size_t>(offset) > source_.size()) return "";
    size_t line = 1;
    for (ptrdiff_t i = 0; i < offset; ++i)
      if (source_[static_cast<size_t>(i)] == '\n') ++line;
    return " at line " + std::to_string(line);
  }

  std::nullopt_t fail(pugi::xml_node node, const std::string& message) {
    if (error_.empty()) error_ = message + (node ? at(node.offset_debug()) : "");
    return std::nullopt;
  }

  // Whitespace between the elements of a container is allowed; other text is not.
  bool checkIgnorable(pugi::xml_node child, const char* container) {
    if (child.type() == pugi::node_element) return true;
    if ((child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) &&
        !trimXmlSpace(child.value()).empty()) {
      fail(child, "unexpected text in " + tag(container));
      return false;
    }
    return true;
  }

  std::optional<std::string> textOf(pugi::xml_node node) {
    std::string out;
    for (pugi::xml_node child : node.children()) {
      if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
        out += child.value();
      else if (child.type() == pugi::node_element)
        return fail(child, "unexpected element inside " + tag(node.name()));
    }
    return out;
  }

  std::optional<PlistValue> value(pugi::xml_node node, int depth) {
    if (depth > kMaxXmlDepth) return fail(node, "nesting too deep");
    std::string_view name = node.name();
    if (name == "dict") return dictionary(node, depth);
    if (name == "array") return array(node, depth);
    if (name == "true" || name == "false") {
      if (node.first_child() && !trimXmlSpace(node.child_value()).empty())
        return fail(node, tag(name) + " must be empty");
      return PlistValue(name == "true");
    }
    std::optional<std::string> text = textOf(node);
    if (!text) return std::nullopt;
    if (name == "string") return PlistValue(std::move(*text));
    if (name == "integer") {
      std::optional<int64_t> i = parseInteger(*text);
      if (!i) return fail(node, "bad or out-of-range <integer> \"" + *text + "\"");
      return PlistValue(*i);
    }
    if (name == "real") {
      std::optional<double> r = parseReal(*text);
      if (!r) return fail(node, "bad <real> \"" + *text + "\"");
      return PlistValue(*r);
    }
    if (name == "date") {
      std::optional<double> d = parseDate(*text);
      if (!d) return fail(node, "bad <date> \"" + *text + "\"");
      return PlistValue(PlistDate{*d});
    }
    if (name == "data") {
      std::optional<std::vector<uint8_t>> bytes = decodeBase64(*text);
      if (!bytes) return fail(node, "bad base64 in <data>");
      return PlistValue(PlistData{std::move(*bytes)});
    }
    if (name == "key") return fail(node, "<key> outside a <dict>");
    return fail(node, "unknown element " + tag(name));
  }

  std::optional<PlistValue> array(pugi::xml_node node, int depth) {
    PlistArray items;
    for (pugi::xml_node child : node.children()) {
      if (!checkIgnorable(child, "array")) return std::nullopt;
      if (child.type() != pugi::node_element) continue;
      std::optional<PlistValue> item = value(child, depth + 1);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
    }
    return PlistValue(std::move(items));
  }

  std::optional<PlistValue> dictionary(pugi::xml_node node, int depth) {
    PlistDict entries;
    std::optional<std::string> key;
    for (pugi::xml_node child : node.children()) {
      if (!checkIgnorable(child, "dict")) return std::nullopt;
      if (child.type() != pugi::node_element) continue;
      if (!key) {
        if (std::string_view(child.name()) != "key") return fail(child, tag(child.name()) + " where a <key> belongs");
        key = textOf(child);
        if (!key) return std::nullopt;
        continue;
      }
      std::optional<PlistValue> item = value(child, depth + 1);
      if (!item) return std::nullopt;
      entries.insert_or_assign(std::move(*key), std::move(*item));  // a repeated key: the last one wins
      key.reset();
    }
    if (key) return fail(node, tag("key") + *key + "</key> without a value");
    return PlistValue(std::move(entries));
  }

  std::string_view source_;
  std::string error_;
};

}  // namespace

std::optional<PlistValue> readXmlPropertyList(std::string_view bytes, std::string* error) {
  return XmlReader(bytes).read(error);
}

}  // namespace bwk
