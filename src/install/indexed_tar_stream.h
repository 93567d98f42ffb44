#pragma once
// The tar stream of an archive made of independent gzip members with an index: members are
// inflated by several threads at once into a ring of buffers, and read in order while later
// ones are still being inflated, so files are written as soon as their bytes are there. Memory
// stays at 2 × (threads + 1) members whatever the archive's size. A member that turns out damaged
// (bad data, a wrong length, a CRC-32 mismatch) hands reading over to the streaming reader
// from the archive's start, which then goes on from the same position exactly as it would
// have had it read the archive from the beginning.
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "install/archive_index.h"
#include "install/tar_stream.h"
#include "install/unique_handles.h"
#include "platform/mapped_memory.h"

namespace bwk {

// How many threads inflate: as many as the system has processors, at most 8; the environment
// variable BRACKWOOD_UNPACK_THREADS can ask for fewer.
unsigned inflatingThreads();

class IndexedTarStream final : public TarStream {
 public:
  // The archive open at `fd` when it is a regular file that ends in an index matching it;
  // nothing otherwise, or when the memory cannot be had. With one thread, members are
  // inflated by the reading thread itself when it gets to them.
  static std::unique_ptr<IndexedTarStream> open(int fd, unsigned threads);
  ~IndexedTarStream() override;
  IndexedTarStream(const IndexedTarStream&) = delete;
  IndexedTarStream& operator=(const IndexedTarStream&) = delete;

  long read(size_t length, const char** data) override;
  bool skip(uint64_t length) override;
  uint64_t position() const override;
  bool pastEnd() const override;
  size_t pieceSize() const override { return kPieceSize; }
  bool interrupted() const override { return fallback_ && fallback_->interrupted(); }
  bool close() override;
  // True once a damaged member handed reading over to the streaming reader.
  bool handedOver() const { return fallback_ != nullptr; }

 private:
  struct Slot {
    platform::MappedMemory bytes;
    size_t member = 0;
    enum class State { Free, Inflating, Ready, Damaged } state = State::Free;
  };

  IndexedTarStream(UniqueFd fd, platform::MappedMemory archive, std::vector<IndexedMember> members, unsigned threads);
  void inflateMembers();
  bool inflateInto(size_t member, char* into) const;
  // Makes the member holding `position_` the current one; false when it is damaged.
  bool reachPosition();
  const Slot* waitFor(size_t member);
  void releaseCurrent();
  bool handOver();
  void stopThreads();

  static constexpr size_t kPieceSize = 256 << 10;
  UniqueFd fd_;
  platform::MappedMemory archive_;  // file-backed: it takes no memory of its own
  std::vector<IndexedMember> members_;
  uint64_t size_ = 0;    // of the whole tar stream
  bool inline_ = false;  // one thread: the reader inflates

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Slot> slots_;
  size_t nextToInflate_ = 0;
  size_t released_ = 0;  // members before this one are read and their slots free
  bool stopping_ = false;
  std::vector<std::thread> threads_;

  // The reader's side.
  const Slot* current_ = nullptr;
  size_t currentMember_ = 0;
  uint64_t position_ = 0;
  uint64_t pendingSkip_ = 0;
  bool pastEnd_ = false;
  std::vector<char> straddle_;  // a read that spans members is put together here
  std::unique_ptr<TarStream> fallback_;
};

}  // namespace bwk
