#include "install/start_failure_watch.h"

#include <unistd.h>

#include "base/log.h"
#include "install/error_pass_through.h"
#include "launcher/jli.h"
#include "launcher/start_failure.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// Enough for a failure line and a deep stack trace with its causes.
constexpr size_t kKeptErrorBytes = 16 * 1024;

struct Watch {
  pid_t process;
  std::optional<std::string> applicationName;
  std::optional<std::string> executablePath;
};
// Set once, before the runtime starts; read by the exit handler.
const Watch* watch = nullptr;

void reportFailedStart(std::optional<int> status) {
  // A forked child that ends through exit has neither the thread nor anything to report.
  if (!watch || watch->process != ::getpid()) return;
  errorPassThrough::Tail tail = errorPassThrough::finish();
  // Where the system does not tell the status, JLI_Launch's result is the status when it
  // returned: the process then ends with it.
  if (!status) status = javaLaunchResult();
  std::optional<std::string> alert =
      startFailureAlert(ProcessEnd{tail.text, tail.cut, status}, watch->applicationName, watch->executablePath);
  BWK_DLOG("%s [Line %d] process ends with status %@: %@", status ? std::to_string(*status) : std::string("unknown"),
           std::string(alert ? "the start failed, alert shown" : "no failed start"));
  if (alert && !platform::displayNotice(watch->applicationName, *alert)) BWK_DLOG("%s [Line %d] notice not started");
}

}  // namespace

void watchJavaStart(const LaunchContext& context) {
  if (watch || !errorPassThrough::start(kKeptErrorBytes)) return;
  watch = new Watch{::getpid(), context.configuration.string("CFBundleName"), platform::executablePath()};
  platform::setExitHandler(reportFailedStart);
}

}  // namespace bwk
