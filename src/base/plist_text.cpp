// The old text form of property lists ("{ key = value; }", "( a, b )", "<0fa1>"), which
// is also the .strings format: a top-level run of "key" = "value"; pairs without braces.
// The form has no numbers or booleans: every scalar is a string.
#include <cstdint>

#include "base/plist_reader.h"
#include "base/strings.h"
#include "base/unicode.h"

namespace bwk {

namespace {

constexpr int kMaxTextDepth = 512;

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }

bool isUnquotedChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || text::isDigit(c) || c == '_' || c == '$' || c == '+' ||
         c == '/' || c == ':' || c == '.' || c == '-';
}

class TextReader {
 public:
  explicit TextReader(std::string_view bytes) : text_(unicode::decodeText(bytes)) {}

  std::optional<PlistValue> read(std::string* error) {
    std::optional<PlistValue> result = topLevel();
    if (!result && error) *error = "text property list: " + error_;
    return result;
  }

 private:
  std::optional<PlistValue> topLevel() {
    if (!skipSpace()) return std::nullopt;
    if (atEnd()) return PlistValue(PlistDict{});  // an empty .strings file
    size_t start = pos_;
    std::optional<PlistValue> v = value(0);
    if (!v) return std::nullopt;
    if (!skipSpace()) return std::nullopt;
    if (atEnd()) return v;
    if (v->isString() && (peek() == '=' || peek() == ';')) {
      pos_ = start;  // a .strings table: read it again as the body of a dictionary
      return dictionaryBody(0, false);
    }
    return fail("unexpected '" + std::string(1, peek()) + "' after the value");
  }

  bool atEnd() const { return pos_ >= text_.size(); }
  char peek() const { return text_[pos_]; }

  std::nullopt_t fail(const std::string& message) {
    if (error_.empty()) {
      size_t line = 1;
      for (size_t i = 0; i < pos_ && i < text_.size(); ++i)
        if (text_[i] == '\n') ++line;
      error_ = message + " at line " + std::to_string(line);
    }
    return std::nullopt;
  }
  bool refuse(const std::string& message) {
    fail(message);
    return false;
  }

  // Skips white space and both kinds of comment; false on an unterminated comment.
  bool skipSpace() {
    while (!atEnd()) {
      char c = peek();
      if (isSpace(c)) {
        ++pos_;
      } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '/') {
        while (!atEnd() && peek() != '\n' && peek() != '\r') ++pos_;
      } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '*') {
        size_t end = text_.find("*/", pos_ + 2);
        if (end == std::string::npos) return refuse("unterminated comment");
        pos_ = end + 2;
      } else {
        break;
      }
    }
    return true;
  }

  std::optional<PlistValue> value(int depth) {
    if (depth > kMaxTextDepth) return fail("nesting too deep");
    if (!skipSpace()) return std::nullopt;
    if (atEnd()) return fail("unexpected end of input");
    char c = peek();
    if (c == '{') {
      ++pos_;
      return dictionaryBody(depth, true);
    }
    if (c == '(') {
      ++pos_;
      return array(depth);
    }
    if (c == '<') {
      ++pos_;
      return data();
    }
    std::optional<std::string> s = string();
    if (!s) return std::nullopt;
    return PlistValue(std::move(*s));
  }

  std::optional<std::string> string() {
    if (atEnd()) return fail("unexpected end of input");
    char c = peek();
    if (c == '"' || c == '\'') {
      ++pos_;
      return quoted(c);
    }
    if (!isUnquotedChar(c)) return fail("unexpected '" + std::string(1, c) + "'");
    size_t start = pos_;
    while (!atEnd() && isUnquotedChar(peek())) ++pos_;
    return text_.substr(start, pos_ - start);
  }

  // Up to `maxDigits` hexadecimal digits; -1 when there is none.
  long hexUnit(size_t maxDigits) {
    long v = -1;
    for (size_t n = 0; n < maxDigits && !atEnd(); ++n, ++pos_) {
      int digit = text::hexDigitValue(peek());
      if (digit < 0) break;
      v = (v < 0 ? 0 : v * 16) + digit;
    }
    return v;
  }

  std::optional<std::string> quoted(char quote) {
    std::string out;
    for (;;) {
      if (atEnd()) return fail("unterminated quoted string");
      char c = text_[pos_++];
      if (c == quote) return out;
      if (c != '\\') {
        out += c;
        continue;
      }
      if (atEnd()) return fail("unterminated quoted string");
      char e = text_[pos_++];
      switch (e) {
        case 'a': out += '\a'; break;
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'v': out += '\v'; break;
        case 'U':
        case 'u': {
          long unit = hexUnit(4);
          if (unit < 0) return fail("\\U without hexadecimal digits");
          char32_t cp = static_cast<char32_t>(unit);
          // A high surrogate followed by an escaped low surrogate is one character.
          if (cp >= 0xD800 && cp <= 0xDBFF && pos_ + 2 < text_.size() && text_[pos_] == '\\' &&
              (text_[pos_ + 1] == 'U' || text_[pos_ + 1] == 'u')) {
            size_t saved = pos_;
            pos_ += 2;
            long next = hexUnit(4);
            if (next >= 0xDC00 && next <= 0xDFFF)
              cp = 0x10000 + ((cp - 0xD800) << 10) + static_cast<char32_t>(next - 0xDC00);
            else
              pos_ = saved;
          }
          unicode::appendUtf8(out, cp);
          break;
        }
        default:
          if (e >= '0' && e <= '7') {
            unsigned v = static_cast<unsigned>(e - '0');
            for (int n = 1; n < 3 && !atEnd() && peek() >= '0' && peek() <= '7'; ++n)
              v = v * 8 + static_cast<unsigned>(text_[pos_++] - '0');
            unicode::appendUtf8(out, static_cast<char32_t>(v & 0xFF));
          } else {
            out += e;  // \" \' \\ and any other character stand for themselves
          }
      }
    }
  }

  std::optional<PlistValue> data() {
    std::vector<uint8_t> bytes;
    int high = -1;
    for (;;) {
      if (!skipSpace()) return std::nullopt;
      if (atEnd()) return fail("unterminated <data>");
      char c = text_[pos_++];
      if (c == '>') break;
      int v = text::hexDigitValue(c);
      if (v < 0) return fail("bad character in <data>");
      if (high < 0) {
        high = v;
      } else {
        bytes.push_back(static_cast<uint8_t>(high * 16 + v));
        high = -1;
      }
    }
    if (high >= 0) return fail("odd number of digits in <data>");
    return PlistValue(PlistData{std::move(bytes)});
  }

  std::optional<PlistValue> array(int depth) {
    PlistArray items;
    if (!skipSpace()) return std::nullopt;
    if (!atEnd() && peek() == ')') {
      ++pos_;
      return PlistValue(std::move(items));
    }
    for (;;) {
      std::optional<PlistValue> item = value(depth + 1);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
      if (!skipSpace()) return std::nullopt;
      if (atEnd()) return fail("missing ')'");
      char c = text_[pos_++];
      if (c == ')') break;
      if (c != ',') return fail("expected ',' or ')' in an array");
      if (!skipSpace()) return std::nullopt;
      if (!atEnd() && peek() == ')') {  // a trailing comma
        ++pos_;
        break;
      }
    }
    return PlistValue(std::move(items));
  }

  // Entries up to '}' (braces) or to the end of the input (a .strings table).
  std::optional<PlistValue> dictionaryBody(int depth, bool braces) {
    PlistDict entries;
    for (;;) {
      if (!skipSpace()) return std::nullopt;
      if (atEnd()) {
        if (braces) return fail("missing '}'");
        break;
      }
      if (braces && peek() == '}') {
        ++pos_;
        break;
      }
      std::optional<std::string> key = string();
      if (!key) return std::nullopt;
      if (!skipSpace()) return std::nullopt;
      if (atEnd()) return fail("missing '=' after a key");
      char c = text_[pos_++];
      if (c == ';') {  // "key"; stands for "key" = "key";
        entries.insert_or_assign(*key, PlistValue(*key));
        continue;
      }
      if (c != '=') return fail("expected '=' after a key");
      std::optional<PlistValue> item = value(depth + 1);
      if (!item) return std::nullopt;
      if (!skipSpace()) return std::nullopt;
      if (atEnd() || peek() != ';') return fail("missing ';' after a value");
      ++pos_;
      entries.insert_or_assign(std::move(*key), std::move(*item));  // a repeated key: the last one wins
    }
    return PlistValue(std::move(entries));
  }

  std::string text_;
  size_t pos_ = 0;
  std::string error_;
};

}  // namespace

std::optional<PlistValue> readTextPropertyList(std::string_view bytes, std::string* error) {
  return TextReader(bytes).read(error);
}

}  // namespace bwk
