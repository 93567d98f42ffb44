#pragma once
// The embedded configuration as a Mach-O image carries it: a note load command owned by
// "com.brackwood" whose data lies inside the file range of a 64-bit segment.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/embedded_config.h"

namespace bwk::macho {

inline constexpr uint32_t kMagic64 = 0xfeedfacf;
inline constexpr uint32_t kLoadCommandNote = 0x31;       // LC_NOTE
inline constexpr uint32_t kLoadCommandSegment64 = 0x19;  // LC_SEGMENT_64
inline constexpr size_t kHeaderSize = 32;                // mach_header_64
inline constexpr size_t kNoteCommandSize = 40;           // note_command
inline constexpr size_t kSegmentCommandSize = 72;        // segment_command_64
inline constexpr size_t kSectionSize = 80;               // section_64
// The 16-byte owner: "com.brackwood" and three zero bytes.
inline constexpr uint8_t NOTE_OWNER[16] = {'c', 'o', 'm', '.', 'b', 'r', 'a', 'c', 'k', 'w', 'o', 'o', 'd', 0, 0, 0};

// Where the note puts its data, and the segment that holds it.
struct NoteLocation {
  uint64_t dataOffset = 0;  // in the file
  uint64_t dataSize = 0;
  uint64_t segmentVmaddr = 0;
  uint64_t segmentFileoff = 0;
  // The data's address once the image is mapped with this slide.
  uintptr_t address(intptr_t slide) const {
    return static_cast<uintptr_t>(segmentVmaddr + (dataOffset - segmentFileoff)) + static_cast<uintptr_t>(slide);
  }
};

// Walks the load commands of `image` (the 32-byte header and the commands after it; bytes
// beyond the commands may follow). Commands are read in order, each advanced by its own
// size; the walk stops at a command that is smaller than 8 bytes or reaches past the
// header's command area or past `image`. Absent when there is no note of our owner, no
// segment whose file range holds all of its data, or no load command at all.
std::optional<NoteLocation> findNote(std::span<const uint8_t> image);

// The region of a mapped image: `header` is the image's header in memory, `slide` the
// loader's slide. The header's own command size bounds the walk.
std::optional<platform::EmbeddedRegion> findEmbeddedRegion(const void* header, intptr_t slide);

}  // namespace bwk::macho
