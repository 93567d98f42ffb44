#pragma once
// Standard error passed through this process: descriptor 2 becomes a pipe that a thread
// drains at once into the original standard error, unchanged and in order, keeping only the
// last bytes for a look at the end. Children still inherit descriptor 2 as before.
#include <cstddef>
#include <string>

namespace bwk::errorPassThrough {

// Starts passing standard error through, keeping the last `keptBytes`. False, with nothing
// changed, when the process has no standard error or no pipe or thread can be made.
bool start(size_t keptBytes);

struct Tail {
  std::string text;
  // Earlier output was dropped: the first line is cut.
  bool cut = false;
};
// Gives descriptor 2 back to the original standard error, waits until the thread has passed
// on everything written before (stdio's buffer flushed first; at most two seconds when the
// original cannot take it), and returns what was kept. Empty when nothing was started or it
// was already called.
Tail finish();

}  // namespace bwk::errorPassThrough
