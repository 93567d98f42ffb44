#pragma once
// The configuration a command-line launcher carries in its own executable: a region of a
// u32 length L (little-endian) and L bytes of a property list. On macOS it is found in the
// mapped Mach-O image (a note load command); on Linux in the executable file (an ELF note).
#include <cstdint>
#include <optional>

namespace bwk::platform {

struct EmbeddedRegion {
  const uint8_t* address = nullptr;
  uint64_t size = 0;  // as the container records it
};

// The running executable's region, valid for the life of the process; absent when it
// carries none.
std::optional<EmbeddedRegion> embeddedConfigurationRegion();

}  // namespace bwk::platform
