// The load-command walk that finds the embedded configuration in a mapped Mach-O image.

#include <limits>

#include "macho_image.h"
#include "platform/macho_note.h"

namespace bwk::test {
namespace {

constexpr uint64_t kBase = 0x100000000;  // the image's preferred address
constexpr uint64_t kLinkeditOff = 0x1000, kLinkeditSize = 0x100;

Bytes text() { return segmentCommand("__TEXT", kBase, 0x1000, 0, 0x1000, {{"__text", kBase + 0x800, 0x10, 0x800, 0}}); }
Bytes linkedit() { return segmentCommand("__LINKEDIT", kBase + kLinkeditOff, 0x1000, kLinkeditOff, kLinkeditSize); }

// An LC_NOTE command of `owner`, `commandSize` bytes long, for `size` bytes at `offset`.
Bytes note(uint64_t offset, uint64_t size, uint32_t commandSize = 40, const std::string& owner = "com.brackwood") {
  Bytes c(40, 0);
  putEach(c, 0, uint32_t{0x31}, commandSize);
  std::memcpy(c.data() + 8, owner.data(), owner.size());
  putEach(c, 24, offset, size);
  c.resize(std::max<uint32_t>(commandSize, 8));
  return c;
}

TEST(MachONote, Walk) {
  const uint64_t huge = std::numeric_limits<uint64_t>::max();
  // name, load commands, the data offset (absent: no region) and size
  const std::tuple<const char*, std::vector<Bytes>, std::optional<uint64_t>, uint64_t> cases[] = {
      {"no load commands", {}, std::nullopt, 0},
      {"region inside __LINKEDIT", {text(), note(0x1010, 0x20), linkedit()}, 0x1010, 0x20},
      {"segment without a note", {text(), linkedit()}, std::nullopt, 0},
      {"region ending at the segment's end", {text(), linkedit(), note(0x10e0, 0x20)}, 0x10e0, 0x20},
      {"region across the segment's end", {text(), linkedit(), note(0x10f0, 0x20)}, std::nullopt, 0},
      {"region starting before the segment", {linkedit(), note(0xff0, 0x20)}, std::nullopt, 0},
      {"another owner", {text(), note(0x1010, 0x20, 40, "com.brackwooe"), linkedit()}, std::nullopt, 0},
      {"an offset that wraps round", {linkedit(), note(huge - 0xf, 0x20)}, std::nullopt, 0},
      {"a size that wraps round", {linkedit(), note(0x1010, huge)}, std::nullopt, 0},
      {"first of ours wins",
       {note(0x1080, 8, 40, "org.other"), note(0x1010, 0x20), note(0x1040, 0x20), linkedit()},
       0x1010,
       0x20},
      {"too short: skipped", {note(0x1040, 0x20, 32), note(0x1010, 0x20), linkedit()}, 0x1010, 0x20},
      {"size 0 ends the walk", {note(0x1010, 0x20, 0), linkedit()}, std::nullopt, 0},
  };
  for (const auto& [name, commands, offset, size] : cases) {
    Bytes file = machOFile(commands, 0x1100);
    std::optional<macho::NoteLocation> note = macho::findNote(file);
    // As the loader maps the file: every segment at vmaddr + slide, the file's bytes the image.
    intptr_t slide = static_cast<intptr_t>(reinterpret_cast<uintptr_t>(file.data()) - kBase);
    std::optional<platform::EmbeddedRegion> region = macho::findEmbeddedRegion(file.data(), slide);
    ASSERT_EQ(std::pair(note.has_value(), region.has_value()), std::pair(offset.has_value(), offset.has_value()))
        << name;
    if (!note) continue;
    EXPECT_EQ(std::tuple(note->dataOffset, note->dataSize, region->address, region->size, note->address(0x5000)),
              std::tuple(*offset, size, file.data() + *offset, size, kBase + *offset + 0x5000))
        << name;
  }
}

}  // namespace
}  // namespace bwk::test
