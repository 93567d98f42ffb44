#pragma once
// The tar stream read straight from the archive through zlib's gz* functions, one piece at a
// time: little memory, and it reads any archive zlib reads (several gzip members, trailing
// bytes, data that is not compressed at all), up to the point where it is damaged.
#include <memory>

#include "install/tar_stream.h"
#include "install/unique_handles.h"

namespace bwk {

class GzTarStream final : public TarStream {
 public:
  // Reads the archive open at `fd` from its current offset, through a descriptor of its own.
  // Nothing when zlib cannot set up the stream.
  static std::unique_ptr<GzTarStream> open(int fd);

  long read(size_t length, const char** data) override;
  bool skip(uint64_t length) override;
  uint64_t position() const override;
  bool pastEnd() const override;
  size_t pieceSize() const override { return kPieceSize; }
  bool interrupted() const override { return interrupted_; }
  bool close() override;

 private:
  explicit GzTarStream(UniqueGz stream) : stream_(std::move(stream)) {}

  static constexpr size_t kPieceSize = 32768;
  UniqueGz stream_;
  bool interrupted_ = false;
  char buffer_[kPieceSize];
};

}  // namespace bwk
