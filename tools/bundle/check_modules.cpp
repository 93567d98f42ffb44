// The modules a shipped runtime lacks: a jlink image made too small passes every other
// check and ends at start in NoClassDefFoundError. The classes are read by the jdeps of a JDK
// at hand: the shipped runtime's own, JAVA_HOME's, or one of the installed runtimes.
#include <algorithm>
#include <cstdio>

#include "base/fs.h"
#include "base/path.h"
#include "check_steps.h"
#include "manifest_options.h"
#include "module_deps.h"
#include "platform/platform.h"

namespace bwk::bundle {

namespace {

std::optional<std::string> jdepsIn(const std::string& runtime) {
  for (const char* home : {"", "Contents/Home"}) {
    std::string jdeps = path::append(path::append(runtime, home), "bin/jdeps");
    if (fs::exists(jdeps)) return jdeps;
  }
  return std::nullopt;
}

std::optional<std::string> findJdeps(const ShippedModules& shipped) {
  std::vector<std::string> candidates{shipped.location};
  if (std::optional<std::string> javaHome = platform::environmentValue("JAVA_HOME")) candidates.push_back(*javaHome);
  std::string installed = platform::installedRuntimesDirectory();
  std::vector<std::string> names = fs::listDirectory(installed).value_or(std::vector<std::string>{});
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) candidates.push_back(path::append(installed, name));
  for (const std::string& candidate : candidates)
    if (std::optional<std::string> jdeps = jdepsIn(candidate)) return jdeps;
  return std::nullopt;
}

void couldNotCheck(const ShippedModules& shipped, const std::string& why) {
  std::fprintf(stderr, "brackwood-bundle: note: the modules of %s were not checked: %s\n", shipped.location.c_str(),
               why.c_str());
}

}  // namespace

void checkRuntimeModules(const ShippedModules& shipped, const std::vector<std::string>& items, Findings& findings) {
  if (!shipped.modules) return couldNotCheck(shipped, "its release file names no MODULES");
  std::optional<int> feature = featureRelease(shipped.version);
  if (!feature) return couldNotCheck(shipped, "its version '" + shipped.version + "' names no release");
  std::optional<std::string> jdeps = findJdeps(shipped);
  if (!jdeps)
    return couldNotCheck(
        shipped, "no jdeps was found (in the runtime, JAVA_HOME or " + platform::installedRuntimesDirectory() + ")");
  std::string error;
  std::optional<std::map<std::string, std::string>> uses = moduleUses(*jdeps, *feature, items, &error);
  if (!uses) return couldNotCheck(shipped, error);
  // Only modules the JDK running jdeps has: any other name is no module.
  std::optional<std::set<std::string>> known = runtimeModules(path::parent(path::parent(*jdeps)));
  for (const auto& [module, use] : *uses)
    if (!shipped.modules->count(module) && (!known || known->count(module)))
      findings.add(shipped.location, "",
                   "lacks the module " + module + ", which the application's classes need (" + use +
                       "): the start ends in NoClassDefFoundError");
}

}  // namespace bwk::bundle
