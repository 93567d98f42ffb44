// Launcher variables, environment variables and path lists.
#include "launcher/variables.h"
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/runtime_bundle.h"
#include "platform/platform.h"

namespace bwk {

OptionalString replaceVariables(const OptionalString& input, const VariableScope& scope) {
  if (!input) return std::nullopt;
  BWK_DLOG("%s [Line %d] replacing %@", input);
  std::string s = *input;
  // One pass in a fixed order: text inserted by a replacement is seen only by the ones after.
  // A directory that is unknown (a command-line launcher whose own path is unknown) leaves
  // its variable in the text rather than turning it into a path from "/"; the bundle of a
  // command-line launcher is the empty text.
  if (scope.paths.appRootDir) s = text::replaceAll(std::move(s), "${launcher:sys.appRootDir}", *scope.paths.appRootDir);
  s = text::replaceAll(std::move(s), "${launcher:sys.mainBundle}", scope.paths.mainBundlePath.value_or(""));
  if (scope.paths.launcherDirInApp)
    s = text::replaceAll(std::move(s), "${launcher:sys.launcherDirectory}", *scope.paths.launcherDirInApp);
  s = text::replaceAll(std::move(s), "${launcher:sys.pathlistSeparator}", ":");
  s = text::replaceAll(std::move(s), "${launcher:sys.userHome}", platform::homeDirectory());
  // Unknown, it stays in the text: a working directory made of it is then not found, and the
  // start stays where it was started.
  if (OptionalString caller = platform::startDirectory())
    s = text::replaceAll(std::move(s), "${launcher:sys.callerDirectory}", *caller);
  s = text::replaceAll(std::move(s), "${launcher:sys.tempDir}", platform::temporaryDirectory());
  if (scope.runtimePath && s.find("${launcher:sys.jvmHome}") != std::string::npos) {
    std::string home = runtimeHome(*scope.runtimePath);
    std::string jre = path::append(home, "jre");
    s = text::replaceAll(std::move(s), "${launcher:sys.jvmHome}", fs::exists(jre) ? jre : home);
  }
  if (s.find("${") != std::string::npos) {
    for (const auto& [name, value] : platform::environment())
      s = text::replaceAll(std::move(s), "${" + name + "}", value);
  }
  BWK_DLOG("%s [Line %d] returning %@", s);
  return s;
}

OptionalString resolveArtifactPath(const OptionalString& pathList) {
  if (!pathList) return std::nullopt;
  OptionalString result;
  auto appendItem = [&](const std::string& item) { result = result ? *result + ":" + item : item; };
  for (const std::string& entry : text::split(*pathList, ":")) {
    if (text::startsWith(entry, "$")) {
      if (auto value = platform::environmentValue(entry.substr(1))) appendItem(*value);
    } else if (text::endsWith(entry, "/*")) {
      std::string dir = entry.substr(0, entry.size() - 1);
      BWK_DLOG("%s [Line %d] scanning directory %@", dir);
      auto names = fs::listDirectory(dir);
      if (!names) continue;
      for (const std::string& name : *names)
        if (text::endsWith(name, ".zip") || text::endsWith(name, ".jar")) appendItem(dir + name);
    } else {
      appendItem(entry);
    }
  }
  return result;
}

}  // namespace bwk
