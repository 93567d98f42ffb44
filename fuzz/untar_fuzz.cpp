// Any bytes as the tar stream of a runtime archive, compressed three ways: one gzip member
// (extracted inflated in one piece, with the indexed way asked for, and streamed), indexed
// gzip members of a size taken from the input (in parallel and streamed), and the same
// members behind an index whose count and entries are the input's first bytes (hostile:
// overlapping members, lengths past the end, counts such as 2^32). Whatever the headers and
// the index say, nothing may appear beside the destinations, and every way must give the
// result and the tree that streaming gives.
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
#include "install/archive_index.h"
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

// The tar stream in gzip members of `memberSize` bytes, and an index member: the true one, or
// one whose payload after the version byte is `hostile`.
bool writeMembers(const std::string& path, const uint8_t* data, size_t size, size_t memberSize,
                  const std::string* hostile) {
  std::string out;
  std::vector<std::pair<uint32_t, uint32_t>> members;
  for (size_t at = 0; at < size || members.empty(); at += memberSize) {
    size_t part = std::min(memberSize, size - at);
    z_stream z{};
    if (deflateInit2(&z, 1, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY) != Z_OK) return false;
    std::string member(deflateBound(&z, part) + 32, '\0');
    z.next_in = const_cast<Bytef*>(data + at);
    z.avail_in = static_cast<uInt>(part);
    z.next_out = reinterpret_cast<Bytef*>(member.data());
    z.avail_out = static_cast<uInt>(member.size());
    bool done = deflate(&z, Z_FINISH) == Z_STREAM_END;
    member.resize(z.total_out);
    deflateEnd(&z);
    if (!done) return false;
    out += member;
    members.emplace_back(static_cast<uint32_t>(member.size()), static_cast<uint32_t>(part));
  }
  std::string index = bwk::encodeArchiveIndex(members);
  if (hostile && !index.empty()) {
    // The same envelope around the input's bytes: 12 bytes of header and XLEN, 4 of field head.
    std::string payload = "\1" + *hostile;
    const size_t xlen = 4 + payload.size() + 6;
    auto le16 = [](size_t v) { return std::string{static_cast<char>(v & 0xff), static_cast<char>(v >> 8 & 0xff)}; };
    index = index.substr(0, 10) + le16(xlen) + "Bk" + le16(payload.size()) + payload + "Be" + le16(2) + le16(xlen) +
            index.substr(index.size() - 10);
  }
  return bwk::fs::writeFile(path, out + index);
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
  Result result{bwk::UnTar::untarWith(inflation, layout.archive, layout.destination, length, &progress).complete, {}};
  require(sortedNames(layout.parent) == std::vector<std::string>{"dest"},
          "an entry was written beside the destination");
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
  require(extract(layout, bwk::UnTar::Inflation::Indexed, length) == streamed,
          "an archive without an index gave a different result with the indexed way asked for");

  // Members of 512 to 4095 bytes, so that headers and files straddle them.
  const size_t memberSize = 512 + (size > 0 ? data[size - 1] : 0) * 14;
  for (bool hostileIndex : {false, true}) {
    std::string hostile(reinterpret_cast<const char*>(data), std::min<size_t>(size, 8 + 8 * 16));
    require(writeMembers(layout.archive, data, size, memberSize, hostileIndex ? &hostile : nullptr),
            "cannot write the archive");
    Result members = extract(layout, bwk::UnTar::Inflation::Streaming, length);
    require(extract(layout, bwk::UnTar::Inflation::Indexed, length) == members,
            hostileIndex ? "a hostile index changed the result" : "inflating indexed members gave a different result");
  }
  return 0;
}
