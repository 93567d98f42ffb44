#include "build_id.h"

#include <zlib.h>

#include <cstdio>
#include <fstream>

#include "base/strings.h"
#include "runtime_tree.h"

namespace bwk::bundle {

namespace {

// Two independent sums over the same bytes (FNV-1a 64 and CRC-32): an accidental change
// that leaves both alike is out of reach, and neither needs more than zlib.
class Digest {
 public:
  void add(const char* bytes, size_t length) {
    for (size_t i = 0; i < length; ++i) fnv_ = (fnv_ ^ static_cast<unsigned char>(bytes[i])) * 0x100000001b3ULL;
    crc_ = crc32(crc_, reinterpret_cast<const Bytef*>(bytes), static_cast<uInt>(length));
  }
  void add(const std::string& text) { add(text.data(), text.size() + 1); }  // with its terminator
  std::string hex() const {
    char text[32];
    std::snprintf(text, sizeof text, "%016llx%08lx", static_cast<unsigned long long>(fnv_),
                  static_cast<unsigned long>(crc_));
    return text;
  }

 private:
  uint64_t fnv_ = 0xcbf29ce484222325ULL;
  uLong crc_ = crc32(0, nullptr, 0);
};

bool isCode(const std::string& name) {
  return text::endsWith(name, ".jar") || text::endsWith(name, ".zip") || text::endsWith(name, ".class");
}

}  // namespace

std::string applicationBuildId(const std::string& appRoot) {
  Digest digest;
  std::vector<char> buffer(1 << 16);
  walkRuntimeTree(appRoot,
                  [&](const TreeEntry& entry, std::string&) {
                    if (entry.kind != TreeEntry::Kind::File || !isCode(entry.relative)) return true;
                    digest.add(entry.relative);
                    std::ifstream in(entry.source, std::ios::binary);
                    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0)
                      digest.add(buffer.data(), static_cast<size_t>(in.gcount()));
                    return true;
                  },
                  {".brackwood", "jre.tar.gz"});  // a command-line launcher's runtime, a bundle's runtime archive
  return digest.hex();
}

}  // namespace bwk::bundle
