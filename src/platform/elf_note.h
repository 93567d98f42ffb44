#pragma once
// The embedded configuration as an ELF executable carries it: a section of type SHT_NOTE
// named ".note.brackwood" holding a note named "com.brackwood" of type 1, whose descriptor
// is the region (u32 length L, little-endian, then L bytes of a property list).
// Only 64-bit little-endian files are read; every offset and size is checked against the
// file, so a hostile file gives "absent", never a read outside it.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bwk::elf {

inline constexpr char kNoteSectionName[] = ".note.brackwood";
inline constexpr char kNoteName[] = "com.brackwood";
inline constexpr uint32_t kNoteType = 1;
inline constexpr uint32_t kSectionTypeNote = 7;    // SHT_NOTE
inline constexpr uint32_t kSectionTypeNoBits = 8;  // SHT_NOBITS
inline constexpr size_t kHeaderSize = 64;          // Elf64_Ehdr
inline constexpr size_t kSectionHeaderSize = 64;   // Elf64_Shdr
inline constexpr size_t kProgramHeaderSize = 56;   // Elf64_Phdr

// Reads exactly `size` bytes at `offset`; false when the file does not hold them.
using ReadAt = std::function<bool(uint64_t offset, void* out, size_t size)>;
ReadAt readFromMemory(std::span<const uint8_t> bytes);

struct SectionHeader {
  uint32_t name = 0, type = 0;
  uint64_t flags = 0, addr = 0, offset = 0, size = 0;
  uint32_t link = 0, info = 0;
  uint64_t addralign = 0, entsize = 0;
};

struct ProgramHeader {
  uint32_t type = 0, flags = 0;
  uint64_t offset = 0, vaddr = 0, paddr = 0, filesz = 0, memsz = 0, align = 0;
};

// What a writer needs to know of a file, and what the reader walks.
struct FileLayout {
  uint64_t phoff = 0, shoff = 0;
  std::vector<ProgramHeader> segments;
  std::vector<SectionHeader> sections;  // index 0 included when the file has a table
  uint32_t namesIndex = 0;              // the section-name string table
  std::string names;                    // its contents
  std::string sectionName(const SectionHeader& section) const;
};

// Absent, with a reason in `error`, when the file is no 64-bit little-endian ELF file or its
// headers point outside it.
std::optional<FileLayout> readFileLayout(const ReadAt& read, uint64_t fileSize, std::string* error = nullptr);

// The descriptor of the first "com.brackwood" note of type 1 in a note section's contents;
// absent when there is none or a note runs past the section's end.
std::optional<std::vector<uint8_t>> findDescriptor(std::span<const uint8_t> section);

// The descriptor carried by the file, if any (first matching section and note).
std::optional<std::vector<uint8_t>> findNoteDescriptor(const ReadAt& read, uint64_t fileSize);

// A note section's contents holding one note with `descriptor`.
std::vector<uint8_t> encodeNote(std::span<const uint8_t> descriptor);

// Little-endian field access shared by the reader and the writer.
uint16_t le16(const uint8_t* p);
uint32_t le32(const uint8_t* p);
uint64_t le64(const uint8_t* p);
void putLe16(uint8_t* p, uint16_t v);
void putLe32(uint8_t* p, uint32_t v);
void putLe64(uint8_t* p, uint64_t v);

}  // namespace bwk::elf
