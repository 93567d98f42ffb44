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
  c.resize(std::max<uint32_t>(commandSize, 8));
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

inline uint64_t roundUp(uint64_t n, uint64_t to) { return (n + to - 1) / to * to; }

// The file signed as a linker signs it: an LC_CODE_SIGNATURE command after the others (the
// header padding must hold it) and `size` bytes of signature data at the next 16-byte
// boundary, the end of a grown __LINKEDIT.
inline Bytes signedImage(Bytes file, uint32_t size = 0x13) {
  uint64_t dataOffset = roundUp(file.size(), 16);
  size_t end = 32 + get32(file, 20);
  for (size_t at = 32; at < end; at += get32(file, at + 4))
    if (get32(file, at) == 0x19 && std::memcmp(file.data() + at + 8, "__LINKEDIT", 11) == 0)
      put64(file, at + 48, dataOffset + size - get64(file, at + 40));
  put32(file, end, 0x1d);
  put32(file, end + 4, 16);
  put32(file, end + 8, static_cast<uint32_t>(dataOffset));
  put32(file, end + 12, size);
  put32(file, 16, get32(file, 16) + 1);
  put32(file, 20, get32(file, 20) + 16);
  file.resize(dataOffset, 0);
  file.resize(dataOffset + size, 0xfa);
  return file;
}

struct FatSlice {
  uint32_t cputype = 0, align = 0;
  Bytes contents;
};

inline void putBe32(Bytes& b, size_t at, uint32_t v) {
  for (size_t i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

// A universal file: the big-endian header (FAT_MAGIC, or FAT_MAGIC_64 when `wide`), then
// each slice at the next multiple of 2^align.
inline Bytes universalFile(const std::vector<FatSlice>& slices, bool wide) {
  size_t entry = wide ? 32 : 20;
  Bytes b(8 + entry * slices.size(), 0);
  putBe32(b, 0, wide ? 0xcafebabf : 0xcafebabe);
  putBe32(b, 4, static_cast<uint32_t>(slices.size()));
  for (size_t i = 0; i < slices.size(); ++i) {
    size_t offset = roundUp(b.size(), uint64_t{1} << slices[i].align), e = 8 + i * entry;
    putBe32(b, e, slices[i].cputype);
    putBe32(b, e + 8 + (wide ? 4 : 0), static_cast<uint32_t>(offset));
    putBe32(b, e + (wide ? 20 : 12), static_cast<uint32_t>(slices[i].contents.size()));
    putBe32(b, e + (wide ? 24 : 16), slices[i].align);
    b.resize(offset, 0);
    b.insert(b.end(), slices[i].contents.begin(), slices[i].contents.end());
  }
  return b;
}

}  // namespace bwk::test
