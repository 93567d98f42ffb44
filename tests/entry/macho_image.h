#pragma once
// Small 64-bit Mach-O files: a header, the load commands given, and zero bytes up to the file size.
#include <cstring>

#include "test_support.h"

namespace bwk::test {

using Bytes = std::vector<uint8_t>;

inline void put32(Bytes& b, size_t at, uint32_t v) { std::memcpy(b.data() + at, &v, 4); }
inline void put64(Bytes& b, size_t at, uint64_t v) { std::memcpy(b.data() + at, &v, 8); }
// The values one after another from `at`, each as wide as its type.
template <typename... T>
void putEach(Bytes& b, size_t at, T... values) {
  ((std::memcpy(b.data() + at, &values, sizeof values), at += sizeof values), ...);
}
template <typename T>
T get(const Bytes& b, size_t at) {
  T v;
  std::memcpy(&v, b.data() + at, sizeof v);
  return v;
}
inline uint32_t get32(const Bytes& b, size_t at) { return get<uint32_t>(b, at); }
inline uint64_t get64(const Bytes& b, size_t at) { return get<uint64_t>(b, at); }

struct SectionSpec {
  std::string name;
  uint64_t addr = 0, size = 0;
  uint32_t offset = 0, flags = 0;
};

// An LC_SEGMENT_64 command with its sections.
inline Bytes segmentCommand(const std::string& name, uint64_t vmaddr, uint64_t vmsize, uint64_t fileoff,
                            uint64_t filesize, const std::vector<SectionSpec>& sections = {}) {
  Bytes c(72 + 80 * sections.size(), 0);
  putEach(c, 0, uint32_t{0x19}, static_cast<uint32_t>(c.size()));
  std::memcpy(c.data() + 8, name.data(), std::min<size_t>(name.size(), 16));
  putEach(c, 24, vmaddr, vmsize, fileoff, filesize, uint32_t{7}, uint32_t{5}, static_cast<uint32_t>(sections.size()));
  for (size_t i = 0; i < sections.size(); ++i) {
    size_t at = 72 + 80 * i;
    std::memcpy(c.data() + at, sections[i].name.data(), std::min<size_t>(sections[i].name.size(), 16));
    std::memcpy(c.data() + at + 16, name.data(), std::min<size_t>(name.size(), 16));
    putEach(c, at + 32, sections[i].addr, sections[i].size, sections[i].offset);
    put32(c, at + 64, sections[i].flags);
  }
  return c;
}

// The file: header (x86_64 executable), the commands in order, zeros up to `fileSize`.
inline Bytes machOFile(const std::vector<Bytes>& commands, size_t fileSize) {
  size_t commandBytes = 0;
  for (const Bytes& c : commands) commandBytes += c.size();
  Bytes b(std::max(fileSize, 32 + commandBytes), 0);
  putEach(b, 0, uint32_t{0xfeedfacf}, uint32_t{0x01000007}, uint32_t{3}, uint32_t{2},
          static_cast<uint32_t>(commands.size()), static_cast<uint32_t>(commandBytes));
  size_t at = 32;
  for (const Bytes& c : commands) {
    std::memcpy(b.data() + at, c.data(), c.size());
    at += c.size();
  }
  return b;
}

inline uint64_t roundUp(uint64_t n, uint64_t to) { return (n + to - 1) / to * to; }

// The file signed as a linker signs it: an LC_CODE_SIGNATURE command after the others (the header padding must hold it)
// and `size` bytes of signature data at the next 16-byte boundary, the end of a grown __LINKEDIT.
inline Bytes signedImage(Bytes file, uint32_t size = 0x13) {
  uint64_t dataOffset = roundUp(file.size(), 16);
  size_t end = 32 + get32(file, 20);
  for (size_t at = 32; at < end; at += get32(file, at + 4))
    if (get32(file, at) == 0x19 && std::memcmp(file.data() + at + 8, "__LINKEDIT", 11) == 0)
      put64(file, at + 48, dataOffset + size - get64(file, at + 40));
  putEach(file, end, uint32_t{0x1d}, uint32_t{16}, static_cast<uint32_t>(dataOffset), size);
  putEach(file, 16, get32(file, 16) + 1, get32(file, 20) + 16);
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

// A universal file: the big-endian header (FAT_MAGIC_64 when `wide`), each slice at the next multiple of 2^align.
inline Bytes universalFile(const std::vector<FatSlice>& slices, bool wide) {
  size_t entry = wide ? 32 : 20;
  Bytes b(8 + entry * slices.size(), 0);
  putBe32(b, 0, wide ? 0xcafebabf : 0xcafebabe);
  putBe32(b, 4, static_cast<uint32_t>(slices.size()));
  for (size_t i = 0; i < slices.size(); ++i) {
    size_t offset = roundUp(b.size(), uint64_t{1} << slices[i].align), e = 8 + i * entry;
    putBe32(b, e, slices[i].cputype);
    putBe32(b, e + 4, 3);  // a CPU subtype, which must be carried over
    putBe32(b, e + 8 + (wide ? 4 : 0), static_cast<uint32_t>(offset));
    putBe32(b, e + (wide ? 20 : 12), static_cast<uint32_t>(slices[i].contents.size()));
    putBe32(b, e + (wide ? 24 : 16), slices[i].align);
    b.resize(offset, 0);
    b.insert(b.end(), slices[i].contents.begin(), slices[i].contents.end());
  }
  return b;
}

}  // namespace bwk::test
