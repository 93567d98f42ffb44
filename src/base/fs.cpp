#include "base/fs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace bwk::fs {

bool exists(const std::string& path) {
  struct stat st;
  return !path.empty() && ::stat(path.c_str(), &st) == 0;
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isSymbolicLink(const std::string& path) {
  struct stat st;
  return !path.empty() && ::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

bool existsNoFollow(const std::string& path) {
  struct stat st;
  return !path.empty() && ::lstat(path.c_str(), &st) == 0;
}

bool isWritable(const std::string& path) { return !path.empty() && ::access(path.c_str(), W_OK) == 0; }

bool isExecutableFile(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::optional<std::vector<std::string>> listDirectory(const std::string& path) {
  DIR* dir = ::opendir(path.c_str());
  if (!dir) return std::nullopt;
  std::vector<std::string> names;
  while (struct dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    names.push_back(std::move(name));
  }
  ::closedir(dir);
  return names;
}

std::optional<std::string> readFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  struct stat st;
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    ::close(fd);
    return std::nullopt;
  }
  std::string data;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    data.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  return data;
}

bool writeFile(const std::string& path, const std::string& contents) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < contents.size()) {
    ssize_t n = ::write(fd, contents.data() + done, contents.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ::close(fd);
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return ::close(fd) == 0;
}

bool createDirectory(const std::string& path, bool intermediate) {
  if (!intermediate) return ::mkdir(path.c_str(), 0777) == 0;
  std::error_code ec;
  std::filesystem::create_directories(path, ec);
  return isDirectory(path);
}

bool removeItem(const std::string& path) {
  std::error_code ec;
  return std::filesystem::remove_all(path, ec) != static_cast<std::uintmax_t>(-1) && !ec;
}

std::string realPath(const std::string& path) {
  char* resolved = ::realpath(path.c_str(), nullptr);
  if (!resolved) return path;
  std::string out(resolved);
  std::free(resolved);
  return out;
}

}  // namespace bwk::fs
