#pragma once
// Builds small 64-bit Mach-O files for the tests: a header, the load commands given, and
// zero bytes up to the file size.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace bwk::test {

using Bytes = std::vector<uint8_t>;

inline void put32(Bytes& b, size_t at, uint32_t v) { std::memcpy(b.data() + at, &v, 4); }
inline void put64(Bytes& b, size_t at, uint64_t v) { std::memcpy(b.data() + at, &v, 8); }
inline uint32_t get32(const Bytes& b, size_t at) {
  uint32_t v;
  std::memcpy(&v, b.data() + at, 4);
  return v;
}
inline uint64_t get64(const Bytes& b, size_t at) {
  uint64_t v;
  std::memcpy(&v, b.data() + at, 8);
  return v;
}

inline Bytes noteOwner(const std::string& owner = "com.brackwood") {
  Bytes b(16, 0);
  std::memcpy(b.data(), owner.data(), std::min<size_t>(owner.size(), 16));
  return b;
}

// An LC_NOTE command.
inline Bytes noteCommand(const Bytes& owner, uint64_t offset, uint64_t size, uint32_t commandSize = 40) {
  Bytes c(std::max<uint32_t>(commandSize, 40), 0);
  put32(c, 0, 0x31);
  put32(c, 4, commandSize);
  std::memcpy(c.data() + 8, owner.data(), 16);
  put64(c, 24, offset);
  put64(c, 32, size);
  c.resize(commandSize >= 8 ? commandSize : 8);
  return c;
}

struct SectionSpec {
  std::string name;
  uint64_t addr = 0, size = 0;
  uint32_t offset = 0, flags = 0;
};

// An LC_SEGMENT_64 command with its sections.
inline Bytes segmentCommand(const std::string& name, uint64_t vmaddr, uint64_t vmsize, uint64_t fileoff,
                            uint64_t filesize, const std::vector<SectionSpec>& sections = {}) {
  Bytes c(72 + 80 * sections.size(), 0);
  put32(c, 0, 0x19);
  put32(c, 4, static_cast<uint32_t>(c.size()));
  std::memcpy(c.data() + 8, name.data(), std::min<size_t>(name.size(), 16));
  put64(c, 24, vmaddr);
  put64(c, 32, vmsize);
  put64(c, 40, fileoff);
  put64(c, 48, filesize);
  put32(c, 56, 7);
  put32(c, 60, 5);
  put32(c, 64, static_cast<uint32_t>(sections.size()));
  for (size_t i = 0; i < sections.size(); ++i) {
    size_t at = 72 + 80 * i;
    std::memcpy(c.data() + at, sections[i].name.data(), std::min<size_t>(sections[i].name.size(), 16));
    std::memcpy(c.data() + at + 16, name.data(), std::min<size_t>(name.size(), 16));
    put64(c, at + 32, sections[i].addr);
    put64(c, at + 40, sections[i].size);
    put32(c, at + 48, sections[i].offset);
    put32(c, at + 64, sections[i].flags);
  }
  return c;
}

// The file: header (x86_64 executable), the commands in order, zeros up to `fileSize`.
inline Bytes machOFile(const std::vector<Bytes>& commands, size_t fileSize) {
  size_t commandBytes = 0;
  for (const Bytes& c : commands) commandBytes += c.size();
  Bytes b(std::max(fileSize, 32 + commandBytes), 0);
  put32(b, 0, 0xfeedfacf);
  put32(b, 4, 0x01000007);
  put32(b, 8, 3);
  put32(b, 12, 2);
  put32(b, 16, static_cast<uint32_t>(commands.size()));
  put32(b, 20, static_cast<uint32_t>(commandBytes));
  size_t at = 32;
  for (const Bytes& c : commands) {
    std::memcpy(b.data() + at, c.data(), c.size());
    at += c.size();
  }
  return b;
}

}  // namespace bwk::test
