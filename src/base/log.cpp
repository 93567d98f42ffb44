#include "base/log.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/platform.h"

namespace bwk::log {

int logStatus = 0;

bool debugEnabled() {
  if (logStatus == 0) {
    const char* value = std::getenv("BRACKWOOD_LOG");
    logStatus = (value && std::strcmp(value, "yes") == 0) ? 1 : 2;
  }
  return logStatus == 1;
}

void resetDebugDecision() { logStatus = 0; }

void writeSystemLog(const std::string& message) {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  struct tm local;
  localtime_r(&tv.tv_sec, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  std::string line = format("%s.%03d %s[%d:%llu] ", stamp, static_cast<int>(tv.tv_usec / 1000),
                            platform::processName(), static_cast<int>(getpid()),
                            static_cast<unsigned long long>(platform::threadIdentifier()));
  line += message;
  if (line.empty() || line.back() != '\n') line += '\n';
  // One write, so that lines of two threads do not interleave.
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

}  // namespace bwk::log
