// Any bytes as the container of the embedded configuration: an ELF file, an ELF note section
// and a Mach-O image. Every location found must lie inside the bytes it was found in.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/plist_reader.h"
#include "fuzz_checks.h"
#include "platform/elf_note.h"
#include "platform/macho_note.h"
#include "scratch_dir.h"

namespace {

using bwk::fuzz::require;

// What the launcher does with a descriptor: a u32 length, then at most that many bytes of a
// property list, never more than the descriptor holds.
void readRegion(const std::vector<uint8_t>& region) {
  if (region.size() < 5) return;
  uint32_t length = 0;
  std::memcpy(&length, region.data(), sizeof length);
  std::string_view plist(reinterpret_cast<const char*>(region.data()) + 4,
                         std::min<uint64_t>(length, region.size() - 4));
  std::string error;
  std::optional<bwk::PlistValue> value = bwk::readPropertyList(plist, &error);
  bwk::fuzz::checkResult(value, error);
}

void fuzzElf(std::span<const uint8_t> bytes) {
  bwk::elf::ReadAt read = bwk::elf::readFromMemory(bytes);
  std::string error;
  if (std::optional<bwk::elf::FileLayout> layout = bwk::elf::readFileLayout(read, bytes.size(), &error)) {
    for (const bwk::elf::SectionHeader& section : layout->sections) (void)layout->sectionName(section);
  } else {
    require(!error.empty(), "ELF layout refused without a reason");
  }
  if (std::optional<std::vector<uint8_t>> descriptor = bwk::elf::findNoteDescriptor(read, bytes.size())) {
    require(descriptor->size() <= bytes.size(), "descriptor larger than the file");
    readRegion(*descriptor);
  }
  if (std::optional<std::vector<uint8_t>> descriptor = bwk::elf::findDescriptor(bytes)) {
    require(descriptor->size() <= bytes.size(), "descriptor larger than the section");
    // The writer's encoding of what was found is found again.
    std::vector<uint8_t> again = bwk::elf::encodeNote(*descriptor);
    require(bwk::elf::findDescriptor(again) == descriptor, "encoded note not found again");
  }
}

void fuzzMachO(std::span<const uint8_t> bytes) {
  std::optional<bwk::macho::NoteLocation> note = bwk::macho::findNote(bytes);
  if (note) {
    require(note->dataOffset >= note->segmentFileoff, "note data before its segment");
  }
  // The mapped-image entry trusts the header's command size: only hand it images that hold
  // all of their commands, as a loaded one does.
  if (bytes.size() >= bwk::macho::kHeaderSize) {
    uint32_t commandSize = 0;
    std::memcpy(&commandSize, bytes.data() + 20, sizeof commandSize);
    if (bwk::macho::kHeaderSize + uint64_t{commandSize} <= bytes.size()) {
      std::optional<bwk::platform::EmbeddedRegion> region = bwk::macho::findEmbeddedRegion(bytes.data(), 0);
      require(region.has_value() == note.has_value(), "mapped and file walks disagree");
      if (region) require(region->size == note->dataSize, "mapped and file walks disagree on the size");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const uint8_t> bytes(data, size);
  fuzzElf(bytes);
  fuzzMachO(bytes);
  return 0;
}
