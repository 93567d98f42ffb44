#pragma once
// Decides where an archive entry may be written: strictly inside the destination directory,
// and never through a symbolic link that is already on disk.
#include <optional>
#include <string>

namespace bwk {

class TarDestination {
 public:
  explicit TarDestination(const std::string& destination);

  // The absolute path at which `entry` goes, or nothing when it must be skipped: an absolute
  // or "~" name, a name that leaves the destination or is the destination itself, or a name
  // with an existing symbolic link at any of its components, the last one included.
  std::optional<std::string> resolve(const std::string& entry) const;

 private:
  std::string base_;    // the destination, standardized
  std::string prefix_;  // base_ and a separator
};

}  // namespace bwk
