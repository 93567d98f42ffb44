#pragma once
// Large mappings for inflating an archive in one piece: the archive's bytes, and a zeroed
// buffer for the inflated stream. Where the system allows, both are faulted in at once and
// the buffer lies in large pages: touching 75 MB page by page costs a good part of what a
// fast inflate saves. Unmapped, and so given back to the system, when the owner goes.
#include <sys/mman.h>

#include <cstddef>
#include <utility>

namespace bwk::platform {

class MappedMemory {
 public:
  // Whether a file's pages are mapped at once, or each as it is first touched.
  enum class Pages { Now, WhenTouched };
  // The first `length` bytes (above 0) of the file open at `fd`, read-only. Empty when
  // they cannot be mapped.
  static MappedMemory ofFile(int fd, size_t length, Pages pages = Pages::Now);
  // At least `length` (above 0) zero bytes to write into. Brought in `Pages::Now`, it is
  // empty when the memory cannot be had.
  static MappedMemory zeroed(size_t length, Pages pages = Pages::Now);

  MappedMemory() = default;
  ~MappedMemory() { reset(); }
  MappedMemory(MappedMemory&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  MappedMemory& operator=(MappedMemory&& other) noexcept {
    if (this != &other) {
      reset();
      data_ = std::exchange(other.data_, nullptr);
      size_ = std::exchange(other.size_, 0);
    }
    return *this;
  }
  MappedMemory(const MappedMemory&) = delete;
  MappedMemory& operator=(const MappedMemory&) = delete;

  char* data() const { return data_; }
  size_t size() const { return size_; }
  explicit operator bool() const { return data_ != nullptr; }
  // Gives the first `length` bytes back to the system, in whole large pages (2 MiB): the
  // mapping then starts that much later.
  void releaseFront(size_t length) {
    constexpr size_t kUnit = size_t{2} << 20;
    size_t whole = length < size_ ? length / kUnit * kUnit : 0;
    if (whole == 0) return;
    ::munmap(data_, whole);
    data_ += whole;
    size_ -= whole;
  }
  void reset() {
    if (data_) ::munmap(data_, size_);
    data_ = nullptr;
    size_ = 0;
  }

 private:
  MappedMemory(void* data, size_t size) : data_(static_cast<char*>(data)), size_(size) {}

  char* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace bwk::platform
