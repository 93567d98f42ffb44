#pragma once
// Writing the files a bundle's configuration lives in: an XML property list and a
// Localizable.strings table.
#include <string>
#include <utility>
#include <vector>

#include "base/plist.h"

namespace bwk::bundle {

// The value as an XML property list document. Text with characters XML cannot carry
// (control characters other than tab, line feed and carriage return) throws
// std::invalid_argument.
std::string xmlPropertyList(const PlistValue& value);

// A strings table ("key" = "value";) with the entries in the order given, each after an
// optional comment line.
struct StringsEntry {
  std::string key, value, comment;
};
std::string stringsTable(const std::vector<StringsEntry>& entries);

}  // namespace bwk::bundle
