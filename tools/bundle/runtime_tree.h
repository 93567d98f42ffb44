#pragma once
// The files of a runtime to ship, in a fixed order (names sorted, a directory before what
// it holds). Symbolic links that stay inside the runtime remain links; links that leave it
// (a system's runtime links its configuration to /etc) are replaced by what they point to,
// so that the shipped runtime needs nothing of the machine that packed it; broken links are
// left out with a warning.
#include <sys/types.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace bwk::bundle {

struct TreeEntry {
  enum class Kind { Directory, File, Link };
  Kind kind;
  std::string relative;    // path below the runtime's root, "/"-separated
  std::string source;      // the file or directory to read (links followed)
  std::string linkTarget;  // a link's target, relative to the link's directory
  mode_t mode = 0;         // permission bits
  int64_t mtime = 0;
  uint64_t size = 0;  // a file's length
};

struct TreeWalk {
  std::vector<std::string> warnings;
  std::string error;  // set when the walk stopped
};

// Visits every entry below `root` except those named in `leaveOut` (relative paths, with
// what they hold); a visitor returning false stops the walk (it sets the error itself).
TreeWalk walkRuntimeTree(const std::string& root, const std::function<bool(const TreeEntry&, std::string&)>& visit,
                         const std::set<std::string>& leaveOut = {});

}  // namespace bwk::bundle
