// The ELF side: the note goes into a new (or the replaced) SHT_NOTE section, appended at the
// end of the file with a new section-name table and a new section header table. Sections are
// not loaded, so the program's segments stay exactly as they were.
#include <algorithm>
#include <cstring>

#include "embed.h"
#include "platform/elf_note.h"

namespace bwk::embed {

namespace {

void padTo(Bytes& out, uint64_t alignment) {
  while (out.size() % alignment) out.push_back(0);
}

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

// The end of everything the file's headers describe, leaving out the sections this tool
// rewrites: what a previous embedding appended after it is dropped, not stacked up.
uint64_t describedEnd(const elf::FileLayout& layout, size_t skipSection) {
  uint64_t end = elf::kHeaderSize;
  end = std::max(end, layout.phoff + layout.segments.size() * elf::kProgramHeaderSize);
  for (const elf::ProgramHeader& segment : layout.segments) end = std::max(end, segment.offset + segment.filesz);
  for (size_t i = 1; i < layout.sections.size(); ++i) {
    const elf::SectionHeader& s = layout.sections[i];
    if (i == skipSection || i == layout.namesIndex || s.type == elf::kSectionTypeNoBits) continue;
    end = std::max(end, s.offset + s.size);
  }
  return end;
}

}  // namespace

std::optional<Bytes> regionInElf(std::span<const uint8_t> file) {
  return elf::findNoteDescriptor(elf::readFromMemory(file), file.size());
}

Outcome embedInElf(std::span<const uint8_t> file, std::span<const uint8_t> region) {
  Outcome outcome;
  std::string reason;
  std::optional<elf::FileLayout> layout = elf::readFileLayout(elf::readFromMemory(file), file.size(), &reason);
  if (!layout) {
    outcome.error = reason;
    return outcome;
  }
  if (layout->sections.empty()) {
    outcome.error = "the file has no section header table";
    return outcome;
  }
  std::optional<size_t> existing;
  for (size_t i = 1; i < layout->sections.size(); ++i) {
    if (layout->sectionName(layout->sections[i]) == elf::kNoteSectionName) {
      existing = i;
      break;
    }
  }
  bool extendedCount = elf::le16(file.data() + 60) == 0;
  size_t count = layout->sections.size() + (existing ? 0 : 1);
  if (!extendedCount && count >= 0xff00) {
    outcome.error = "the file has too many sections";
    return outcome;
  }

  uint64_t keep = existing ? describedEnd(*layout, *existing) : file.size();
  if (keep > file.size()) {
    outcome.error = "the file is shorter than its headers say";
    return outcome;
  }
  Bytes out(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(keep));

  padTo(out, 4);
  elf::SectionHeader note;
  note.type = elf::kSectionTypeNote;
  note.addralign = 4;
  note.offset = out.size();
  Bytes noteBytes = elf::encodeNote(region);
  note.size = noteBytes.size();
  out.insert(out.end(), noteBytes.begin(), noteBytes.end());

  // The name table, copied with our section's name added when it is not there yet.
  const elf::SectionHeader& oldNames = layout->sections[layout->namesIndex];
  std::string names(layout->names.data(), oldNames.size);
  if (existing) {
    note.name = layout->sections[*existing].name;
  } else {
    if (!names.empty() && names.back() != '\0') names.push_back('\0');
    if (names.empty()) names.push_back('\0');
    note.name = static_cast<uint32_t>(names.size());
    names.append(elf::kNoteSectionName, sizeof elf::kNoteSectionName);
  }
  std::vector<elf::SectionHeader> sections = layout->sections;
  sections[layout->namesIndex].offset = out.size();
  sections[layout->namesIndex].size = names.size();
  out.insert(out.end(), names.begin(), names.end());
  if (existing)
    sections[*existing] = note;
  else
    sections.push_back(note);
  if (extendedCount) sections[0].size = sections.size();

  padTo(out, 8);
  uint64_t tableOffset = out.size();
  out.resize(out.size() + sections.size() * elf::kSectionHeaderSize);
  for (size_t i = 0; i < sections.size(); ++i)
    putSection(out.data() + tableOffset + i * elf::kSectionHeaderSize, sections[i]);

  elf::putLe64(out.data() + 40, tableOffset);
  if (!extendedCount) elf::putLe16(out.data() + 60, static_cast<uint16_t>(sections.size()));
  outcome.file = std::move(out);
  return outcome;
}

}  // namespace bwk::embed
