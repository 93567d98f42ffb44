// Pipe capacity on macOS: the system grows a pipe by itself (up to 64 KiB) while it is
// written faster than it is read, and takes no request for more.
#include "platform/platform.h"

namespace bwk::platform {

void enlargePipe(int, size_t) {}

}  // namespace bwk::platform
