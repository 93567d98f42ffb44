#include "signing.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

extern char** environ;

namespace bwk::embed {

namespace {

std::optional<std::string> findOnPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  if (!path) return std::nullopt;
  std::string list = path;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(':', start);
    if (end == std::string::npos) end = list.size();
    std::string dir = list.substr(start, end - start);
    std::string candidate = (dir.empty() ? std::string(".") : dir) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
    start = end + 1;
  }
  return std::nullopt;
}

// The exit status of the program, 128+n when a signal ended it; absent when it did not start.
std::optional<int> runAndWait(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid;
  if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return std::nullopt;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return std::nullopt;
  }
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return WEXITSTATUS(status);
}

}  // namespace

bool signAgain(const std::string& output, bool sign) {
  std::optional<std::string> codesign = sign ? findOnPath("codesign") : std::nullopt;
  if (!codesign) {
    std::fprintf(
        stderr,
        "brackwood-embed: %s is not signed: sign it before it runs on a Mac (codesign --force -s - %s, or with your identity)\n",
        output.c_str(), output.c_str());
    return true;
  }
  std::optional<int> status = runAndWait(*codesign, {"--force", "-s", "-", output});
  if (status != 0) {
    std::string failure = status ? "ended with status " + std::to_string(*status) : "could not be started";
    std::fprintf(stderr, "brackwood-embed: %s %s: %s is not signed: sign it before it runs on a Mac\n",
                 codesign->c_str(), failure.c_str(), output.c_str());
    return false;
  }
  std::fprintf(stderr, "brackwood-embed: %s is signed ad hoc; sign it with your identity to distribute it\n",
               output.c_str());
  return true;
}

}  // namespace bwk::embed
