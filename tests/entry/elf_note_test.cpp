// Reading the configuration note from ELF files: the file walk over headers that may point
// anywhere (accepted notes are read back by the embedding tests).

#include <cstring>

#include "platform/elf_note.h"
#include "test_support.h"

namespace bwk::test {
namespace {

using Bytes = std::vector<uint8_t>;

// An executable without the note has none; headers pointing outside the file, or at
// nonsense, give "absent" and never a read outside the bytes given (the sanitizer watches).
TEST(ElfNote, HostileHeadersGiveNothing) {
  const std::string text = readFile("/bin/true");
  const Bytes original(text.begin(), text.end());
  std::string error;
  std::optional<elf::FileLayout> layout = elf::readFileLayout(elf::readFromMemory(original), original.size(), &error);
  ASSERT_TRUE(layout) << error;
  EXPECT_FALSE(elf::findNoteDescriptor(elf::readFromMemory(original), original.size()));
  const std::tuple<const char*, size_t, int, uint64_t> patches[] = {
      // name, offset, width, value
      {"section table past the end", 40, 8, uint64_t{1} << 40},
      {"section table offset that wraps", 40, 8, ~uint64_t{0} - 10},
      {"section count past the end", 60, 2, 0xfff0},
      {"section entry size", 58, 2, 40},
      {"name table index out of range", 62, 2, 0xfff0},
      {"32-bit class", 4, 1, 1},
      {"big-endian data", 5, 1, 2},
      {"program headers past the end", 32, 8, uint64_t{1} << 40},
  };
  for (const auto& [name, at, width, value] : patches) {
    Bytes file = original;
    for (int i = 0; i < width; ++i) file[at + i] = static_cast<uint8_t>(value >> (8 * i));  // little-endian
    error.clear();
    EXPECT_FALSE(elf::readFileLayout(elf::readFromMemory(file), file.size(), &error)) << name;
    EXPECT_FALSE(error.empty()) << name;
    EXPECT_FALSE(elf::findNoteDescriptor(elf::readFromMemory(file), file.size())) << name;
  }
  // Every truncation of the file.
  for (size_t length : {size_t{3}, size_t{64}, original.size() - 1}) {
    Bytes file(original.begin(), original.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(elf::findNoteDescriptor(elf::readFromMemory(file), file.size())) << length;
  }
}

}  // namespace
}  // namespace bwk::test
