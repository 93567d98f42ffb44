// Everything the Java runtime is started with: options in their fixed order, main class,
// application arguments.
#include "launcher/java_parameters.h"

#include <fnmatch.h>

#include <algorithm>

#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/command_line.h"
#include "launcher/option_files.h"
#include "launcher/variables.h"
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

// The winning list of "VersionSpecificVMOptions": the first pair whose pattern matches.
std::optional<std::optional<std::vector<std::string>>> versionSpecificOptions(const PlistValue& javaVM,
                                                                              const ChosenRuntime& runtime) {
  const PlistArray* specific = javaVM.array("VersionSpecificVMOptions");
  if (!specific || specific->size() < 2) return std::nullopt;
  for (size_t i = 0; i + 1 < specific->size(); i += 2) {
    const std::string* pattern = (*specific)[i].asString();
    if (!pattern) continue;
    std::optional<std::vector<std::string>> list;
    if (const PlistArray* a = (*specific)[i + 1].asArray()) {
      list.emplace();
      for (const PlistValue& v : *a)
        if (v.asString()) list->push_back(*v.asString());
    }
    if (text::startsWith(*pattern, "*")) {
      if (runtime.version && matchesLike(*runtime.version, pattern->substr(1))) {
        BWK_DLOG("%s [Line %d] using version specific options %@ %@ %@", runtime.version, *pattern, list);
        return list;
      }
      continue;
    }
    std::vector<std::string> bounds = text::split(*pattern, "-");
    if (bounds.size() != 2) {
      BWK_DLOG("%s [Line %d] ERROR in version specific options %@", *pattern);
      continue;
    }
    long long low = text::integerValue(bounds[0]), high = text::integerValue(bounds[1]);
    if (low <= runtime.majorVersion && runtime.majorVersion <= high) {
      BWK_DLOG("%s [Line %d] using version specific options %@ %@ %@ %d %d %d", runtime.version, *pattern, list,
               runtime.majorVersion, low, high);
      return list;
    }
  }
  return std::nullopt;
}

}  // namespace

OptionalString workingDirectory(const LaunchContext& context, const ChosenRuntime& runtime) {
  VariableScope scope{context.paths, runtime.path};
  if (OptionalString configured = replaceVariables(context.javaVM().string("WorkingDirectory"), scope)) {
    if (!path::isAbsolute(*configured) && !context.paths.launcherDirInApp) return std::nullopt;
    std::string dir = path::isAbsolute(*configured)
                          ? path::standardize(*configured)
                          : path::standardize(path::append(*context.paths.launcherDirInApp, *configured));
    BWK_DLOG("%s [Line %d] using working directory %@", dir);
    return dir;
  }
  if (!context.commandLineLauncher) return context.paths.mainBundlePath;
  return std::nullopt;
}

bool needsBundleIdentity(const LaunchContext& context) {
  return !context.commandLineLauncher && platform::supportsDockOptions();
}

JavaParameters readJavaParameters(const LaunchContext& context, const ChosenRuntime& runtime,
                                  const LaunchFacts& facts) {
  const PlistValue& info = context.configuration;
  const PlistValue& javaVM = context.javaVM();
  const LaunchPaths& paths = context.paths;
  VariableScope scope{paths, runtime.path};
  JavaParameters result;
  std::vector<std::string>& options = result.options;

  // Module name, always first: the executable, or the bundle.
  options.push_back("-Dfenmo.moduleName=" + paths.launcherDirAndName.value_or("(null)") +
                    (context.commandLineLauncher ? "" : ".app"));

  // Class path and built-in options, then the version-specific ones.
  OptionalString classPath = replaceVariables(javaVM.string("ClassPath"), scope);
  classPath = addPredefinedOptions(javaVM.stringArray("VMOptionArray"), options, classPath, scope);
  if (auto specific = versionSpecificOptions(javaVM, runtime))
    classPath = addPredefinedOptions(*specific, options, classPath, scope);

  options.insert(options.end(), facts.aotOptions.begin(), facts.aotOptions.end());
  for (const std::string& file : optionFiles(context)) classPath = readOptionsFile(file, options, classPath, scope);

  if (OptionalString splash = replaceVariables(javaVM.string("SplashFile"), scope))
    options.push_back("-splash:" + *splash);
  if (OptionalString resolved = resolveArtifactPath(classPath); resolved && !resolved->empty())
    options.push_back("-Djava.class.path=" + *resolved);
  if (OptionalString modulePath = resolveArtifactPath(replaceVariables(javaVM.string("ModulePath"), scope));
      modulePath && !modulePath->empty()) {
    options.push_back("-p");
    options.push_back(*modulePath);
  }

  // Identity: the configuration file of a command-line launcher, or the Dock's icon and name.
  if (context.commandLineLauncher) {
    options.push_back("-Dbwk.configFileId=" + info.string("bwk.configFileId").value_or("(null)"));
  } else if (needsBundleIdentity(context)) {
    if (!facts.runningBundleIdentifier) {
      BWK_DLOG("%s [Line %d] Started without bundle. Setting icon.");
      OptionalString icon = info.string("CFBundleIconFile");
      if (icon && paths.launcherDirAndName)
        options.push_back("-Xdock:icon=" + *paths.launcherDirAndName + ".app/Contents/Resources/" + *icon);
    }
    options.push_back("-Xdock:name=" + info.string("CFBundleName").value_or("(null)"));
  }

  if (context.commandLineLauncher && context.serviceMode) options.push_back("-Dbwk.service=" + *context.serviceMode);
  if (runtime.previousInstallation) options.push_back("-Dbwk.previousJdk=true");
  if (facts.tarFile) options.push_back("-Dbwk.tarFile=" + *facts.tarFile);

  // Arguments: configured first, then the command line.
  if (const PlistArray* configured = javaVM.array("ArgumentArray")) {
    for (const PlistValue& v : *configured)
      if (v.asString()) result.args.push_back(*replaceVariables(*v.asString(), scope));
  }
  addCommandLineParameters(context, options, result.args);

  // Runtime selections never reach the runtime; neither do Dock options where the runtime
  // refuses them.
  bool dropDock = !platform::supportsDockOptions();
  std::erase_if(options, [&](const std::string& option) {
    if (text::startsWith(option, "-jvm=")) return true;
    if (dropDock && isDockOption(option)) {
      BWK_DLOG("%s [Line %d] removing option %@", option);
      return true;
    }
    return false;
  });

  result.mainClass = javaVM.string("MainClass");
  result.startOnMainThread = javaVM.boolean("StartOnMainThread").value_or(false);
  return result;
}

}  // namespace bwk
