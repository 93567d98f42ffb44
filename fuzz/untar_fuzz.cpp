// Any bytes as the tar stream of a runtime archive: compressed with gzip, then extracted into
// a fresh directory. Whatever the headers say, nothing may appear beside the destination.
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/fs.h"
#include "install/untar.h"
#include "scratch_dir.h"

namespace {

// <scratch>/archive.tar.gz, extracted into <scratch>/out/dest; out holds nothing else.
struct Layout {
  bwk::fuzz::ScratchDir scratch{"bwk-untar-fuzz"};
  std::string archive = scratch / "archive.tar.gz";
  std::string parent = scratch / "out";
  std::string destination = parent + "/dest";
};

bool writeCompressed(const std::string& path, const uint8_t* data, size_t size) {
  gzFile out = gzopen(path.c_str(), "wb1");
  if (!out) return false;
  bool ok = size == 0 || gzwrite(out, data, static_cast<unsigned>(size)) == static_cast<int>(size);
  return gzclose(out) == Z_OK && ok;
}

std::vector<std::string> sortedNames(const std::string& dir) {
  std::vector<std::string> names = bwk::fs::listDirectory(dir).value_or(std::vector<std::string>{"(unreadable)"});
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Layout layout;
  using bwk::fuzz::require;
  require(writeCompressed(layout.archive, data, size), "cannot write the archive");
  require(bwk::fs::createDirectory(layout.destination, true), "cannot create the destination");

  bwk::ProgressCallback progress = [](double percent, const char*) { require(percent == percent, "percent is NaN"); };
  bwk::UnTar::untar(layout.archive, layout.destination, static_cast<int32_t>(size), &progress);

  require(sortedNames(layout.parent) == std::vector<std::string>{"dest"}, "an entry was written beside the destination");
  require(sortedNames(layout.scratch.path()) == std::vector<std::string>{"archive.tar.gz", "out"},
          "an entry was written outside the destination");
  require(bwk::fs::removeItem(layout.destination), "cannot remove the destination");
  return 0;
}
