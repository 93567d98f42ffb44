#pragma once
// The JDK's jdeps asked which modules of the runtime an application's classes use.
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace bwk::bundle {

// The feature release of a version text ("17.0.13" gives 17); absent when it has none.
std::optional<int> featureRelease(const std::string& version);

// `jdeps --print-module-deps --ignore-missing-deps --multi-release <feature>` over `items`
// (jars and class directories): the modules they need, their requirements left to jlink.
// Absent, with jdeps's own words, when it fails.
std::optional<std::set<std::string>> printedModuleDeps(const std::string& jdeps, int feature,
                                                       const std::vector<std::string>& items, std::string* error);

// Every module of the JDK running jdeps that a class of `items` uses, each with one use
// ("com.example.Main uses javax.swing.JFrame").
std::optional<std::map<std::string, std::string>> moduleUses(const std::string& jdeps, int feature,
                                                             const std::vector<std::string>& items, std::string* error);

// The module names in the output of `jdeps -verbose:class`: a dependence's last column is its
// module, or "JDK internal API (module)".
std::map<std::string, std::string> parseClassUses(const std::string& output);

}  // namespace bwk::bundle
