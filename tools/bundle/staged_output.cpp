#include "staged_output.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/fs.h"
#include "base/path.h"

namespace bwk::bundle {

namespace {

// A hidden sibling of `target` with a unique suffix.
std::string siblingTemplate(const std::string& target, const char* what) {
  return path::append(path::parent(target), "." + path::lastComponent(target) + "." + what + "-XXXXXX");
}

bool closeFile(int fd) { return fd >= 0 && ::close(fd) == 0; }

}  // namespace

std::optional<StagedOutput> StagedOutput::begin(const std::string& target, std::string* error) {
  std::string staging = siblingTemplate(target, "new");
  if (!::mkdtemp(staging.data())) {
    *error = path::parent(target) + ": " + std::strerror(errno);
    return std::nullopt;
  }
  return StagedOutput(target, staging);
}

StagedOutput::StagedOutput(StagedOutput&& other) noexcept
    : target_(std::move(other.target_)), staging_(std::move(other.staging_)), done_(other.done_) {
  other.done_ = true;
}

StagedOutput::~StagedOutput() {
  if (!done_) fs::removeItem(staging_);
}

bool StagedOutput::commit(bool replace, std::string* error) {
  std::optional<std::string> aside;
  if (replace && fs::existsNoFollow(target_)) {
    // Moved aside by renaming it onto a fresh empty directory, or a fresh file.
    aside = siblingTemplate(target_, "old");
    struct stat st {};
    bool directory = ::lstat(target_.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    bool made = directory ? ::mkdtemp(aside->data()) != nullptr : closeFile(::mkstemp(aside->data()));
    if (!made || std::rename(target_.c_str(), aside->c_str()) != 0) {
      *error = target_ + ": cannot be replaced: " + std::strerror(errno);
      if (made) fs::removeItem(*aside);
      return false;
    }
  }
  if (std::rename(staging_.c_str(), target_.c_str()) != 0) {
    *error = target_ + ": " + std::strerror(errno);
    if (aside) std::rename(aside->c_str(), target_.c_str());
    return false;
  }
  done_ = true;
  if (aside) fs::removeItem(*aside);
  return true;
}

}  // namespace bwk::bundle
