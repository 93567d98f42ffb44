// The user, the process and its environment on Linux.
#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>

#include "base/path.h"
#include "platform/platform.h"

extern char** environ;

namespace bwk::platform {

namespace {
std::vector<std::string>& storedArguments() {
  static std::vector<std::string> arguments;
  return arguments;
}
}  // namespace

std::string homeDirectory() {
  struct passwd pw;
  struct passwd* result = nullptr;
  char buffer[4096];
  if (getpwuid_r(getuid(), &pw, buffer, sizeof buffer, &result) == 0 && result && result->pw_dir)
    return result->pw_dir;
  return "/";
}

std::string temporaryDirectory() {
  const char* tmp = std::getenv("TMPDIR");
  std::string dir = (tmp && *tmp) ? tmp : "/tmp/";
  if (dir.back() != '/') dir += '/';
  return dir;
}

std::optional<std::string> executablePath() {
  char buffer[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) return std::nullopt;
  buffer[n] = '\0';
  char resolved[PATH_MAX];
  if (!realpath(buffer, resolved)) return path::standardize(buffer);
  return path::standardize(resolved);
}

const std::vector<std::string>& processArguments() { return storedArguments(); }

void setProcessArguments(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = 0; i < argc; ++i) arguments.emplace_back(argv[i] ? argv[i] : "");
  storedArguments() = std::move(arguments);
}

void setProcessArguments(std::vector<std::string> arguments) { storedArguments() = std::move(arguments); }

std::vector<std::pair<std::string, std::string>> environment() {
  std::vector<std::pair<std::string, std::string>> out;
  for (char** e = environ; e && *e; ++e) {
    const char* eq = std::strchr(*e, '=');
    if (!eq) continue;
    out.emplace_back(std::string(*e, static_cast<size_t>(eq - *e)), std::string(eq + 1));
  }
  return out;
}

std::optional<std::string> environmentValue(const std::string& name) {
  const char* v = std::getenv(name.c_str());
  if (!v) return std::nullopt;
  return std::string(v);
}

const char* processName() {
  static std::string name = [] {
    auto exe = executablePath();
    return exe ? path::lastComponent(*exe) : std::string("brackwood-launcher");
  }();
  return name.c_str();
}

uint64_t threadIdentifier() { return static_cast<uint64_t>(syscall(SYS_gettid)); }

std::string globallyUniqueString() {
  std::random_device device;
  std::uniform_int_distribution<unsigned> digit(0, 15);
  static const char hex[] = "0123456789ABCDEF";
  // The platform's form: a UUID, then the process id and a counter.
  std::string out;
  for (int i = 0; i < 32; ++i) {
    if (i == 8 || i == 12 || i == 16 || i == 20) out += '-';
    out += hex[digit(device)];
  }
  static unsigned counter = 0;
  out += '-';
  out += std::to_string(getpid());
  out += '-';
  out += std::to_string(++counter);
  return out;
}

}  // namespace bwk::platform
