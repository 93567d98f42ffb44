// Standard input, output and error that the caller left closed are opened on /dev/null.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/platform.h"

namespace bwk::platform {

void reserveStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lower ones are open by now, so open() hands out exactly this one.
    if (::fcntl(fd, F_GETFD) < 0 && errno == EBADF) ::open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
  }
}

}  // namespace bwk::platform
