#pragma once
// Turns a runtime's Pack200 files (*.jar.pack in lib and lib/ext) back into jars with the
// runtime's own bin/unpack200, one file after the other.
#include <string>
#include <vector>

#include "base/progress.h"

namespace bwk {

class Unpacker {
 public:
  // True when every run that was started ended with status 0 (also when there was nothing
  // to do). A tool that cannot be started throws PlatformException; a callback may throw
  // InstallationCancelled.
  static bool unpack(const std::string& home, const ProgressCallback* progress);
  static void addPackedFiles(std::vector<std::string>& files, const std::string& subDir, const std::string& home);
};

}  // namespace bwk
