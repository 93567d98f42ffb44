// Runtimes in one given directory, and in the system's standard locations: the applet
// plug-in, then the installed runtimes, newest first by folder name.
#include <algorithm>

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// Newest first: a name goes before another when its version, vendor prefix removed, is
// newer. A comparison that fails counts as equal.
bool newerRuntimeName(const std::string& x, const std::string& y) {
  try {
    return Launcher::compareVersion(Launcher::removeJrePrefix(y), Launcher::removeJrePrefix(x)) < 0;
  } catch (...) {
    return false;
  }
}

bool isOracleBundle(const OptionalString& identifier, const OptionalString& infoString) {
  if (identifier && text::startsWith(*identifier, "com.oracle")) return true;
  return infoString && text::contains(*infoString, "Oracle");
}

}  // namespace

void Launcher::findDirectoryJavaBundle(const OptionalString& path, const OptionalString& min,
                                       const OptionalString& max, bool allowBeta) {
  if (!path) return;
  javaBundlePath = replaceVariables(path);
  if (!javaBundlePath || !fs::exists(*javaBundlePath)) return;
  javaBundle = RuntimeBundle::open(*javaBundlePath);
  launchJavaVersion = checkJavaVersion(min, max, allowBeta, false);
  if (!launchJavaVersion) javaBundle.reset();
}

void Launcher::findPublicJavaBundle(const OptionalString& min, const OptionalString& max, bool allowBeta) {
  std::optional<std::string> plugin = platform::appletPluginPath();
  if (plugin && fs::exists(*plugin) && fs::exists(path::append(*plugin, "Contents/Home/bin/java"))) {
    javaBundle = RuntimeBundle::open(*plugin);
    if (javaBundle) {
      OptionalString infoString = javaBundle->string("CFBundleGetInfoString");
      OptionalString identifier = javaBundle->string("CFBundleIdentifier");
      BWK_DLOG("%s [Line %d] JRE %@ %@ %@", *plugin, infoString, identifier);
      if (!isOracleBundle(identifier, infoString)) {
        javaBundle.reset();
      } else {
        BWK_DLOG("%s [Line %d] Oracle JRE %@", *plugin);
        launchJavaVersion = checkJavaVersion(min, max, allowBeta, true);
        if (launchJavaVersion) {
          javaBundlePath = plugin;
          pluginUsed = true;
        } else {
          javaBundle.reset();
        }
      }
    }
  }
  if (javaBundle) return;

  const std::string directory = platform::installedRuntimesDirectory();
  std::optional<std::vector<std::string>> names = fs::listDirectory(directory);
  if (!names) return;
  std::stable_sort(names->begin(), names->end(), newerRuntimeName);
  BWK_DLOG("%s [Line %d] JDKs %@", *names);
  for (const std::string& name : *names) {
    javaBundlePath = path::join({directory, name});
    BWK_DLOG("%s [Line %d] checking %@", javaBundlePath);
    javaBundle = RuntimeBundle::open(*javaBundlePath);
    launchJavaVersion = checkJavaVersion(min, max, allowBeta, false);
    if (launchJavaVersion) return;
    javaBundle.reset();
  }
}

}  // namespace bwk
