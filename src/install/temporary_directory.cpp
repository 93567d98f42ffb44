#include "install/temporary_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "platform/platform.h"

namespace bwk {

namespace {

constexpr const char* kMarkTag = "brackwood-launcher";

struct Owner {
  int pid = 0;
  unsigned long long startTime = 0;
};

std::string markText(const Owner& owner) {
  return std::string(kMarkTag) + " " + std::to_string(owner.pid) + " " + std::to_string(owner.startTime) + "\n";
}

// The mark of `directory`, when it is a regular file of this user written by a launcher.
std::optional<Owner> readMark(const std::string& directory) {
  int fd = ::open(path::append(directory, kOwnerMarkName).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  struct stat st;
  char text[128] = {};
  bool usable =
      ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::getuid() && ::read(fd, text, sizeof text - 1) > 0;
  ::close(fd);
  Owner owner;
  char tag[32] = {};
  char end = 0;
  if (!usable || std::sscanf(text, "%31s %d %llu%c", tag, &owner.pid, &owner.startTime, &end) != 4 ||
      std::string(tag) != kMarkTag || end != '\n' || owner.pid <= 0)
    return std::nullopt;
  return owner;
}

bool ownerIsGone(const Owner& owner) {
  std::optional<unsigned long long> started = platform::processStartTime(owner.pid);
  return !started || *started != owner.startTime;
}

// A directory of this user that nobody else may write: the only kind the launcher makes.
bool isPrivateDirectory(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() && (st.st_mode & 0077) == 0;
}

// The thread that removes abandoned directories. The exit handler waits for it, so that a
// short run does not leave a copy half removed; an atexit handler can only find it here.
std::thread* removal = nullptr;

void awaitRemoval() {
  if (removal && removal->joinable()) removal->join();
}

}  // namespace

std::optional<std::string> createTemporaryDirectory() {
  return createMarkedDirectory(platform::temporaryDirectory(), "");
}

bool isAbandoned(const std::string& directory) {
  if (!isPrivateDirectory(directory)) return false;
  std::optional<Owner> owner = readMark(directory);
  return owner && ownerIsGone(*owner);
}

std::optional<std::string> createMarkedDirectory(const std::string& parent, const std::string& prefix) {
  std::string dir = path::append(parent, prefix + platform::globallyUniqueString());
  // Only this user may look into the runtime that is about to run.
  if (::mkdir(dir.c_str(), 0700) != 0) return std::nullopt;
  std::optional<unsigned long long> started = platform::processStartTime(::getpid());
  if (started) fs::writeFile(path::append(dir, kOwnerMarkName), markText(Owner{::getpid(), *started}));
  return dir;
}

void removeTemporaryDirectory(const std::string& directory) {
  if (std::optional<std::vector<std::string>> names = fs::listDirectory(directory)) {
    for (const std::string& name : *names)
      if (name != kOwnerMarkName) fs::removeItem(path::append(directory, name));
  }
  fs::removeItem(directory);
}

void removeAbandonedTemporaryDirectories() {
  const std::string temporary = platform::temporaryDirectory();
  std::optional<std::vector<std::string>> names = fs::listDirectory(temporary);
  if (!names) return;
  std::vector<std::string> claimed;
  for (const std::string& name : *names) {
    std::string candidate = path::append(temporary, name);
    if (!isPrivateDirectory(candidate)) continue;
    std::optional<Owner> owner = readMark(candidate);
    if (!owner || !ownerIsGone(*owner)) continue;
    // Renamed first: of two starts that find the same directory, one takes it.
    std::string taken = path::append(temporary, ".brackwood-removing-" + platform::globallyUniqueString());
    if (::rename(candidate.c_str(), taken.c_str()) != 0) continue;
    BWK_DLOG("%s [Line %d] removing %@ of ended process %d", candidate, owner->pid);
    claimed.push_back(taken);
  }
  if (claimed.empty() || removal) return;
  removal = new std::thread([claimed] {
    for (const std::string& directory : claimed) removeTemporaryDirectory(directory);
  });
  std::atexit(awaitRemoval);
}

}  // namespace bwk
