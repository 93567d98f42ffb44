// macOS: plain mappings; the system brings the pages in as they are touched.
#include "platform/mapped_memory.h"

namespace bwk::platform {

MappedMemory MappedMemory::ofFile(int fd, size_t length, Pages) {
  void* at = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE, fd, 0);
  return at == MAP_FAILED ? MappedMemory() : MappedMemory(at, length);
}

MappedMemory MappedMemory::zeroed(size_t length, Pages) {
  void* at = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  return at == MAP_FAILED ? MappedMemory() : MappedMemory(at, length);
}

}  // namespace bwk::platform
