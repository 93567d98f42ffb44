// The exit handler on Linux: glibc's on_exit hands its handlers the status given to exit.
#include <stdlib.h>

#include <atomic>

#include "platform/platform.h"

namespace bwk::platform {

namespace {

std::atomic<void (*)(std::optional<int>)> exitHandler{nullptr};

void callExitHandler(int status, void*) {
  if (auto handler = exitHandler.load()) handler(status);
}

}  // namespace

void setExitHandler(void (*handler)(std::optional<int> status)) {
  if (!exitHandler.exchange(handler)) ::on_exit(callExitHandler, nullptr);
}

}  // namespace bwk::platform
