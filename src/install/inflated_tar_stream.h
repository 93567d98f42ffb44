#pragma once
// The tar stream inflated in one piece into memory by libdeflate, about three times as fast
// as zlib's streaming inflate. Only taken when the archive is one intact gzip member whose
// trailer announces a plausible size; anything else is left to the streaming reader, which
// then starts from the beginning, so a damaged archive behaves as it always has.
//
// With a second processor the inflating runs on a thread of its own, and until it is done
// the first pieces come through zlib: their files are written while the rest is inflated.
// For an intact member both give the same bytes, so reading goes on from the inflated copy
// at whatever position it has reached; should the member turn out not to be one libdeflate
// takes, zlib simply reads on, and the result is what streaming gives.
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>

#include "install/gz_tar_stream.h"
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
  // The archive open at `fd`, when its size is plausible for one member. Inflated `beside`
  // the reading (on a thread of its own, zlib reading meanwhile), or else at once, in which
  // case nothing is returned when it is not one intact member or the memory cannot be had.
  static std::unique_ptr<InflatedTarStream> open(int fd, bool beside);
  ~InflatedTarStream() override;
  InflatedTarStream(const InflatedTarStream&) = delete;
  InflatedTarStream& operator=(const InflatedTarStream&) = delete;

  long read(size_t length, const char** data) override;
  bool skip(uint64_t length) override;
  uint64_t position() const override { return zlib_ ? zlib_->position() : position_ + pendingSkip_; }
  bool pastEnd() const override { return zlib_ ? zlib_->pastEnd() : pastEnd_; }
  size_t pieceSize() const override { return zlib_ ? zlib_->pieceSize() : kPieceSize; }
  bool interrupted() const override { return zlib_ && zlib_->interrupted(); }
  bool close() override;
  // Whether the archive was inflated in one piece: once close() has returned, final.
  bool inOnePiece() const;

 private:
  struct Inflation;

  explicit InflatedTarStream(std::shared_ptr<Inflation> inflation);
  // Reading goes on from the inflated bytes at `position`, zlib is done with.
  void takeInflated(uint64_t position, bool pastEnd);
  // Waits for the inflating thread; true when the archive was inflated.
  bool awaitInflation();
  long readInflated(size_t length, const char** data);

  // File data goes out in pieces this large: few writes, a progress report every
  // millisecond or so, and cheaper to place in the page cache than larger pieces (1 MiB
  // pieces cost about a third more system time here).
  static constexpr size_t kPieceSize = 256 << 10;
  std::shared_ptr<Inflation> inflation_;
  std::thread thread_;
  std::unique_ptr<GzTarStream> zlib_;  // while the inflating goes on beside
  // What has been read lies behind the position for good: it goes back to the system as
  // reading moves on, and the page cache that the files fill takes the same memory again.
  platform::MappedMemory memory_;
  uint64_t released_ = 0;  // bytes before memory_.data()
  size_t size_ = 0;
  uint64_t position_ = 0;
  // Skips are carried out by the next read, as zlib does: until then the position may lie
  // beyond the end.
  uint64_t pendingSkip_ = 0;
  bool pastEnd_ = false;
};

}  // namespace bwk
