#pragma once
// The classes jars hold, for the "did you mean" of a main class that is in none of them.
#include <optional>
#include <string>
#include <vector>

namespace bwk::bundle {

// The class of `jars` whose name is nearest to `mainClass` (case ignored, a few letters
// apart); absent when none is that near. Unreadable jars and directories are passed over.
std::optional<std::string> nearestClassName(const std::string& mainClass, const std::vector<std::string>& jars);

}  // namespace bwk::bundle
