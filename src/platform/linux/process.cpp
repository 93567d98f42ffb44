// The user, the process and its environment on Linux.
#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "platform/platform.h"

extern char** environ;

namespace bwk::platform {

std::string homeDirectory() {
  struct passwd pw;
  struct passwd* result = nullptr;
  char buffer[4096];
  if (getpwuid_r(getuid(), &pw, buffer, sizeof buffer, &result) == 0 && result && result->pw_dir) return result->pw_dir;
  return "/";
}

std::string temporaryDirectory() {
  const char* tmp = std::getenv("TMPDIR");
  std::string dir = (tmp && *tmp) ? tmp : "/tmp/";
  if (dir.back() != '/') dir += '/';
  return dir;
}

std::string userCacheDirectory() {
  // XDG_CACHE_HOME counts only when it is an absolute path; anything else is ignored.
  const char* xdg = std::getenv("XDG_CACHE_HOME");
  std::string base = (xdg && xdg[0] == '/') ? std::string(xdg) : homeDirectory() + "/.cache";
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  return base + "/brackwood";
}

std::optional<FileStamp> fileStamp(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return std::nullopt;
  char text[160];
  std::snprintf(text, sizeof text, "%llu:%llu:%lld:%lld.%09ld:%lld.%09ld", static_cast<unsigned long long>(st.st_dev),
                static_cast<unsigned long long>(st.st_ino), static_cast<long long>(st.st_size),
                static_cast<long long>(st.st_mtim.tv_sec), static_cast<long>(st.st_mtim.tv_nsec),
                static_cast<long long>(st.st_ctim.tv_sec), static_cast<long>(st.st_ctim.tv_nsec));
  return FileStamp{text, std::max<long long>(st.st_mtim.tv_sec, st.st_ctim.tv_sec)};
}

std::optional<std::string> executablePath() {
  char buffer[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) return std::nullopt;
  buffer[n] = '\0';
  // The kernel's link is absolute and already free of "." and ".."; realpath also resolves
  // links in the directories above the executable.
  char resolved[PATH_MAX];
  if (!realpath(buffer, resolved)) return std::string(buffer);
  return std::string(resolved);
}

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
  static const std::string name = [] {
    std::optional<std::string> exe = executablePath();
    return exe ? exe->substr(exe->rfind('/') + 1) : std::string("brackwood-launcher");
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
  // Names made in one process differ in their last part even if the random part repeats.
  static std::atomic<unsigned> counter{0};
  out += '-';
  out += std::to_string(getpid());
  out += '-';
  out += std::to_string(counter.fetch_add(1) + 1);
  return out;
}

std::optional<unsigned long long> processStartTime(int pid) {
  // Field 22 of /proc/<pid>/stat: clock ticks after boot. The command name (field 2) is in
  // parentheses and may itself hold blanks and parentheses, so fields are counted after the
  // last ")".
  std::FILE* file = std::fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "re");
  if (!file) return std::nullopt;
  char buffer[1024];
  size_t n = std::fread(buffer, 1, sizeof buffer - 1, file);
  std::fclose(file);
  buffer[n] = '\0';
  const char* rest = std::strrchr(buffer, ')');
  if (!rest) return std::nullopt;
  unsigned long long startTime = 0;
  // Fields 3 to 21 are skipped.
  if (std::sscanf(rest + 1, " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %llu",
                  &startTime) != 1)
    return std::nullopt;
  return startTime;
}

}  // namespace bwk::platform
