#include "install/indexed_tar_stream.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <system_error>

#include "install/gz_tar_stream.h"
#include "install/signals_blocked.h"

namespace bwk {

namespace {

constexpr unsigned kMostThreads = 8;

using Decompressor = UniqueDecompressor;

}  // namespace

unsigned inflatingThreads() {
  unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, kMostThreads);
  if (const char* asked = std::getenv("BRACKWOOD_UNPACK_THREADS")) {
    char* end = nullptr;
    long value = std::strtol(asked, &end, 10);
    if (end != asked && *end == '\0' && value >= 1)
      threads = std::min(threads, static_cast<unsigned>(std::min(value, 64L)));
  }
  return threads;
}

IndexedTarStream::IndexedTarStream(UniqueFd fd, platform::MappedMemory archive, std::vector<IndexedMember> members,
                                   unsigned threads)
    : fd_(std::move(fd)), archive_(std::move(archive)), members_(std::move(members)), inline_(threads <= 1) {
  size_ = members_.back().position + members_.back().size;
}

std::unique_ptr<IndexedTarStream> IndexedTarStream::open(int fd, unsigned threads) {
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0) return nullptr;
  const auto fileSize = static_cast<size_t>(st.st_size);
  UniqueFd copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
  // Each thread brings in the pages of the members it inflates.
  platform::MappedMemory archive =
      copy ? platform::MappedMemory::ofFile(fd, fileSize, platform::MappedMemory::Pages::WhenTouched)
           : platform::MappedMemory();
  if (!archive) return nullptr;
  std::optional<std::vector<IndexedMember>> members = readArchiveIndex(archive.data(), fileSize);
  if (!members) return nullptr;
  uint32_t largest = 0;
  for (const IndexedMember& m : *members) largest = std::max(largest, m.size);
  // Room for each thread to run two members ahead of the reader: a stretch of small files,
  // slow to write, then does not leave the threads waiting for free slots.
  const size_t slotCount = threads <= 1 ? 1 : std::min<size_t>(2 * threads + 2, members->size());
  std::unique_ptr<IndexedTarStream> stream(
      new IndexedTarStream(std::move(copy), std::move(archive), std::move(*members), threads));
  stream->slots_.resize(slotCount);
  // In large pages, each faulted in whole by the thread that first inflates into it: page by
  // page, the ring's first use would cost more than a member's inflating.
  for (Slot& slot : stream->slots_) {
    slot.bytes = platform::MappedMemory::zeroed(largest, platform::MappedMemory::Pages::WhenTouched);
    if (!slot.bytes) return nullptr;
  }
  if (stream->inline_) return stream;
  try {
    SignalsBlocked blocked;
    for (unsigned i = 0; i < std::min<size_t>(threads, stream->members_.size()); ++i)
      stream->threads_.emplace_back([s = stream.get()] { s->inflateMembers(); });
  } catch (const std::system_error&) {
    return nullptr;  // the destructor stops those that started
  }
  return stream;
}

IndexedTarStream::~IndexedTarStream() { stopThreads(); }

void IndexedTarStream::stopThreads() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& t : threads_) t.join();
  threads_.clear();
}

// The CRC-32 and the length in the member's trailer are checked, and the member must take
// exactly its bytes and give exactly the length the index says.
bool IndexedTarStream::inflateInto(size_t member, char* into) const {
  thread_local Decompressor decompressor(libdeflate_alloc_decompressor());
  if (!decompressor) return false;
  const IndexedMember& m = members_[member];
  size_t consumed = 0, produced = 0;
  libdeflate_result result = libdeflate_gzip_decompress_ex(decompressor.get(), archive_.data() + m.offset, m.length,
                                                           into, m.size, &consumed, &produced);
  return result == LIBDEFLATE_SUCCESS && consumed == m.length && produced == m.size;
}

// Each thread takes the next member as soon as the ring has room for it: the slot it goes to
// was last used by a member that the reader is done with.
void IndexedTarStream::inflateMembers() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] {
      return stopping_ || nextToInflate_ >= members_.size() || nextToInflate_ < released_ + slots_.size();
    });
    if (stopping_ || nextToInflate_ >= members_.size()) return;
    const size_t member = nextToInflate_++;
    Slot& slot = slots_[member % slots_.size()];
    slot.member = member;
    slot.state = Slot::State::Inflating;
    lock.unlock();
    bool intact = inflateInto(member, slot.bytes.data());
    lock.lock();
    slot.state = intact ? Slot::State::Ready : Slot::State::Damaged;
    changed_.notify_all();
  }
}

const IndexedTarStream::Slot* IndexedTarStream::waitFor(size_t member) {
  Slot& slot = slots_[member % slots_.size()];
  if (inline_) {
    slot.member = member;
    slot.state = inflateInto(member, slot.bytes.data()) ? Slot::State::Ready : Slot::State::Damaged;
    return &slot;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [&] {
    return slot.member == member && (slot.state == Slot::State::Ready || slot.state == Slot::State::Damaged);
  });
  return &slot;
}

void IndexedTarStream::releaseCurrent() {
  current_ = nullptr;
  ++currentMember_;
  if (inline_) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    released_ = currentMember_;
  }
  changed_.notify_all();
}

// Skips are carried out here, as zlib does at its next read: every member passed over is
// inflated and checked all the same, so damage in skipped data is noticed as zlib notices it.
bool IndexedTarStream::reachPosition() {
  position_ = std::min(position_ + pendingSkip_, size_);
  pendingSkip_ = 0;
  while (currentMember_ < members_.size()) {
    if (!current_) current_ = waitFor(currentMember_);
    if (current_->state != Slot::State::Ready) return false;
    const IndexedMember& m = members_[currentMember_];
    if (position_ < m.position + m.size) return true;
    releaseCurrent();
  }
  return true;
}

// The streaming reader starts from the archive's beginning and skips to where this stream
// stands: what it reads from there on is what it would have read all along.
bool IndexedTarStream::handOver() {
  stopThreads();
  fallback_ = GzTarStream::open(fd_.get());
  return fallback_ && fallback_->skip(position_);
}

long IndexedTarStream::read(size_t length, const char** data) {
  if (fallback_) return fallback_->read(length, data);
  const size_t wanted = std::min(length, kPieceSize);
  if (!reachPosition()) return handOver() ? fallback_->read(length, data) : -1;
  const auto count = static_cast<size_t>(std::min<uint64_t>(wanted, size_ - position_));
  if (count < wanted) pastEnd_ = true;
  if (count == 0) {
    *data = nullptr;
    return 0;
  }
  const uint64_t inMember = position_ - members_[currentMember_].position;
  if (inMember + count <= members_[currentMember_].size) {
    *data = current_->bytes.data() + inMember;
    position_ += count;
    return static_cast<long>(count);
  }
  // The piece spans members: it is put together from each.
  const uint64_t start = position_;
  straddle_.resize(count);
  for (size_t got = 0; got < count;) {
    if (!reachPosition()) {
      position_ = start;
      pastEnd_ = false;
      return handOver() ? fallback_->read(length, data) : -1;
    }
    const IndexedMember& m = members_[currentMember_];
    const uint64_t offset = position_ - m.position;
    const auto part = static_cast<size_t>(std::min<uint64_t>(count - got, m.size - offset));
    std::memcpy(straddle_.data() + got, current_->bytes.data() + offset, part);
    got += part;
    position_ += part;
  }
  *data = straddle_.data();
  return static_cast<long>(count);
}

// The position stays within what zlib's offsets can express, as with a gz* stream.
bool IndexedTarStream::skip(uint64_t length) {
  if (fallback_) return fallback_->skip(length);
  constexpr auto kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (length > kMax || position() > kMax - length) return false;
  pendingSkip_ += length;
  return true;
}

uint64_t IndexedTarStream::position() const { return fallback_ ? fallback_->position() : position_ + pendingSkip_; }

bool IndexedTarStream::pastEnd() const { return fallback_ ? fallback_->pastEnd() : pastEnd_; }

bool IndexedTarStream::close() {
  stopThreads();
  return fallback_ ? fallback_->close() : true;
}

}  // namespace bwk
