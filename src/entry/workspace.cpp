// Workspace relaunch: reopen the application bundle as a process of its own and live as long
// as it does, passing termination signals on.
#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "base/bundle.h"
#include "base/log.h"
#include "entry/entry.h"
#include "platform/platform.h"
#include "platform/workspace.h"

namespace bwk {

namespace {
// The opened application's process; 0 until known. Process-wide because the signal handler
// that forwards termination signals reads it.
std::atomic<int32_t> gChildPid{0};
static_assert(std::atomic<int32_t>::is_always_lock_free, "the signal handler reads it");
}  // namespace

void forward_sigterm(int sig) {
  int32_t pid = gChildPid.load(std::memory_order_relaxed);
  if (pid < 1) return;  // not known yet: swallowed
  kill(pid, sig);
}

int workspace_open(bool hidden, const std::vector<std::string>& processArguments) {
  std::optional<std::vector<std::string>> arguments;
  if (processArguments.size() >= 2) arguments.emplace(processArguments.begin() + 2, processArguments.end());
  BWK_DLOG("%s [Line %d] workspace open with args %@", arguments);

  for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
    struct sigaction action {};
    action.sa_handler = forward_sigterm;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(sig, &action, nullptr);
  }

  // Only a non-empty list becomes the configuration's arguments; without any, the key is left out.
  if (arguments && arguments->empty()) arguments.reset();
  unsigned long options = platform::kLaunchWithoutAddingToRecents;
  if (hidden) options |= platform::kLaunchWithoutActivation | platform::kLaunchAndHide;
  const Bundle bundle(platform::mainBundlePath());
  platform::OpenResult opened = platform::openApplication(
      bundle.path(), bundle.infoDictionary().string("CFBundleExecutable"), arguments, options);
  std::optional<std::string> applicationText;
  if (opened.application) applicationText = opened.application->description;
  BWK_DLOG("%s [Line %d] open completed: %@ %@ %p", opened.error, applicationText,
           static_cast<const void*>(opened.application ? &*opened.application : nullptr));

  if (!opened.application || opened.error) {
    BWK_DLOG("%s [Line %d] Launch failed: %@", opened.error.value_or("unknown error"));
    return 1;
  }
  int32_t pid = opened.application->processIdentifier;
  BWK_DLOG("%s [Line %d] process identifier: %lld", static_cast<long long>(pid));
  gChildPid.exchange(pid);
  if (pid == 0) return 0;
  // The application's own status is not ours to know: wait until it is gone.
  while (kill(pid, 0) == 0) usleep(200000);
  return 0;
}

}  // namespace bwk
