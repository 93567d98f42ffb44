// Any bytes as the tar stream of a runtime archive: compressed with gzip, then extracted
// twice into fresh directories, inflated in one piece and streamed. Whatever the headers
// say, nothing may appear beside the destinations, and both ways must give the same result
// and the same tree.
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
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

// Every item under `root`: its type, permissions, size and link target or contents.
std::map<std::string, std::string> tree(const std::string& root) {
  namespace stdfs = std::filesystem;
  std::map<std::string, std::string> items;
  std::error_code ec;
  for (auto it = stdfs::recursive_directory_iterator(root, ec); !ec && it != stdfs::recursive_directory_iterator();
       it.increment(ec)) {
    std::string p = it->path().string();
    struct stat st {};
    ::lstat(p.c_str(), &st);
    std::string what = std::to_string(st.st_mode) + " " + std::to_string(st.st_size);
    if (S_ISLNK(st.st_mode)) what += " -> " + stdfs::read_symlink(p, ec).string();
    if (S_ISREG(st.st_mode)) what += " " + bwk::fs::readFile(p).value_or("(unreadable)");
    items[p.substr(root.size())] = what;
  }
  return items;
}

struct Result {
  bool ok;
  std::map<std::string, std::string> items;
  bool operator==(const Result&) const = default;
};

Result extract(const Layout& layout, bwk::UnTar::Inflation inflation, int32_t length) {
  using bwk::fuzz::require;
  require(bwk::fs::createDirectory(layout.destination, true), "cannot create the destination");
  bwk::ProgressCallback progress = [](double percent, const char*) { require(percent == percent, "percent is NaN"); };
  Result result{bwk::UnTar::untarWith(inflation, layout.archive, layout.destination, length, &progress), {}};
  require(sortedNames(layout.parent) == std::vector<std::string>{"dest"}, "an entry was written beside the destination");
  require(sortedNames(layout.scratch.path()) == std::vector<std::string>{"archive.tar.gz", "out"},
          "an entry was written outside the destination");
  result.items = tree(layout.destination);
  require(bwk::fs::removeItem(layout.destination), "cannot remove the destination");
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Layout layout;
  using bwk::fuzz::require;
  require(writeCompressed(layout.archive, data, size), "cannot write the archive");
  const auto length = static_cast<int32_t>(size);
  Result whole = extract(layout, bwk::UnTar::Inflation::WholeBuffer, length);
  Result streamed = extract(layout, bwk::UnTar::Inflation::Streaming, length);
  require(whole == streamed, "inflating in one piece and streaming gave different results");
  return 0;
}
