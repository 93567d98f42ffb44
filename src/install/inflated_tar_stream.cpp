#include "install/inflated_tar_stream.h"

#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <system_error>

#include "install/signals_blocked.h"
#include "install/unique_handles.h"

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

// The inflating, shared with the thread that does it: a stream given up early (an exception
// from a progress callback) leaves the thread to finish on its own.
struct InflatedTarStream::Inflation {
  platform::MappedMemory archive;  // dropped once inflated
  size_t fileSize = 0;
  size_t size = 0;
  std::atomic<bool> finished = false;
  // Final once `finished` is set.
  bool inflated = false;
  platform::MappedMemory memory;

  // The CRC-32 and the length in the trailer are checked; a file with bytes after the first
  // member (another member, or anything else) is left to zlib.
  void run() {
    platform::MappedMemory out = platform::MappedMemory::zeroed(size);
    UniqueDecompressor decompressor(libdeflate_alloc_decompressor());
    size_t consumed = 0, produced = 0;
    inflated = archive && out && decompressor &&
               libdeflate_gzip_decompress_ex(decompressor.get(), archive.data(), fileSize, out.data(), size, &consumed,
                                             &produced) == LIBDEFLATE_SUCCESS &&
               consumed == fileSize && produced == size;
    if (inflated) memory = std::move(out);
    archive.reset();
    finished.store(true, std::memory_order_release);
  }
};

InflatedTarStream::InflatedTarStream(std::shared_ptr<Inflation> inflation) : inflation_(std::move(inflation)) {}

InflatedTarStream::~InflatedTarStream() {
  if (thread_.joinable()) thread_.detach();
}

std::unique_ptr<InflatedTarStream> InflatedTarStream::open(int fd, bool beside) {
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= static_cast<off_t>(kGzipOverhead)) return nullptr;
  char trailer[4];
  if (::pread(fd, trailer, sizeof trailer, st.st_size - 4) != sizeof trailer) return nullptr;
  std::optional<size_t> size = wholeBufferSize(static_cast<uint64_t>(st.st_size), littleEndian32(trailer));
  if (!size) return nullptr;
  auto inflation = std::make_shared<Inflation>();
  inflation->fileSize = static_cast<size_t>(st.st_size);
  // Beside the reading, the thread that inflates brings the pages in as it goes; a thread
  // left to finish on its own holds no descriptor.
  inflation->archive = platform::MappedMemory::ofFile(
      fd, inflation->fileSize,
      beside ? platform::MappedMemory::Pages::WhenTouched : platform::MappedMemory::Pages::Now);
  if (!inflation->archive) return nullptr;
  inflation->size = *size;
  std::unique_ptr<InflatedTarStream> stream(new InflatedTarStream(inflation));
  if (beside && (stream->zlib_ = GzTarStream::open(fd))) {
    try {
      SignalsBlocked blocked;
      stream->thread_ = std::thread([inflation] { inflation->run(); });
      return stream;
    } catch (const std::system_error&) {
      stream->zlib_.reset();
    }
  }
  inflation->run();
  if (!inflation->inflated) return nullptr;
  stream->takeInflated(0, false);
  return stream;
}

bool InflatedTarStream::awaitInflation() {
  if (thread_.joinable()) thread_.join();
  return inflation_->finished.load(std::memory_order_acquire) && inflation_->inflated;
}

bool InflatedTarStream::inOnePiece() const {
  return !thread_.joinable() && inflation_->finished.load(std::memory_order_acquire) && inflation_->inflated;
}

void InflatedTarStream::takeInflated(uint64_t position, bool pastEnd) {
  zlib_.reset();
  memory_ = std::move(inflation_->memory);
  size_ = inflation_->size;
  position_ = position;
  pastEnd_ = pastEnd;
}

long InflatedTarStream::read(size_t length, const char** data) {
  if (zlib_ && thread_.joinable() && inflation_->finished.load(std::memory_order_acquire) && awaitInflation())
    takeInflated(zlib_->position(), zlib_->pastEnd());
  if (!zlib_) return readInflated(length, data);
  const uint64_t before = zlib_->position();
  const bool pastEndBefore = zlib_->pastEnd();
  long n = zlib_->read(length, data);
  // zlib refuses some members that libdeflate takes (it also checks the header's own CRC):
  // the inflated bytes go on from where the failed read began.
  if (n < 0 && !zlib_->interrupted() && awaitInflation()) {
    takeInflated(before, pastEndBefore);
    return readInflated(length, data);
  }
  return n;
}

long InflatedTarStream::readInflated(size_t length, const char** data) {
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
  if (zlib_) return zlib_->skip(length);
  constexpr auto kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (length > kMax || position() > kMax - length) return false;
  pendingSkip_ += length;
  return true;
}

// What zlib finds wrong counts only when the archive was not inflated in one piece.
bool InflatedTarStream::close() {
  const bool inflated = awaitInflation();
  const bool streamed = !zlib_ || zlib_->close();
  zlib_.reset();
  memory_.reset();
  return inflated || streamed;
}

}  // namespace bwk
