#include "platform/macho_note.h"

#include <cstring>

namespace bwk::macho {

namespace {

uint32_t u32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, sizeof v);  // the image's byte order is the host's
  return v;
}
uint64_t u64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Calls `visit(command, commandSize)` for each load command that lies wholly inside the
// command area; stops early when `visit` returns true.
template <typename Visit>
void forEachCommand(std::span<const uint8_t> image, Visit visit) {
  if (image.size() < kHeaderSize) return;
  uint32_t count = u32(image.data() + 16);
  uint64_t areaEnd = kHeaderSize + static_cast<uint64_t>(u32(image.data() + 20));
  if (areaEnd > image.size()) areaEnd = image.size();
  uint64_t at = kHeaderSize;
  for (uint32_t i = 0; i < count; ++i) {
    if (at + 8 > areaEnd) return;
    uint32_t size = u32(image.data() + at + 4);
    // A command that cannot hold its own header, or that runs past the area, ends the walk:
    // nothing after it can be trusted to be where the count says.
    if (size < 8 || size > areaEnd - at) return;
    if (visit(image.data() + at, size)) return;
    at += size;
  }
}

}  // namespace

std::optional<NoteLocation> findNote(std::span<const uint8_t> image) {
  std::optional<NoteLocation> found;
  forEachCommand(image, [&](const uint8_t* command, uint32_t size) {
    if (u32(command) != kLoadCommandNote || size < kNoteCommandSize) return false;
    if (std::memcmp(command + 8, NOTE_OWNER, sizeof NOTE_OWNER) != 0) return false;
    found = NoteLocation{u64(command + 24), u64(command + 32), 0, 0};
    return true;
  });
  if (!found) return std::nullopt;

  bool inSegment = false;
  forEachCommand(image, [&](const uint8_t* command, uint32_t size) {
    if (u32(command) != kLoadCommandSegment64 || size < kSegmentCommandSize) return false;
    uint64_t vmaddr = u64(command + 24), fileoff = u64(command + 40), filesize = u64(command + 48);
    // fileoff <= offset and offset + size <= fileoff + filesize, without overflow.
    if (found->dataOffset < fileoff || found->dataSize > filesize ||
        found->dataOffset - fileoff > filesize - found->dataSize)
      return false;
    found->segmentVmaddr = vmaddr;
    found->segmentFileoff = fileoff;
    inSegment = true;
    return true;
  });
  if (!inSegment) return std::nullopt;
  return found;
}

std::optional<platform::EmbeddedRegion> findEmbeddedRegion(const void* header, intptr_t slide) {
  if (!header) return std::nullopt;
  const auto* bytes = static_cast<const uint8_t*>(header);
  size_t length = kHeaderSize + u32(bytes + 20);
  std::optional<NoteLocation> note = findNote(std::span<const uint8_t>(bytes, length));
  if (!note) return std::nullopt;
  return platform::EmbeddedRegion{reinterpret_cast<const uint8_t*>(note->address(slide)), note->dataSize};
}

}  // namespace bwk::macho
