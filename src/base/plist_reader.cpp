// Chooses the property-list format by content, the way the platform's reader does.
#include "base/plist_reader.h"

#include "base/fs.h"
#include "base/strings.h"
#include "base/unicode.h"

namespace bwk {

namespace {

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool looksLikeXml(std::string_view text) {
  if (text::startsWith(text, "\xEF\xBB\xBF")) text.remove_prefix(3);
  while (!text.empty() && isXmlSpace(text.front())) text.remove_prefix(1);
  return text::startsWith(text, "<?xml") || text::startsWith(text, "<!DOCTYPE") || text::startsWith(text, "<plist");
}

bool hasUtf16ByteOrderMark(std::string_view bytes) {
  return text::startsWith(bytes, "\xFE\xFF") || text::startsWith(bytes, "\xFF\xFE");
}

}  // namespace

std::optional<PlistValue> readPropertyList(std::string_view bytes, std::string* error) {
  if (bytes.empty()) {
    if (error) *error = "property list: empty input";
    return std::nullopt;
  }
  if (text::startsWith(bytes, "bplist00")) return readBinaryPropertyList(bytes, error);
  if (hasUtf16ByteOrderMark(bytes)) {
    // XML or text form in UTF-16: both readers take it as UTF-8.
    std::string converted = unicode::decodeText(bytes);
    if (looksLikeXml(converted)) return readXmlPropertyList(converted, error);
    return readTextPropertyList(converted, error);
  }
  if (looksLikeXml(bytes)) return readXmlPropertyList(bytes, error);
  return readTextPropertyList(bytes, error);
}

std::optional<PlistValue> readPropertyListFile(const std::string& path, std::string* error) {
  std::optional<std::string> bytes = fs::readFile(path);
  if (!bytes) {
    if (error) {
      if (!fs::existsNoFollow(path))
        *error = path + ": no such file";
      else if (fs::isDirectory(path))
        *error = path + ": is a directory";
      else
        *error = path + ": cannot be read";
    }
    return std::nullopt;
  }
  std::string reason;
  std::optional<PlistValue> value = readPropertyList(*bytes, &reason);
  if (!value && error) *error = path + ": " + reason;
  return value;
}

}  // namespace bwk
