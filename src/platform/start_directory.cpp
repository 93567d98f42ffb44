// The directory a process was started in, on every system: read during static
// initialisation, before main and so before the launcher changes directory.
#include <unistd.h>

#include <climits>

#include "platform/platform.h"

namespace bwk::platform {

namespace {
std::optional<std::string> currentDirectory() {
  char buffer[PATH_MAX];
  if (!::getcwd(buffer, sizeof buffer)) return std::nullopt;
  return std::string(buffer);
}
const std::optional<std::string> processStartDirectory = currentDirectory();
}  // namespace

std::optional<std::string> startDirectory() { return processStartDirectory; }

}  // namespace bwk::platform
