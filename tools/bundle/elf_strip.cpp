// The loaded part of the file (everything the program headers and the allocated sections
// cover) stays byte for byte; the sections after it that are kept are appended again, with a
// new section header table. Dropped: .debug* and .zdebug* sections, .symtab and .strtab.
#include "elf_strip.h"

#include <algorithm>

#include "platform/elf_note.h"

namespace bwk::bundle {

namespace {

constexpr uint64_t kAlloc = 0x2;      // SHF_ALLOC
constexpr uint64_t kInfoLink = 0x40;  // SHF_INFO_LINK
constexpr uint32_t kRel = 9, kRela = 4;

void putSection(uint8_t* p, const elf::SectionHeader& s) {
  elf::putLe32(p, s.name);
  elf::putLe32(p + 4, s.type);
  elf::putLe64(p + 8, s.flags);
  elf::putLe64(p + 16, s.addr);
  elf::putLe64(p + 24, s.offset);
  elf::putLe64(p + 32, s.size);
  elf::putLe32(p + 40, s.link);
  elf::putLe32(p + 44, s.info);
  elf::putLe64(p + 48, s.addralign);
  elf::putLe64(p + 56, s.entsize);
}

bool dropped(const std::string& name) {
  return name.starts_with(".debug") || name.starts_with(".zdebug") || name == ".symtab" || name == ".strtab";
}

}  // namespace

std::optional<std::vector<uint8_t>> stripElf(std::span<const uint8_t> file, std::string* error) {
  std::optional<elf::FileLayout> layout = elf::readFileLayout(elf::readFromMemory(file), file.size(), error);
  if (!layout) return std::nullopt;
  if (layout->sections.empty() || elf::le16(file.data() + 60) == 0 || elf::le16(file.data() + 62) == 0xffff) {
    if (error) *error = "no section table with ordinary numbering";
    return std::nullopt;
  }

  uint64_t loadedEnd = layout->phoff + layout->segments.size() * elf::kProgramHeaderSize;
  loadedEnd = std::max<uint64_t>(loadedEnd, elf::kHeaderSize);
  for (const elf::ProgramHeader& segment : layout->segments)
    loadedEnd = std::max(loadedEnd, segment.offset + segment.filesz);
  for (const elf::SectionHeader& s : layout->sections)
    if ((s.flags & kAlloc) && s.type != elf::kSectionTypeNoBits) loadedEnd = std::max(loadedEnd, s.offset + s.size);
  if (loadedEnd > file.size()) {
    if (error) *error = "the file is shorter than its headers say";
    return std::nullopt;
  }

  std::vector<uint8_t> out(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(loadedEnd));
  std::vector<elf::SectionHeader> kept{layout->sections[0]};
  std::vector<uint32_t> newIndex(layout->sections.size(), 0);
  for (size_t i = 1; i < layout->sections.size(); ++i) {
    elf::SectionHeader s = layout->sections[i];
    if (!(s.flags & kAlloc) && i != layout->namesIndex && dropped(layout->sectionName(s))) continue;
    bool outsideLoaded = !(s.flags & kAlloc) && s.type != elf::kSectionTypeNoBits && s.offset + s.size > loadedEnd;
    if (outsideLoaded) {
      if (s.offset > file.size() || s.size > file.size() - s.offset) {
        if (error) *error = "a section lies outside the file";
        return std::nullopt;
      }
      uint64_t alignment = std::max<uint64_t>(s.addralign, 1);
      out.resize((out.size() + alignment - 1) / alignment * alignment, 0);
      uint64_t offset = out.size();
      out.insert(out.end(), file.begin() + static_cast<std::ptrdiff_t>(s.offset),
                 file.begin() + static_cast<std::ptrdiff_t>(s.offset + s.size));
      s.offset = offset;
    }
    newIndex[i] = static_cast<uint32_t>(kept.size());
    kept.push_back(s);
  }
  // Links and info fields name sections by index: renumber them; a link to a dropped
  // section becomes none.
  auto renumber = [&](uint32_t index) { return index < newIndex.size() ? newIndex[index] : 0; };
  for (size_t i = 1; i < kept.size(); ++i) {
    kept[i].link = renumber(kept[i].link);
    if ((kept[i].flags & kInfoLink) || kept[i].type == kRel || kept[i].type == kRela)
      kept[i].info = renumber(kept[i].info);
  }

  out.resize((out.size() + 7) / 8 * 8, 0);
  uint64_t tableOffset = out.size();
  out.resize(out.size() + kept.size() * elf::kSectionHeaderSize);
  for (size_t i = 0; i < kept.size(); ++i) putSection(out.data() + tableOffset + i * elf::kSectionHeaderSize, kept[i]);
  elf::putLe64(out.data() + 40, tableOffset);
  elf::putLe16(out.data() + 60, static_cast<uint16_t>(kept.size()));
  elf::putLe16(out.data() + 62, static_cast<uint16_t>(newIndex[layout->namesIndex]));
  return out;
}

}  // namespace bwk::bundle
