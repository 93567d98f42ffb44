#pragma once
// A private directory for the fuzz targets that work on files, made once per process and
// removed with everything in it when the process ends.
#include <string>

namespace bwk::fuzz {

class ScratchDir {
 public:
  explicit ScratchDir(const char* prefix);
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Stops the process when `condition` is false: a broken invariant is a finding.
void require(bool condition, const char* what);

}  // namespace bwk::fuzz
