#pragma once
// What `java -jar` takes from the main jar's manifest besides the class path: the main
// class, the packages it opens or exports to the application's code, native access.
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "jar_manifest.h"

namespace bwk::bundle {

struct ManifestOptions {
  std::optional<std::string> mainClass;   // Main-Class, trimmed, "/" read as "."
  std::vector<std::string> options;       // "--add-opens=M/P=ALL-UNNAMED", "--add-exports=..."
  bool nativeAccess = false;              // Enable-Native-Access: ALL-UNNAMED
  std::optional<std::string> agentClass;  // Launcher-Agent-Class
  std::vector<std::string> notes;         // what was left out, and why
};

// `modules`: those of the runtime the bundle ships, when known; packages of other modules
// are left out, as `java -jar` on that runtime leaves them out.
ManifestOptions manifestOptions(const JarManifest& manifest, const std::optional<std::set<std::string>>& modules);

// The modules named by a runtime home's "release" file; absent when it names none.
std::optional<std::set<std::string>> runtimeModules(const std::string& home);

}  // namespace bwk::bundle
