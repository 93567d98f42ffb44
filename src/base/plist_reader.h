#pragma once
// Readers for the three property-list formats the platform accepts: XML, binary
// ("bplist00") and the old text form (which is also the .strings format, UTF-8 or
// UTF-16 with a byte-order mark). The format is chosen by content.
#include <optional>
#include <string>
#include <string_view>

#include "base/plist.h"

namespace bwk {

// Parses bytes of any of the three formats. On failure gives nothing and, when `error` is
// given, a one-line reason ("XML property list: unexpected end of input at line 3").
std::optional<PlistValue> readPropertyList(std::string_view bytes, std::string* error = nullptr);
// Reads and parses a file; an unreadable file is a failure with its reason.
std::optional<PlistValue> readPropertyListFile(const std::string& path, std::string* error = nullptr);

// The individual formats, for tests and fuzzing; readPropertyList dispatches to them.
std::optional<PlistValue> readXmlPropertyList(std::string_view bytes, std::string* error);
std::optional<PlistValue> readBinaryPropertyList(std::string_view bytes, std::string* error);
// Text form; `strings` accepts a top-level dictionary without braces (a .strings file).
std::optional<PlistValue> readTextPropertyList(std::string_view bytes, std::string* error);

}  // namespace bwk
