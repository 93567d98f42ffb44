#pragma once
// The uncompressed tar stream that extraction reads, whichever way it is inflated. Reads,
// forward skips, the position and the end flag behave as zlib's gz* functions do, so that
// every entry, message and percentage comes out the same for either kind of stream.
#include <cstddef>
#include <cstdint>

namespace bwk {

class TarStream {
 public:
  virtual ~TarStream() = default;

  // Up to `length` bytes from the current position, placed at `*data` (valid until the next
  // call): fewer only where the stream ends, 0 at its end, -1 when it is damaged.
  virtual long read(size_t length, const char** data) = 0;
  // Moves `length` bytes forward (lazily: past the end only the position says so). False
  // when the stream cannot move there.
  virtual bool skip(uint64_t length) = 0;
  // The position in the uncompressed stream, skips not yet carried out included.
  virtual uint64_t position() const = 0;
  // True once a read has asked for more than the stream held.
  virtual bool pastEnd() const = 0;
  // The most that one read() hands out; reads of file data ask for this much.
  virtual size_t pieceSize() const = 0;
  // True when the last read failed because a signal interrupted the wait for input.
  virtual bool interrupted() const { return false; }
  // Ends reading. False when the stream turned out to be cut short or damaged.
  virtual bool close() = 0;
};

}  // namespace bwk
