// Linux: the archive is mapped with its pages populated, and the buffer is aligned to large
// pages, asked for them, and (unless asked otherwise) populated before use, which also tells
// at once when there is no memory for it.
#include "platform/mapped_memory.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>
#include <vector>

namespace bwk::platform {

namespace {

constexpr size_t kLargePage = size_t{2} << 20;

size_t roundUp(size_t value, size_t unit) { return (value + unit - 1) / unit * unit; }

}  // namespace

MappedMemory MappedMemory::ofFile(int fd, size_t length, Pages pages) {
  void* at = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE | (pages == Pages::Now ? MAP_POPULATE : 0), fd, 0);
  return at == MAP_FAILED ? MappedMemory() : MappedMemory(at, length);
}

MappedMemory MappedMemory::zeroed(size_t length, Pages when) {
  if (length > SIZE_MAX - 2 * kLargePage) return {};
  const size_t size = roundUp(length, kLargePage);
  // One large page more than needed, so that an aligned start lies inside; the rest is
  // given back at once.
  void* raw = ::mmap(nullptr, size + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return {};
  const auto rawStart = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t start = roundUp(rawStart, kLargePage);
  if (start > rawStart) ::munmap(raw, start - rawStart);
  if (start + size < rawStart + size + kLargePage)
    ::munmap(reinterpret_cast<void*>(start + size), rawStart + kLargePage - start);
  MappedMemory memory(reinterpret_cast<void*>(start), size);
  // Without large pages (switched off, or none to be had) small ones do, only slower.
  ::madvise(memory.data(), size, MADV_HUGEPAGE);
  if (when == Pages::WhenTouched) return memory;
#ifdef MADV_POPULATE_WRITE
  // Zeroing the fresh pages is a good part of the cost of a large buffer: it is done in
  // large-page slices on as many threads as there are processors (at most 8).
  const size_t pages = size / kLargePage;
  const size_t threads = std::clamp<size_t>(std::thread::hardware_concurrency(), 1, std::min<size_t>(8, pages));
  std::vector<int> errors(threads, 0);
  auto populate = [&](size_t slice) {
    const size_t first = pages * slice / threads, last = pages * (slice + 1) / threads;
    if (::madvise(memory.data() + first * kLargePage, (last - first) * kLargePage, MADV_POPULATE_WRITE) != 0)
      errors[slice] = errno;
  };
  std::vector<std::thread> helpers;
  try {
    for (size_t slice = 1; slice < threads; ++slice) helpers.emplace_back(populate, slice);
  } catch (const std::system_error&) {
    // Fewer helpers: the slices without one are populated as they are touched.
  }
  populate(0);
  for (std::thread& helper : helpers) helper.join();
  // Kernels before 5.14 do not know it (EINVAL): their pages come as they are touched.
  for (int error : errors)
    if (error != 0 && error != EINVAL) return {};
#endif
  return memory;
}

}  // namespace bwk::platform
