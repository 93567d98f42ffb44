// The workspace service on Linux: the bundle's executable started in a session of its own.
// The application is this process's child here; it is reaped the moment it ends, so that
// kill(pid, 0) fails then, as for an application that the system's workspace started.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/platform.h"
#include "platform/workspace.h"

extern char** environ;

namespace bwk::platform {

namespace {

std::atomic<pid_t> openedApplication{0};

void reapOpenedApplication(int) {
  int saved = errno;
  pid_t pid = openedApplication.load();
  if (pid > 0) waitpid(pid, nullptr, WNOHANG);
  errno = saved;
}

}  // namespace

OpenResult openApplication(const std::string& bundlePath, const std::optional<std::string>& executableName,
                           const std::optional<std::vector<std::string>>& arguments,
                           unsigned long /*options: nothing to activate or hide here*/) {
  std::optional<std::string> self = executablePath();
  if (!executableName && !self) return OpenResult{std::nullopt, std::string("The application's executable is unknown")};
  std::string program = executableName ? bundlePath + "/Contents/MacOS/" + *executableName : *self;
  std::vector<std::string> words = arguments.value_or(std::vector<std::string>{});
  std::vector<char*> argv{program.data()};
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  // SIGCHLD stays blocked until the identifier is stored, so that an application that ends
  // at once is still reaped: its signal is delivered when the mask is restored.
  sigset_t childSignal, previousMask;
  sigemptyset(&childSignal);
  sigaddset(&childSignal, SIGCHLD);
  pthread_sigmask(SIG_BLOCK, &childSignal, &previousMask);
  struct sigaction reap {};
  reap.sa_handler = reapOpenedApplication;
  sigemptyset(&reap.sa_mask);
  reap.sa_flags = SA_NOCLDSTOP;
  sigaction(SIGCHLD, &reap, nullptr);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setsigmask(&attributes, &previousMask);
  pid_t pid = 0;
  // A file that is missing or cannot be executed is reported here, not by a child's exit.
  int error = posix_spawn(&pid, program.c_str(), nullptr, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (error == 0) openedApplication.store(pid);
  pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);

  OpenResult result;
  if (error != 0) {
    result.error = "The application \"" + program + "\" could not be launched: " + std::strerror(error);
    return result;
  }
  result.application = OpenedApplication{pid, "<application " + program + " pid " + std::to_string(pid) + ">"};
  return result;
}

}  // namespace bwk::platform
