// The exit handler on macOS. The system tells an exit handler nothing of the status, and no
// hook of ours sees it on every way out: the runtime's libraries call the system library's
// exit directly (two-level namespace binds them to it, so a wrapper in this executable is
// never called), and the loader honours interposing only for libraries inserted at launch.
// The handler is therefore given no status. Its user takes the status from the runtime's
// launch entry when that returned (an exception in main ends the start that way), and
// otherwise from what the runtime wrote: the start failures that end the process without a
// return (main class not found, runtime not created) always end it with status 1.
#include <stdlib.h>

#include <atomic>

#include "platform/platform.h"

namespace bwk::platform {

namespace {

std::atomic<void (*)(std::optional<int>)> exitHandler{nullptr};

void callExitHandler() {
  if (auto handler = exitHandler.load()) handler(std::nullopt);
}

}  // namespace

void setExitHandler(void (*handler)(std::optional<int> status)) {
  if (!exitHandler.exchange(handler)) ::atexit(callExitHandler);
}

}  // namespace bwk::platform
