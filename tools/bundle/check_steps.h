#pragma once
// The steps of "check", each reading one part of a bundle the way the launcher reads it and
// adding what it finds.
#include <optional>
#include <string>

#include "findings.h"
#include "launcher/launch_context.h"

namespace bwk::bundle {

// Unknown keys (with the nearest known one) and values of the wrong type.
void checkConfigurationKeys(const PlistValue& configuration, const std::string& file, Findings& findings);
// The executable, the strings tables and the icon.
void checkResources(const LaunchContext& context, Findings& findings);
// The option files and the option lists of the configuration.
void checkOptions(const LaunchContext& context, Findings& findings);
// The runtime the bundle ships (directory or archive) or, without one, the installed
// runtimes against the version range. Gives the runtime's path when one is found.
std::optional<std::string> checkRuntimes(const LaunchContext& context, Findings& findings);
// The class path as the launcher builds it, and the main class in it.
void checkClassPath(const LaunchContext& context, const std::optional<std::string>& runtimePath, Findings& findings);

// The known name closest to `name` (case ignored), when close enough to be a likely typo.
std::optional<std::string> nearestName(const std::string& name, const std::vector<std::string>& known);

}  // namespace bwk::bundle
