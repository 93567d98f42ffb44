#include "install/gz_tar_stream.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace bwk {

namespace {

// zlib reads the compressed file in pieces of this size (its default is 8 KiB) and inflates
// into an output buffer of twice the size. Large pieces mean fewer reads and fewer inflate
// calls, each of which ends by copying the 32 KiB window: about 8 % faster than the default.
constexpr unsigned kInputBufferSize = 256 * 1024;

}  // namespace

std::unique_ptr<GzTarStream> GzTarStream::open(int fd) {
  UniqueFd copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
  UniqueGz stream(copy ? gzdopen(copy.get(), "r") : nullptr);
  if (!stream) return nullptr;
  copy.release();  // the gzip stream closes it
  gzbuffer(stream.get(), kInputBufferSize);
  return std::unique_ptr<GzTarStream>(new GzTarStream(std::move(stream)));
}

long GzTarStream::read(size_t length, const char** data) {
  *data = buffer_;
  errno = 0;
  int n = gzread(stream_.get(), buffer_, static_cast<unsigned>(std::min(length, kPieceSize)));
  // zlib gives up on a read that a signal interrupted, and keeps the error.
  int code = Z_OK;
  interrupted_ = n < 0 && errno == EINTR && (gzerror(stream_.get(), &code), code == Z_ERRNO);
  return n;
}

// A relative seek that only ever moves forward. A length above the signed offset range
// (digits beyond '7' can make one) would otherwise seek backwards and could replay earlier
// entries for ever; it fails like any other seek.
bool GzTarStream::skip(uint64_t length) {
  if (length > static_cast<uint64_t>(std::numeric_limits<z_off_t>::max())) return false;
  return gzseek(stream_.get(), static_cast<z_off_t>(length), SEEK_CUR) != -1;
}

uint64_t GzTarStream::position() const { return static_cast<uint64_t>(gztell(stream_.get())); }

bool GzTarStream::pastEnd() const { return gzeof(stream_.get()) != 0; }

// A stream that ends early or fails its check is only noticed by zlib when it is closed.
bool GzTarStream::close() { return gzclose(stream_.release()) == Z_OK; }

}  // namespace bwk
