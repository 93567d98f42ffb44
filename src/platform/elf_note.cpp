#include "platform/elf_note.h"

#include <cstring>

namespace bwk::elf {

uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t le32(const uint8_t* p) { return le16(p) | (static_cast<uint32_t>(le16(p + 2)) << 16); }
uint64_t le64(const uint8_t* p) { return le32(p) | (static_cast<uint64_t>(le32(p + 4)) << 32); }
void putLe16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}
void putLe32(uint8_t* p, uint32_t v) {
  putLe16(p, static_cast<uint16_t>(v));
  putLe16(p + 2, static_cast<uint16_t>(v >> 16));
}
void putLe64(uint8_t* p, uint64_t v) {
  putLe32(p, static_cast<uint32_t>(v));
  putLe32(p + 4, static_cast<uint32_t>(v >> 32));
}

ReadAt readFromMemory(std::span<const uint8_t> bytes) {
  return [bytes](uint64_t offset, void* out, size_t size) {
    if (offset > bytes.size() || size > bytes.size() - offset) return false;
    if (size) std::memcpy(out, bytes.data() + offset, size);
    return true;
  };
}

std::string FileLayout::sectionName(const SectionHeader& section) const {
  if (section.name >= names.size()) return {};
  return std::string(names.c_str() + section.name);  // names ends in a NUL we added
}

namespace {

// Fails cleanly when [offset, offset + size) is not inside the file.
bool inFile(uint64_t offset, uint64_t size, uint64_t fileSize) {
  return offset <= fileSize && size <= fileSize - offset;
}

bool fail(std::string* error, const char* reason) {
  if (error) *error = reason;
  return false;
}

SectionHeader parseSection(const uint8_t* p) {
  SectionHeader s;
  s.name = le32(p);
  s.type = le32(p + 4);
  s.flags = le64(p + 8);
  s.addr = le64(p + 16);
  s.offset = le64(p + 24);
  s.size = le64(p + 32);
  s.link = le32(p + 40);
  s.info = le32(p + 44);
  s.addralign = le64(p + 48);
  s.entsize = le64(p + 56);
  return s;
}

ProgramHeader parseSegment(const uint8_t* p) {
  ProgramHeader h;
  h.type = le32(p);
  h.flags = le32(p + 4);
  h.offset = le64(p + 8);
  h.vaddr = le64(p + 16);
  h.paddr = le64(p + 24);
  h.filesz = le64(p + 32);
  h.memsz = le64(p + 40);
  h.align = le64(p + 48);
  return h;
}

bool readLayout(const ReadAt& read, uint64_t fileSize, FileLayout& layout, std::string* error) {
  uint8_t header[kHeaderSize];
  if (!read(0, header, sizeof header)) return fail(error, "too short for an ELF header");
  if (std::memcmp(header,
                  "\x7f"
                  "ELF",
                  4) != 0)
    return fail(error, "not an ELF file");
  if (header[4] != 2 || header[5] != 1) return fail(error, "only 64-bit little-endian ELF files are supported");

  layout.phoff = le64(header + 32);
  uint16_t phentsize = le16(header + 54), phnum = le16(header + 56);
  if (phnum) {
    if (phentsize != kProgramHeaderSize || !inFile(layout.phoff, uint64_t{phnum} * phentsize, fileSize))
      return fail(error, "program headers outside the file");
    std::vector<uint8_t> table(size_t{phnum} * phentsize);
    if (!read(layout.phoff, table.data(), table.size())) return fail(error, "program headers unreadable");
    for (size_t i = 0; i < phnum; ++i) layout.segments.push_back(parseSegment(table.data() + i * kProgramHeaderSize));
  }

  layout.shoff = le64(header + 40);
  uint16_t shentsize = le16(header + 58);
  uint64_t count = le16(header + 60);
  uint32_t namesIndex = le16(header + 62);
  if (layout.shoff == 0) return true;  // no section table
  if (shentsize != kSectionHeaderSize) return fail(error, "unexpected section header size");
  uint8_t first[kSectionHeaderSize];
  if (!read(layout.shoff, first, sizeof first)) return fail(error, "section headers outside the file");
  SectionHeader zero = parseSection(first);
  // Extended numbering: the real count and name-table index sit in section 0.
  if (count == 0) count = zero.size;
  if (namesIndex == 0xffff) namesIndex = zero.link;
  if (count == 0 || count > fileSize / kSectionHeaderSize ||
      !inFile(layout.shoff, count * kSectionHeaderSize, fileSize))
    return fail(error, "section headers outside the file");
  std::vector<uint8_t> table(count * kSectionHeaderSize);
  if (!read(layout.shoff, table.data(), table.size())) return fail(error, "section headers unreadable");
  for (uint64_t i = 0; i < count; ++i) layout.sections.push_back(parseSection(table.data() + i * kSectionHeaderSize));

  if (namesIndex == 0 || namesIndex >= count) return fail(error, "no section-name table");
  const SectionHeader& names = layout.sections[namesIndex];
  if (names.type == kSectionTypeNoBits || !inFile(names.offset, names.size, fileSize))
    return fail(error, "section-name table outside the file");
  layout.namesIndex = namesIndex;
  layout.names.resize(names.size);
  if (!read(names.offset, layout.names.data(), layout.names.size()))
    return fail(error, "section-name table unreadable");
  layout.names.push_back('\0');  // a table without a final NUL ends its last name here
  return true;
}

uint64_t align4(uint64_t n) { return (n + 3) & ~uint64_t{3}; }

}  // namespace

std::optional<FileLayout> readFileLayout(const ReadAt& read, uint64_t fileSize, std::string* error) {
  FileLayout layout;
  if (!readLayout(read, fileSize, layout, error)) return std::nullopt;
  return layout;
}

std::optional<std::vector<uint8_t>> findDescriptor(std::span<const uint8_t> section) {
  uint64_t at = 0;
  while (at + 12 <= section.size()) {
    uint32_t nameSize = le32(section.data() + at), descSize = le32(section.data() + at + 4);
    uint32_t type = le32(section.data() + at + 8);
    uint64_t name = at + 12, desc = name + align4(nameSize);
    if (desc > section.size() || descSize > section.size() - desc) return std::nullopt;
    if (type == kNoteType && nameSize == sizeof kNoteName &&
        std::memcmp(section.data() + name, kNoteName, sizeof kNoteName) == 0)
      return std::vector<uint8_t>(section.data() + desc, section.data() + desc + descSize);
    at = desc + align4(descSize);
  }
  return std::nullopt;
}

std::optional<std::vector<uint8_t>> findNoteDescriptor(const ReadAt& read, uint64_t fileSize) {
  std::optional<FileLayout> layout = readFileLayout(read, fileSize);
  if (!layout) return std::nullopt;
  for (const SectionHeader& section : layout->sections) {
    if (section.type != kSectionTypeNote || layout->sectionName(section) != kNoteSectionName) continue;
    if (!inFile(section.offset, section.size, fileSize)) return std::nullopt;
    std::vector<uint8_t> contents(section.size);
    if (!read(section.offset, contents.data(), contents.size())) return std::nullopt;
    if (auto descriptor = findDescriptor(contents)) return descriptor;
  }
  return std::nullopt;
}

std::vector<uint8_t> encodeNote(std::span<const uint8_t> descriptor) {
  std::vector<uint8_t> out(12 + align4(sizeof kNoteName) + align4(descriptor.size()), 0);
  putLe32(out.data(), sizeof kNoteName);
  putLe32(out.data() + 4, static_cast<uint32_t>(descriptor.size()));
  putLe32(out.data() + 8, kNoteType);
  std::memcpy(out.data() + 12, kNoteName, sizeof kNoteName);
  if (!descriptor.empty())
    std::memcpy(out.data() + 12 + align4(sizeof kNoteName), descriptor.data(), descriptor.size());
  return out;
}

}  // namespace bwk::elf
