#pragma once
// The tar stream inflated in one piece into memory by libdeflate, about twice as fast as
// zlib's streaming inflate. Only taken when the archive is one intact gzip member whose
// trailer announces a plausible size; anything else is left to the streaming reader, which
// then starts from the beginning, so a damaged archive behaves as it always has.
#include <cstdint>
#include <memory>
#include <optional>

#include "install/tar_stream.h"
#include "platform/mapped_memory.h"

namespace bwk {

// Above this the archive is read as a stream, whatever memory there is. The archive itself
// is mapped from the file (page cache, not memory of the process's own), so only the tar
// stream counts, and it is given back as its files are written.
constexpr uint64_t kWholeBufferLimit = uint64_t{1} << 30;

// The size to inflate a gzip file of `fileSize` bytes into, given the size its trailer
// announces (the last four bytes, the length modulo 2^32): nothing when the file is too short
// to be gzip, the size is 0 or above kWholeBufferLimit, or more than deflate can make of the
// file's bytes.
std::optional<size_t> wholeBufferSize(uint64_t fileSize, uint32_t trailerSize);

class InflatedTarStream final : public TarStream {
 public:
  // The archive open at `fd` inflated into memory; nothing when it is not one intact gzip
  // member of a plausible size or the memory cannot be had. The archive's mapping is gone
  // when this returns; the inflated bytes go when the stream does.
  static std::unique_ptr<InflatedTarStream> inflate(int fd);

  long read(size_t length, const char** data) override;
  bool skip(uint64_t length) override;
  uint64_t position() const override { return position_ + pendingSkip_; }
  bool pastEnd() const override { return pastEnd_; }
  size_t pieceSize() const override { return kPieceSize; }
  bool close() override;

 private:
  InflatedTarStream(platform::MappedMemory memory, size_t size) : memory_(std::move(memory)), size_(size) {}

  // File data goes out in pieces this large: few writes, a progress report every
  // millisecond or so, and cheaper to place in the page cache than larger pieces (1 MiB
  // pieces cost about a third more system time here).
  static constexpr size_t kPieceSize = 256 << 10;
  // What has been read lies behind the position for good: it goes back to the system as
  // reading moves on, and the page cache that the files fill takes the same memory again.
  platform::MappedMemory memory_;
  uint64_t released_ = 0;  // bytes before memory_.data()
  size_t size_;
  uint64_t position_ = 0;
  // Skips are carried out by the next read, as zlib does: until then the position may lie
  // beyond the end.
  uint64_t pendingSkip_ = 0;
  bool pastEnd_ = false;
};

}  // namespace bwk
