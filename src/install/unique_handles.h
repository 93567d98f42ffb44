#pragma once
// Owners of the descriptors and streams that extraction opens, so that every way out of it,
// an exception thrown by a progress callback included, closes them.
#include <libdeflate.h>
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

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

struct GzCloser {
  void operator()(gzFile_s* stream) const { gzclose(stream); }
};
using UniqueGz = std::unique_ptr<gzFile_s, GzCloser>;

// A libdeflate decompressor, freed with it.
struct DecompressorFree {
  void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};
using UniqueDecompressor = std::unique_ptr<libdeflate_decompressor, DecompressorFree>;

}  // namespace bwk
