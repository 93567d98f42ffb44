#pragma once
// Owners of the descriptors and streams that extraction opens, so that every way out of it,
// an exception thrown by a progress callback included, closes them.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <memory>
#include <utility>

namespace bwk {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = other.release();
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

// A memory mapping, unmapped when its owner goes: the memory goes back to the system at once.
class UniqueMapping {
 public:
  UniqueMapping() = default;
  // Maps `length` bytes (above 0) as mmap() does; empty when mmap() fails.
  UniqueMapping(size_t length, int protection, int flags, int fd) {
    void* at = ::mmap(nullptr, length, protection, flags, fd, 0);
    if (at != MAP_FAILED) {
      data_ = static_cast<char*>(at);
      length_ = length;
    }
  }
  ~UniqueMapping() { reset(); }
  UniqueMapping(UniqueMapping&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), length_(std::exchange(other.length_, 0)) {}
  UniqueMapping& operator=(UniqueMapping&& other) noexcept {
    if (this != &other) {
      reset();
      data_ = std::exchange(other.data_, nullptr);
      length_ = std::exchange(other.length_, 0);
    }
    return *this;
  }
  UniqueMapping(const UniqueMapping&) = delete;
  UniqueMapping& operator=(const UniqueMapping&) = delete;

  char* data() const { return data_; }
  size_t size() const { return length_; }
  explicit operator bool() const { return data_ != nullptr; }
  void reset() {
    if (data_) ::munmap(data_, length_);
    data_ = nullptr;
    length_ = 0;
  }

 private:
  char* data_ = nullptr;
  size_t length_ = 0;
};

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

struct GzCloser {
  void operator()(gzFile_s* stream) const { gzclose(stream); }
};
using UniqueGz = std::unique_ptr<gzFile_s, GzCloser>;

}  // namespace bwk
