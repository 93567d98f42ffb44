// Pipe capacity on Linux: 64 KiB unless asked for more (up to pipe-max-size, 1 MiB by default).
#include <fcntl.h>

#include "platform/platform.h"

namespace bwk::platform {

void enlargePipe(int fd, size_t bytes) { ::fcntl(fd, F_SETPIPE_SZ, static_cast<int>(bytes)); }

}  // namespace bwk::platform
