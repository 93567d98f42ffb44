// Everything the Java runtime is started with: options in their fixed order, main class,
// application arguments.
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// The platform's "SELF LIKE pattern": whole string, "*" any run, "?" one character, case
// sensitive, no bracket expressions.
bool matchesLike(const std::string& text, const std::string& pattern) {
  std::string escaped;
  for (char c : pattern) {
    if (c == '[' || c == ']' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return fnmatch(escaped.c_str(), text.c_str(), 0) == 0;
}

// Options HotSpot refuses where there is no Dock; one configuration serves both platforms.
bool isDockOption(const std::string& option) {
  return text::startsWith(option, "-Xdock:") || option == "-XstartOnFirstThread";
}

}  // namespace

void Launcher::readJavaParameters(std::vector<std::string>& options, OptionalString& mainClass,
                                  std::vector<std::string>& args, bool* firstThread) {
  const PlistValue& info = infoDictionary();
  static const PlistValue emptyDict{PlistDict{}};
  const PlistValue& javaVM = javaVMDictionary() ? *javaVMDictionary() : emptyDict;

  // 1. Language.
  if (auto locale = platform::userLocale()) setenv("LANG", (*locale + ".UTF-8").c_str(), 0);

  // 2. Working directory.
  if (OptionalString workingDir = replaceVariables(javaVM.string("WorkingDirectory"))) {
    std::string dir = path::isAbsolute(*workingDir) ? path::standardize(*workingDir)
                                                    : path::standardize(path::append(s_launcherDirInApp.value_or(""), *workingDir));
    BWK_DLOG("%s [Line %d] using working directory %@", dir);
    if (chdir(dir.c_str()) != 0) { /* the current directory stays as it was */ }
  } else if (!s_guiLauncher && s_mainBundlePath) {
    if (chdir(s_mainBundlePath->c_str()) != 0) { /* as above */ }
  }

  // 3. Module name, always first.
  options.clear();
  options.push_back(s_guiLauncher ? "-Dfenmo.moduleName=" + s_launcherDirAndName.value_or("(null)")
                                  : "-Dfenmo.moduleName=" + s_launcherDirAndName.value_or("(null)") + ".app");

  // 4. Class path and built-in options.
  OptionalString classPath = replaceVariables(javaVM.string("ClassPath"));
  classPath = addPredefinedOptions(javaVM.stringArray("VMOptionArray"), options, classPath);

  // 5. Version-specific options: the first matching pair wins.
  if (const PlistArray* specific = javaVM.array("VersionSpecificVMOptions"); specific && specific->size() >= 2) {
    for (size_t i = 0; i + 1 < specific->size(); i += 2) {
      const std::string* pattern = (*specific)[i].asString();
      const PlistValue& listValue = (*specific)[i + 1];
      if (!pattern) continue;
      std::optional<std::vector<std::string>> list;
      if (const PlistArray* a = listValue.asArray()) {
        list.emplace();
        for (const PlistValue& v : *a)
          if (v.asString()) list->push_back(*v.asString());
      }
      bool matched = false;
      if (text::startsWith(*pattern, "*")) {
        if (javaVersion && matchesLike(*javaVersion, pattern->substr(1))) {
          BWK_DLOG("%s [Line %d] using version specific options %@ %@ %@", javaVersion, *pattern, list);
          matched = true;
        }
      } else {
        std::vector<std::string> bounds = text::split(*pattern, "-");
        if (bounds.size() != 2) {
          BWK_DLOG("%s [Line %d] ERROR in version specific options %@", *pattern);
          continue;
        }
        long long low = text::integerValue(bounds[0]), high = text::integerValue(bounds[1]);
        if (low <= javaMajorVersion && javaMajorVersion <= high) {
          BWK_DLOG("%s [Line %d] using version specific options %@ %@ %@ %d %d %d", javaVersion, *pattern, list,
                   javaMajorVersion, low, high);
          matched = true;
        }
      }
      if (matched) {
        classPath = addPredefinedOptions(list, options, classPath);
        break;
      }
    }
  }

  // 6. AOT cache.
  addAotCacheOption(options, &javaVM);

  // 7. Option files: inside the bundle, then beside it.
  if (!s_guiLauncher) classPath = readOptionsFile(s_launcherDirAndName.value_or("") + ".app/Contents/vmoptions.txt", options, classPath);
  classPath = readOptionsFile(s_launcherDirAndName.value_or("") + ".vmoptions", options, classPath);

  // 8. Splash.
  if (OptionalString splash = replaceVariables(javaVM.string("SplashFile"))) options.push_back("-splash:" + *splash);

  // 9. Class path.
  if (OptionalString resolved = resolveArtifactPath(classPath); resolved && !resolved->empty())
    options.push_back("-Djava.class.path=" + *resolved);

  // 10. Module path.
  if (OptionalString modulePath = resolveArtifactPath(replaceVariables(javaVM.string("ModulePath")));
      modulePath && !modulePath->empty()) {
    options.push_back("-p");
    options.push_back(*modulePath);
  }

  // 11. Identity.
  if (s_guiLauncher) {
    options.push_back("-Dbwk.configFileId=" + info.string("bwk.configFileId").value_or("(null)"));
  } else if (platform::supportsDockOptions()) {
    OptionalString identifier = platform::runningApplicationBundleIdentifier();
    if (!identifier) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      identifier = platform::runningApplicationBundleIdentifier();
    }
    if (!identifier) {
      BWK_DLOG("%s [Line %d] Started without bundle. Setting icon.");
      if (OptionalString icon = info.string("CFBundleIconFile"))
        options.push_back("-Xdock:icon=" + s_launcherDirAndName.value_or("(null)") + ".app/Contents/Resources/" + *icon);
    }
    options.push_back("-Xdock:name=" + info.string("CFBundleName").value_or("(null)"));
  }

  // 12. Service mode.
  if (s_guiLauncher && s_serviceMode) options.push_back("-Dbwk.service=" + *s_serviceMode);
  // 13, 14. Previous runtime and archive.
  if (previousJdkUsed) options.push_back("-Dbwk.previousJdk=true");
  if (tarFile) options.push_back("-Dbwk.tarFile=" + *tarFile);

  // 15, 16. Arguments: configured first, then the command line.
  args.clear();
  if (const PlistArray* configured = javaVM.array("ArgumentArray")) {
    for (const PlistValue& v : *configured)
      if (v.asString()) args.push_back(*replaceVariables(*v.asString()));
  }
  addCommandLineParameters(options, args);

  // 17. Runtime selections never reach the runtime; neither do Dock options where the
  // runtime refuses them.
  bool dropDock = !platform::supportsDockOptions();
  std::erase_if(options, [&](const std::string& option) {
    if (text::startsWith(option, "-jvm=")) return true;
    if (dropDock && isDockOption(option)) {
      BWK_DLOG("%s [Line %d] removing option %@", option);
      return true;
    }
    return false;
  });

  // 18.
  mainClass = javaVM.string("MainClass");
  if (firstThread) *firstThread = javaVM.boolean("StartOnMainThread").value_or(false);
}

}  // namespace bwk
