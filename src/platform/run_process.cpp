// Starting helper programs, on every system: posix_spawn hands the program and its arguments
// over as the bytes they are, whatever their encoding.
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>

#include "platform/platform.h"

extern char** environ;

namespace bwk::platform {

std::optional<int> runProcess(const std::string& program, const std::vector<std::string>& arguments,
                              std::string* error) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ);
  if (rc != 0) {
    if (error) *error = "launch path not accessible: " + program + " (" + std::strerror(rc) + ")";
    return std::nullopt;
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return 1;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return 1;
}

}  // namespace bwk::platform
