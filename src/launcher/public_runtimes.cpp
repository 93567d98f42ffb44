// Runtimes in one given directory, and in the system's standard locations: the applet
// plug-in, then the installed runtimes, newest first by folder name.
#include <algorithm>

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/runtime_search_state.h"
#include "launcher/version_compare.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// Newest first: a name goes before another when its version, vendor prefix removed, is
// newer. A comparison that fails counts as equal.
bool newerRuntimeName(const std::string& x, const std::string& y) {
  try {
    return compareVersion(removeJrePrefix(y), removeJrePrefix(x)) < 0;
  } catch (...) {
    return false;
  }
}

bool isOracleBundle(const OptionalString& identifier, const OptionalString& infoString) {
  if (identifier && text::startsWith(*identifier, "com.oracle")) return true;
  return infoString && text::contains(*infoString, "Oracle");
}

}  // namespace

void RuntimeSearch::findDirectoryJavaBundle(const OptionalString& path, const OptionalString& min,
                                            const OptionalString& max, bool allowBeta) {
  if (!path) return;
  javaBundlePath = replaceVariables(path);
  if (!javaBundlePath || !fs::exists(*javaBundlePath)) return;
  tryBundle(*javaBundlePath, min, max, allowBeta);
}

void RuntimeSearch::findPublicJavaBundle(const OptionalString& min, const OptionalString& max, bool allowBeta) {
  std::optional<std::string> plugin = platform::appletPluginPath();
  if (plugin && fs::exists(*plugin) && fs::exists(path::append(*plugin, "Contents/Home/bin/java"))) {
    if (std::shared_ptr<RuntimeBundle> bundle = RuntimeBundle::open(*plugin)) {
      OptionalString infoString = bundle->string("CFBundleGetInfoString");
      OptionalString identifier = bundle->string("CFBundleIdentifier");
      BWK_DLOG("%s [Line %d] JRE %@ %@ %@", *plugin, infoString, identifier);
      if (isOracleBundle(identifier, infoString)) {
        BWK_DLOG("%s [Line %d] Oracle JRE %@", *plugin);
        // Only an accepted plug-in becomes the runtime path.
        javaBundle = bundle;
        if (record(checkJavaVersion(bundle.get(), min, max, allowBeta, true))) {
          javaBundlePath = plugin;
          pluginUsed = true;
          return;
        }
        javaBundle.reset();
      }
    }
  }

  const std::string directory = platform::installedRuntimesDirectory();
  std::optional<std::vector<std::string>> names = fs::listDirectory(directory);
  if (!names) return;
  std::stable_sort(names->begin(), names->end(), newerRuntimeName);
  BWK_DLOG("%s [Line %d] JDKs %@", *names);
  for (const std::string& name : *names) {
    std::string candidate = path::join({directory, name});
    BWK_DLOG("%s [Line %d] checking %@", candidate);
    if (tryBundle(candidate, min, max, allowBeta)) return;
  }
}

}  // namespace bwk
