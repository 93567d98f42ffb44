#include "base/log.h"

#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/platform.h"

namespace bwk::log {

namespace {
enum : int { kUndecided, kOn, kOff };
// Process-wide: every thread asks, the first to ask decides.
std::atomic<int> logStatus{kUndecided};
}  // namespace

bool debugEnabled() {
  int status = logStatus.load(std::memory_order_relaxed);
  if (status == kUndecided) {
    const char* value = std::getenv("BRACKWOOD_LOG");
    int decided = (value && std::strcmp(value, "yes") == 0) ? kOn : kOff;
    // Two threads deciding at once read the same environment; the first store counts.
    if (logStatus.compare_exchange_strong(status, decided)) status = decided;
  }
  return status == kOn;
}

void resetDebugDecision() { logStatus.store(kUndecided); }

void writeSystemLog(const std::string& message) {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  struct tm local;
  localtime_r(&tv.tv_sec, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  std::string line = format("%s.%03d %s[%d:%llu] ", stamp, static_cast<int>(tv.tv_usec / 1000), platform::processName(),
                            static_cast<int>(getpid()), static_cast<unsigned long long>(platform::threadIdentifier()));
  line += message;
  if (line.empty() || line.back() != '\n') line += '\n';
  // One write, so that lines of two threads do not interleave.
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

}  // namespace bwk::log
