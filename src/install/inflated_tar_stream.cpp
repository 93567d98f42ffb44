#include "install/inflated_tar_stream.h"
#include "install/unique_handles.h"

#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace bwk {

namespace {

// A gzip member has a 10-byte header and an 8-byte trailer (CRC-32, then the length).
constexpr uint64_t kGzipOverhead = 18;
// Deflate never makes more than 258 bytes of 2 bits: 1032 bytes of output per byte.
constexpr uint64_t kDeflateMaxRatio = 1032;

uint32_t littleEndian32(const char* bytes) {
  const auto* b = reinterpret_cast<const unsigned char*>(bytes);
  return uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
}

}  // namespace

std::optional<size_t> wholeBufferSize(uint64_t fileSize, uint32_t trailerSize) {
  if (fileSize <= kGzipOverhead) return std::nullopt;
  if (trailerSize == 0 || trailerSize > kWholeBufferLimit) return std::nullopt;
  if (trailerSize / kDeflateMaxRatio > fileSize - kGzipOverhead) return std::nullopt;
  return static_cast<size_t>(trailerSize);
}

std::unique_ptr<InflatedTarStream> InflatedTarStream::inflate(int fd) {
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= static_cast<off_t>(kGzipOverhead)) return nullptr;
  const auto fileSize = static_cast<size_t>(st.st_size);
  char trailer[4];
  if (::pread(fd, trailer, sizeof trailer, st.st_size - 4) != sizeof trailer) return nullptr;
  std::optional<size_t> size = wholeBufferSize(fileSize, littleEndian32(trailer));
  if (!size) return nullptr;
  platform::MappedMemory archive = platform::MappedMemory::ofFile(fd, fileSize);
  platform::MappedMemory memory = platform::MappedMemory::zeroed(*size);
  UniqueDecompressor decompressor(libdeflate_alloc_decompressor());
  if (!archive || !memory || !decompressor) return nullptr;
  size_t consumed = 0, produced = 0;
  // The CRC-32 and the length in the trailer are checked; a file with bytes after the first
  // member (another member, or anything else) is left to zlib.
  libdeflate_result result = libdeflate_gzip_decompress_ex(decompressor.get(), archive.data(), fileSize, memory.data(),
                                                           *size, &consumed, &produced);
  if (result != LIBDEFLATE_SUCCESS || consumed != fileSize || produced != *size) return nullptr;
  return std::unique_ptr<InflatedTarStream>(new InflatedTarStream(std::move(memory), *size));
}

long InflatedTarStream::read(size_t length, const char** data) {
  position_ = std::min<uint64_t>(position_ + pendingSkip_, size_);
  pendingSkip_ = 0;
  // The bytes handed out by the last read are done with.
  const size_t before = memory_.size();
  memory_.releaseFront(static_cast<size_t>(position_ - released_));
  released_ += before - memory_.size();
  size_t wanted = std::min(length, kPieceSize);
  size_t count = std::min(wanted, static_cast<size_t>(size_ - position_));
  if (count < wanted) pastEnd_ = true;
  *data = memory_.data() + (position_ - released_);
  position_ += count;
  return static_cast<long>(count);
}

// The position stays within what zlib's offsets can express, as with a gz* stream.
bool InflatedTarStream::skip(uint64_t length) {
  constexpr auto kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (length > kMax || position() > kMax - length) return false;
  pendingSkip_ += length;
  return true;
}

bool InflatedTarStream::close() {
  memory_.reset();
  return true;
}

}  // namespace bwk
