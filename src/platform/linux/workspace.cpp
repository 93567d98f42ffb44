// The workspace service on Linux: the bundle's executable started in a session of its own.
// It is started through an intermediate process that ends at once, so the application is
// not our child: nobody here has to reap it, and kill(pid, 0) fails once it has ended.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/bundle.h"
#include "base/format.h"
#include "base/path.h"
#include "platform/platform.h"
#include "platform/workspace.h"

extern char** environ;

namespace bwk::platform {

namespace {

// Records written by the intermediate process and the application process into one pipe.
// Each is far below PIPE_BUF, so writes from both never interleave.
struct Record {
  enum Kind : int32_t { Started, ForkFailed, ExecFailed } kind;
  int32_t value;  // the process identifier, or the error number
};

void writeRecord(int fd, Record::Kind kind, int32_t value) {
  Record record{kind, value};
  ssize_t ignored = write(fd, &record, sizeof record);
  (void)ignored;  // nothing to do in a process that is about to end
}

std::string bundleExecutable(const std::string& bundlePath) {
  std::optional<std::string> name = Bundle(bundlePath).infoDictionary().string("CFBundleExecutable");
  if (name) return path::append(path::append(bundlePath, "Contents/MacOS"), *name);
  return executablePath().value_or("");
}

}  // namespace

OpenResult openApplication(const std::string& bundlePath, const std::optional<std::vector<std::string>>& arguments,
                           unsigned long /*options: nothing to activate or hide here*/) {
  OpenResult result;
  std::string program = bundleExecutable(bundlePath);
  std::vector<char*> argv{program.data()};
  std::vector<std::string> words = arguments.value_or(std::vector<std::string>{});
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  int channel[2];
  if (pipe2(channel, O_CLOEXEC) != 0) {
    result.error = std::string("cannot open the application: ") + std::strerror(errno);
    return result;
  }
  pid_t intermediate = fork();
  if (intermediate == 0) {
    // Only async-signal-safe calls from here: the parent may have other threads.
    close(channel[0]);
    pid_t application = fork();
    if (application == 0) {
      // Handlers are reset by exec; a blocked signal mask would be inherited.
      sigset_t none;
      sigemptyset(&none);
      sigprocmask(SIG_SETMASK, &none, nullptr);
      setsid();
      execve(argv[0], argv.data(), environ);
      writeRecord(channel[1], Record::ExecFailed, errno);
      _exit(127);
    }
    if (application < 0) writeRecord(channel[1], Record::ForkFailed, errno);
    else writeRecord(channel[1], Record::Started, application);
    _exit(0);
  }
  close(channel[1]);
  if (intermediate < 0) {
    close(channel[0]);
    result.error = std::string("cannot open the application: ") + std::strerror(errno);
    return result;
  }
  while (waitpid(intermediate, nullptr, 0) < 0 && errno == EINTR) {
  }

  // The pipe ends when the application has replaced its image (close-on-exec) or has failed.
  std::optional<int32_t> started;
  std::optional<int> failure;
  Record record;
  for (;;) {
    ssize_t n = read(channel[0], &record, sizeof record);
    if (n < 0 && errno == EINTR) continue;
    if (n != static_cast<ssize_t>(sizeof record)) break;
    if (record.kind == Record::Started) started = record.value;
    else failure = record.value;
  }
  close(channel[0]);

  if (failure || !started) {
    result.error = format("The application \"%@\" could not be launched: %@", program,
                          std::string(std::strerror(failure.value_or(ECHILD))));
    return result;
  }
  result.application = OpenedApplication{*started, format("<application %@ pid %d>", program, *started)};
  return result;
}

}  // namespace bwk::platform
