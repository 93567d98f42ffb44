#pragma once
// The names a jar or zip file holds, read from its central directory, and the content of one entry.
#include <optional>
#include <string>
#include <vector>

namespace bwk::bundle {

// Absent, with the reason, when the file cannot be read or is no zip file.
std::optional<std::vector<std::string>> zipEntryNames(const std::string& path, std::string* error);

// The content of the entry `name` (stored or deflated): absent, with the reason, when the file
// or the entry cannot be read; an absent inner value when the archive has no such entry.
std::optional<std::optional<std::string>> zipEntryContent(const std::string& path, const std::string& name,
                                                          std::string* error);

}  // namespace bwk::bundle
