#include "scratch_dir.h"

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>

#include "base/fs.h"
#include "platform/platform.h"

namespace bwk::fuzz {

ScratchDir::ScratchDir(const char* prefix) {
  std::string pattern = platform::temporaryDirectory() + prefix + "-XXXXXX";
  require(::mkdtemp(pattern.data()) != nullptr, "cannot create a scratch directory");
  path_ = pattern;
}

ScratchDir::~ScratchDir() { fs::removeItem(path_); }

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
  std::abort();
}

}  // namespace bwk::fuzz
