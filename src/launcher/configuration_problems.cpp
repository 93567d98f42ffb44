#include "launcher/configuration_problems.h"

#include "base/path.h"
#include "base/strings.h"

namespace bwk {

std::vector<std::string> missingMainClassReasons(const LaunchContext& context) {
  if (context.commandLineLauncher) {
    return {context.paths.launcherDirAndName.value_or("the executable") +
            ": the embedded configuration has no \"MainClass\" in \"JavaVM\""};
  }
  std::vector<std::string> reasons;
  const std::string& bundle = context.bundle->path();
  if (!text::endsWith(bundle, ".app")) {
    reasons.push_back(bundle + ": not an application bundle; the launcher must be " +
                      "<Name>.app/Contents/MacOS/<executable>");
  }
  if (std::optional<std::string> problem = context.bundle->infoDictionaryProblem()) {
    reasons.push_back(*problem);
  } else {
    reasons.push_back(path::append(bundle, "Contents/Info.plist") + ": no \"MainClass\" in \"JavaVM\"");
  }
  return reasons;
}

}  // namespace bwk
