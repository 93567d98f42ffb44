// The load-command walk that finds the embedded configuration in a mapped Mach-O image.
#include <gtest/gtest.h>

#include <limits>

#include "macho_image.h"
#include "platform/macho_note.h"

namespace bwk::test {
namespace {

constexpr uint64_t kBase = 0x100000000;  // the image's preferred address
constexpr uint64_t kLinkeditOff = 0x1000, kLinkeditSize = 0x100;

Bytes text() { return segmentCommand("__TEXT", kBase, 0x1000, 0, 0x1000, {{"__text", kBase + 0x800, 0x10, 0x800, 0}}); }
Bytes linkedit() { return segmentCommand("__LINKEDIT", kBase + kLinkeditOff, 0x1000, kLinkeditOff, kLinkeditSize); }

// The region as the loader would map the file: every segment at vmaddr + slide, where the
// slide is chosen so that the file's bytes are the mapped image.
std::optional<platform::EmbeddedRegion> mapAndFind(const Bytes& file) {
  intptr_t slide = static_cast<intptr_t>(reinterpret_cast<uintptr_t>(file.data()) - kBase);
  return macho::findEmbeddedRegion(file.data(), slide);
}

struct Case {
  const char* name;
  std::vector<Bytes> commands;
  std::optional<uint64_t> offset;  // expected data offset, absent: no region
  uint64_t size = 0;
};

TEST(MachONote, Walk) {
  const uint64_t huge = std::numeric_limits<uint64_t>::max();
  std::vector<Case> cases = {
      {"no load commands", {}, std::nullopt},
      {"region inside __LINKEDIT", {text(), noteCommand(noteOwner(), 0x1010, 0x20), linkedit()}, 0x1010, 0x20},
      {"segment without a note", {text(), linkedit()}, std::nullopt},
      {"region ending at the segment's end",
       {text(), linkedit(), noteCommand(noteOwner(), 0x10e0, 0x20)},
       0x10e0,
       0x20},
      {"region across the segment's end", {text(), linkedit(), noteCommand(noteOwner(), 0x10f0, 0x20)}, std::nullopt},
      {"region starting before the segment", {linkedit(), noteCommand(noteOwner(), 0xff0, 0x20)}, std::nullopt},
      {"another owner", {text(), noteCommand(noteOwner("com.brackwooe"), 0x1010, 0x20), linkedit()}, std::nullopt},
      {"an offset that wraps round", {linkedit(), noteCommand(noteOwner(), huge - 0xf, 0x20)}, std::nullopt},
      {"a size that wraps round", {linkedit(), noteCommand(noteOwner(), 0x1010, huge)}, std::nullopt},
      {"the first of our notes wins",
       {noteCommand(noteOwner("org.other"), 0x1080, 8), noteCommand(noteOwner(), 0x1010, 0x20),
        noteCommand(noteOwner(), 0x1040, 0x20), linkedit()},
       0x1010,
       0x20},
      {"a note command too short for its fields is skipped",
       {noteCommand(noteOwner(), 0x1040, 0x20, 32), noteCommand(noteOwner(), 0x1010, 0x20), linkedit()},
       0x1010,
       0x20},
      {"a command of size 0 ends the walk", {noteCommand(noteOwner(), 0x1010, 0x20, 0), linkedit()}, std::nullopt},
  };
  for (const Case& c : cases) {
    Bytes file = machOFile(c.commands, 0x1100);
    std::optional<macho::NoteLocation> note = macho::findNote(file);
    ASSERT_EQ(note.has_value(), c.offset.has_value()) << c.name;
    if (!note) continue;
    EXPECT_EQ(note->dataOffset, *c.offset) << c.name;
    EXPECT_EQ(note->dataSize, c.size) << c.name;
    std::optional<platform::EmbeddedRegion> region = mapAndFind(file);
    ASSERT_TRUE(region) << c.name;
    EXPECT_EQ(region->address, file.data() + *c.offset) << c.name;
    EXPECT_EQ(region->size, c.size) << c.name;
    EXPECT_EQ(note->address(0x5000), kBase + *c.offset + 0x5000) << c.name;
  }
}

}  // namespace
}  // namespace bwk::test
