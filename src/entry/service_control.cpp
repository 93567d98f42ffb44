// Service control: the first argument of a service launcher is an action; the "legacy" mode
// prints the lines of a classic service script and detaches before a "start".
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "base/log.h"
#include "base/path.h"
#include "entry/entry.h"
#include "launcher/launcher.h"

namespace bwk {

namespace {

int launchService(const LaunchContext& context) { return Launcher(context).load().launch(); }

int usage(bool legacy, const std::string& program) {
  std::printf(legacy ? "Usage: %s {start|stop|run|run-redirect|status}\n" : "Usage: %s {start|stop|run|run-redirect}\n",
              program.c_str());
  std::fflush(stdout);
  return 1;
}

// Reports the failed step as a service script does and gives the status of a refused start.
int daemonFailed() {
  std::perror("daemon");
  return 1;
}

// Leaves the terminal: the parent ends at once with status 0, the child continues in a
// session of its own, in "/", with its standard streams on /dev/null.
// Returns 0 in the detached child, or 1 after a failure.
int detach() {
  pid_t pid = fork();
  if (pid < 0) return daemonFailed();
  if (pid > 0) _exit(0);  // no exit handlers, no second flush of inherited buffers

  // A parent that led the session hangs up its terminal's processes when it ends; until
  // setsid has moved this child out, that would include it.
  struct sigaction ignore {
  }, previous{};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  ignore.sa_flags = 0;
  sigaction(SIGHUP, &ignore, &previous);
  if (setsid() < 0) {
    int error = errno;
    sigaction(SIGHUP, &previous, nullptr);
    errno = error;
    return daemonFailed();
  }
  sigaction(SIGHUP, &previous, nullptr);

  if (chdir("/") != 0) return daemonFailed();
  int devNull = open("/dev/null", O_RDWR);
  if (devNull < 0) return daemonFailed();
  // dup2 replaces what a descriptor held; /dev/null may itself be 0, 1 or 2 when the service was started without them.
  for (int fd = 0; fd <= 2; ++fd) {
    if (dup2(devNull, fd) < 0) {
      int error = errno;
      close(devNull);
      errno = error;
      return daemonFailed();
    }
  }
  if (devNull > 2) close(devNull);
  return 0;
}

}  // namespace

int serviceControl(const LaunchContext& context) {
  bool legacy = context.serviceMode && *context.serviceMode == "legacy";
  const std::vector<std::string>& arguments = context.arguments;
  std::string program = arguments.empty() ? std::string() : path::lastComponent(arguments[0]);
  if (arguments.size() < 2) return usage(legacy, program);
  const std::string& action = arguments[1];
  BWK_DLOG("%s [Line %d] service action: %@ %d", action, legacy ? 1 : 0);

  if (legacy) {
    if (action == "start") {
      std::printf("Starting %s\n", program.c_str());
      std::fflush(stdout);
      if (detach() != 0) return 1;
      return launchService(context);
    }
    if (action == "stop") {
      std::printf("Shutting down %s\n", program.c_str());
      std::fflush(stdout);
      return launchService(context);
    }
    if (action == "start-launchd" || action == "status" || action == "run" || action == "run-redirect")
      return launchService(context);
    return usage(true, program);
  }
  if (action == "start-launchd" || action == "start" || action == "stop" || action == "run" || action == "run-redirect")
    return launchService(context);
  return usage(false, program);
}

}  // namespace bwk
