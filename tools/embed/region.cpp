// The region itself and the kind of executable it goes into.
#include <cstring>

#include "embed.h"
#include "platform/elf_note.h"
#include "platform/macho_note.h"

namespace bwk::embed {

Bytes makeRegion(std::span<const uint8_t> propertyList) {
  Bytes region(4 + propertyList.size());
  elf::putLe32(region.data(), static_cast<uint32_t>(propertyList.size()));
  if (!propertyList.empty()) std::memcpy(region.data() + 4, propertyList.data(), propertyList.size());
  return region;
}

Format detectFormat(std::span<const uint8_t> file, std::string* reason) {
  if (file.size() >= 64 && std::memcmp(file.data(),
                                       "\x7f"
                                       "ELF",
                                       4) == 0)
    return Format::Elf;
  if (file.size() >= macho::kHeaderSize) {
    uint32_t magic = elf::le32(file.data());
    if (magic == macho::kMagic64) return Format::MachO;
    if (magic == 0xfeedface) {
      *reason = "32-bit Mach-O files are not supported";
      return Format::Unknown;
    }
    if (magic == 0xbebafeca || magic == 0xbfbafeca) return Format::Universal;  // FAT_MAGIC(_64), big-endian
    if (magic == 0xcffaedfe) {
      *reason = "big-endian Mach-O files are not supported";
      return Format::Unknown;
    }
  }
  *reason = "neither an ELF nor a Mach-O executable";
  return Format::Unknown;
}

}  // namespace bwk::embed
