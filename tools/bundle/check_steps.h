#pragma once
// The steps of "check", each reading one part of a bundle the way the launcher reads it and
// adding what it finds.
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "findings.h"
#include "launcher/launch_context.h"

namespace bwk::bundle {

// Unknown keys (with the nearest known one) and values of the wrong type.
void checkConfigurationKeys(const PlistValue& configuration, const std::string& file, Findings& findings);
// The executable, the strings tables and the icon.
void checkResources(const LaunchContext& context, Findings& findings);
// The option files and the option lists of the configuration.
void checkOptions(const LaunchContext& context, Findings& findings);
// A runtime the bundle ships, and the modules it has.
struct ShippedModules {
  std::string location;  // its directory, or the archive
  std::string version;
  std::optional<std::set<std::string>> modules;  // absent when its release file names none
};

// The runtime the bundle ships (directory or archive) or, without one, the installed
// runtimes against the version range. Gives the runtime's path when one is found; `shipped`
// is set for a runtime the bundle ships that the launcher would use.
std::optional<std::string> checkRuntimes(const LaunchContext& context, Findings& findings,
                                         std::optional<ShippedModules>& shipped);
// The class path as the launcher builds it, and the main class in it. Gives the jars and
// directories of classes found.
std::vector<std::string> checkClassPath(const LaunchContext& context, const std::optional<std::string>& runtimePath,
                                        Findings& findings);
// The modules the classes of `items` use that the shipped runtime lacks (jdeps of a JDK at
// hand). Says on standard error when it could not check.
void checkRuntimeModules(const ShippedModules& shipped, const std::vector<std::string>& items, Findings& findings);

// The known name closest to `name` (case ignored), when close enough to be a likely typo.
std::optional<std::string> nearestName(const std::string& name, const std::vector<std::string>& known);

}  // namespace bwk::bundle
