#include "tool_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/fs.h"
#include "base/path.h"
#include "platform/platform.h"

extern char** environ;

namespace bwk::bundle {

namespace {

// A file for one output stream, unlinked at once: the descriptor keeps it while it is read,
// and a program printing much can never block on a full pipe. It is moved above the standard
// descriptors: with standard input closed it would be 0, which the child's /dev/null replaces.
int scratchFile() {
  std::string name = path::append(platform::temporaryDirectory(), "brackwood-output-XXXXXX");
  int fd = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return fd;
  ::unlink(name.c_str());
  if (fd > STDERR_FILENO) return fd;
  int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  ::close(fd);
  return moved;
}

std::string readAll(int fd) {
  std::string text;
  ::lseek(fd, 0, SEEK_SET);
  char buffer[65536];
  ssize_t n;
  while ((n = ::read(fd, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR))
    if (n > 0) text.append(buffer, static_cast<size_t>(n));
  return text;
}

}  // namespace

std::optional<ProgramOutput> runProgram(const std::string& program, const std::vector<std::string>& arguments,
                                        std::string* error) {
  int out = scratchFile(), err = scratchFile();
  if (out < 0 || err < 0) {
    *error = "no temporary file for the output of " + program + ": " + std::strerror(errno);
    if (out >= 0) ::close(out);
    if (err >= 0) ::close(err);
    return std::nullopt;
  }
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out, 1);
  posix_spawn_file_actions_adddup2(&actions, err, 2);
  pid_t pid = 0;
  int rc = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  std::optional<ProgramOutput> result;
  if (rc != 0) {
    *error = program + " cannot be started: " + std::strerror(rc);
  } else {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result = ProgramOutput{WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0),
                           readAll(out), readAll(err)};
  }
  ::close(out);
  ::close(err);
  return result;
}

}  // namespace bwk::bundle
