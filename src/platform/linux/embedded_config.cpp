// The embedded configuration of the running executable on Linux: an ELF note section read
// from /proc/self/exe.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "platform/elf_note.h"
#include "platform/embedded_config.h"

namespace bwk::platform {

namespace {

std::optional<std::vector<uint8_t>> readRegionFromExecutable() {
  int fd = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  struct stat st;
  std::optional<std::vector<uint8_t>> region;
  if (fstat(fd, &st) == 0 && st.st_size > 0) {
    auto readAt = [fd](uint64_t offset, void* out, size_t size) {
      auto* bytes = static_cast<uint8_t*>(out);
      while (size > 0) {
        ssize_t n = pread(fd, bytes, size, static_cast<off_t>(offset));
        if (n <= 0) return false;
        bytes += n;
        offset += static_cast<uint64_t>(n);
        size -= static_cast<size_t>(n);
      }
      return true;
    };
    region = elf::findNoteDescriptor(readAt, static_cast<uint64_t>(st.st_size));
  }
  close(fd);
  return region;
}

}  // namespace

std::optional<EmbeddedRegion> embeddedConfigurationRegion() {
  // Read once; the bytes stay for the process, since the region is handed on by address.
  static const std::optional<std::vector<uint8_t>> region = readRegionFromExecutable();
  if (!region) return std::nullopt;
  return EmbeddedRegion{region->data(), region->size()};
}

}  // namespace bwk::platform
