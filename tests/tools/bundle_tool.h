#pragma once
// brackwood-bundle run as a program.
#include "../e2e/e2e_support.h"

namespace bwk::test {

inline RunResult bundleTool(std::vector<std::string> words) {
  words.insert(words.begin(), BWK_BUNDLE);
  return run(words, launcherEnvironment());
}

// "create" of the demo program as Hello.app in `output`, with more words.
inline RunResult createHello(const std::string& output, const std::vector<std::string>& more = {}) {
  std::vector<std::string> words{"create", "--name",   "Hello",    "--main-class", "Hello",
                                 "--jar",  helloJar(), "--output", output};
  words.insert(words.end(), more.begin(), more.end());
  return bundleTool(words);
}

}  // namespace bwk::test
