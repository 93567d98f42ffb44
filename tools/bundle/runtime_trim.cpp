#include "runtime_trim.h"

#include "base/fs.h"
#include "base/path.h"
#include "runtime_tree.h"

namespace bwk::bundle {

namespace {

// Directories end in "/"; lib/src.zip is where Debian's JDK has its (often broken) link.
constexpr const char* kUnneeded[] = {"jmods/", "src.zip", "lib/src.zip", "include/",
                                     "man/",   "demo/",   "sample/",     "docs/"};

}  // namespace

std::vector<std::string> leaveOutUnneeded(ShippedRuntime& runtime) {
  std::string prefix = runtime.bundleShaped ? "Contents/Home/" : "";
  std::vector<std::string> names;
  for (std::string name : kUnneeded) {
    bool directory = name.back() == '/';
    std::string relative = prefix + (directory ? name.substr(0, name.size() - 1) : name);
    if (!fs::existsNoFollow(path::append(runtime.directory, relative))) continue;
    runtime.leftOut.insert(relative);
    names.push_back(name);
  }
  return names;
}

uint64_t shippedSize(const ShippedRuntime& runtime) {
  uint64_t total = 0;
  walkRuntimeTree(
      runtime.directory,
      [&](const TreeEntry& entry, std::string&) {
        if (entry.kind == TreeEntry::Kind::File) total += entry.size;
        return true;
      },
      runtime.leftOut);
  return total;
}

}  // namespace bwk::bundle
