// Universal files: a big-endian header and a table of architectures, each a whole Mach-O
// file at an aligned offset. The configuration goes into every 64-bit slice; the slices are
// then laid out again, since they grow, each at its own alignment.
#include <cstring>

#include "embed.h"
#include "platform/elf_note.h"
#include "platform/macho_note.h"

namespace bwk::embed {

namespace {

constexpr uint32_t kFatMagic = 0xcafebabe;    // 32-bit offsets and sizes
constexpr uint32_t kFatMagic64 = 0xcafebabf;  // 64-bit offsets and sizes
constexpr uint32_t kMaxAlignment = 16;        // 64 KiB; linkers use at most 16 KiB

uint32_t be32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}
uint64_t be64(const uint8_t* p) { return (uint64_t{be32(p)} << 32) | be32(p + 4); }
void putBe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
void putBe64(uint8_t* p, uint64_t v) {
  putBe32(p, static_cast<uint32_t>(v >> 32));
  putBe32(p + 4, static_cast<uint32_t>(v));
}

struct Slice {
  uint32_t cputype = 0, cpusubtype = 0;
  uint64_t offset = 0, size = 0;
  uint32_t align = 0;  // a power of two, as its exponent
};

struct Universal {
  bool wide = false;  // FAT_MAGIC_64
  std::vector<Slice> slices;
  size_t entrySize() const { return wide ? 32 : 20; }
};

std::string architectureName(const Slice& slice) {
  switch (slice.cputype) {
    case 0x01000007: return "x86_64";
    case 0x0100000c: return "arm64";
    case 0x00000007: return "i386";
    case 0x0000000c: return "arm";
    default: return "cpu type " + std::to_string(slice.cputype);
  }
}

std::optional<Universal> readUniversal(std::span<const uint8_t> file, std::string& error) {
  Universal u;
  uint32_t magic = file.size() >= 8 ? be32(file.data()) : 0;
  if (magic != kFatMagic && magic != kFatMagic64) {
    error = "not a universal file";
    return std::nullopt;
  }
  u.wide = magic == kFatMagic64;
  uint64_t count = be32(file.data() + 4);
  if (count == 0 || count > (file.size() - 8) / u.entrySize()) {
    error = "not a well-formed universal file: its architecture table does not fit in it";
    return std::nullopt;
  }
  for (uint64_t i = 0; i < count; ++i) {
    const uint8_t* e = file.data() + 8 + i * u.entrySize();
    Slice s;
    s.cputype = be32(e);
    s.cpusubtype = be32(e + 4);
    s.offset = u.wide ? be64(e + 8) : be32(e + 8);
    s.size = u.wide ? be64(e + 16) : be32(e + 12);
    s.align = u.wide ? be32(e + 24) : be32(e + 16);
    if (s.offset > file.size() || s.size > file.size() - s.offset) {
      error = "not a well-formed universal file: the " + architectureName(s) + " slice lies past its end";
      return std::nullopt;
    }
    if (s.align > kMaxAlignment) {
      error = "the " + architectureName(s) + " slice asks for an alignment of 2^" + std::to_string(s.align);
      return std::nullopt;
    }
    u.slices.push_back(s);
  }
  return u;
}

bool isMachO64(std::span<const uint8_t> slice) {
  return slice.size() >= 4 && elf::le32(slice.data()) == macho::kMagic64;
}

std::span<const uint8_t> contents(std::span<const uint8_t> file, const Slice& s) {
  return file.subspan(static_cast<size_t>(s.offset), static_cast<size_t>(s.size));
}

}  // namespace

std::optional<Bytes> regionInUniversal(std::span<const uint8_t> file) {
  std::string error;
  std::optional<Universal> u = readUniversal(file, error);
  if (!u) return std::nullopt;
  for (const Slice& s : u->slices) {
    if (!isMachO64(contents(file, s))) continue;
    if (std::optional<Bytes> region = regionInMachO(contents(file, s))) return region;
  }
  return std::nullopt;
}

Outcome embedInUniversal(std::span<const uint8_t> file, std::span<const uint8_t> region) {
  Outcome outcome;
  std::optional<Universal> u = readUniversal(file, outcome.error);
  if (!u) return outcome;

  std::vector<Bytes> slices;
  for (const Slice& s : u->slices) {
    std::span<const uint8_t> slice = contents(file, s);
    if (!isMachO64(slice)) {
      outcome.warnings.push_back("the " + architectureName(s) +
                                 " slice is no 64-bit Mach-O file: it is left without the configuration");
      slices.emplace_back(slice.begin(), slice.end());
      continue;
    }
    Outcome one = embedInMachO(slice, region);
    if (!one.file) {
      outcome.error = "the " + architectureName(s) + " slice: " + one.error;
      return outcome;
    }
    for (const std::string& warning : one.warnings)
      outcome.warnings.push_back("the " + architectureName(s) + " slice: " + warning);
    slices.push_back(std::move(*one.file));
  }

  Bytes out(8 + u->slices.size() * u->entrySize(), 0);
  putBe32(out.data(), u->wide ? kFatMagic64 : kFatMagic);
  putBe32(out.data() + 4, static_cast<uint32_t>(u->slices.size()));
  for (size_t i = 0; i < slices.size(); ++i) {
    const Slice& s = u->slices[i];
    uint64_t offset = roundUp(out.size(), uint64_t{1} << s.align);
    if (!u->wide && (offset > 0xffffffffu || slices[i].size() > 0xffffffffu - offset)) {
      outcome.error = "the file grows past what a universal header with 32-bit offsets describes";
      return outcome;
    }
    uint8_t* e = out.data() + 8 + i * u->entrySize();
    putBe32(e, s.cputype);
    putBe32(e + 4, s.cpusubtype);
    if (u->wide) {
      putBe64(e + 8, offset);
      putBe64(e + 16, slices[i].size());
      putBe32(e + 24, s.align);
    } else {
      putBe32(e + 8, static_cast<uint32_t>(offset));
      putBe32(e + 12, static_cast<uint32_t>(slices[i].size()));
      putBe32(e + 16, s.align);
    }
    out.resize(offset, 0);
    out.insert(out.end(), slices[i].begin(), slices[i].end());
  }
  outcome.file = std::move(out);
  return outcome;
}

}  // namespace bwk::embed
