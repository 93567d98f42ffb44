#pragma once
// The names a jar or zip file holds, read from its central directory alone (no inflating).
#include <optional>
#include <string>
#include <vector>

namespace bwk::bundle {

// Absent, with the reason, when the file cannot be read or is no zip file.
std::optional<std::vector<std::string>> zipEntryNames(const std::string& path, std::string* error);

}  // namespace bwk::bundle
