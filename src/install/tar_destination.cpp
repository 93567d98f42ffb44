#include "install/tar_destination.h"

#include <sys/stat.h>

#include "base/path.h"
#include "base/strings.h"

namespace bwk {

TarDestination::TarDestination(const std::string& destination)
    : base_(path::standardize(destination)), prefix_(base_ + "/") {}

std::optional<std::string> TarDestination::resolve(const std::string& entry) const {
  if (path::isAbsolute(entry)) return std::nullopt;
  std::string full = path::standardize(path::append(base_, entry));
  // Also false for the destination itself ("." or "./"), which has no separator after it.
  if (!text::startsWith(full, prefix_)) return std::nullopt;

  // Every component below the destination, the entry's own last: none may be a link, or
  // what follows would be written wherever the link points. Missing components pass.
  std::string current;
  for (size_t next = prefix_.size();;) {
    size_t slash = full.find('/', next);
    current.assign(full, 0, slash);
    struct stat st;
    if (::lstat(current.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) return std::nullopt;
    if (slash == std::string::npos) break;
    next = slash + 1;
  }
  return full;
}

}  // namespace bwk
