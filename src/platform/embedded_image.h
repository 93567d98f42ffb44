#pragma once
// Where the running executable keeps its embedded configuration. On macOS it is found in the
// mapped image (a note load command, walked by the entry layer); on Linux in the executable
// file (an ELF note section, read here).
#include <cstdint>
#include <optional>

namespace bwk::platform {

// The main executable's Mach-O header as the loader mapped it, and the loader's slide.
struct MappedImage {
  const void* header = nullptr;
  intptr_t slide = 0;
};
// Absent where executables are no Mach-O images.
std::optional<MappedImage> mainExecutableImage();

// The embedded region read from the executable file (u32 L, then L bytes), kept for the
// process's lifetime. Absent when the file carries none, or where the region is found in
// the mapped image instead. Read once per process.
struct FileRegion {
  const uint8_t* address = nullptr;
  uint64_t size = 0;
};
std::optional<FileRegion> executableFileRegion();

}  // namespace bwk::platform
