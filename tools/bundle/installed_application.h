#pragma once
// An application as it is installed ("create --input DIR --main-jar JAR"): the directory
// is shipped whole as the installation root, and the class path is what `java -jar JAR`
// builds, each entry placed where the bundle has it.
#include <string>
#include <utility>
#include <vector>

#include "jar_class_path.h"
#include "jar_manifest.h"

namespace bwk::bundle {

// The folder of the installation root that receives class-path entries from outside DIR.
inline constexpr const char* kExternalClassPathFolder = "external-classpath";

struct InstalledApplication {
  std::string input;    // absolute
  std::string mainJar;  // absolute, below `input`
  JarManifest manifest;
  JarClassPath classPath;                                   // as the runtime resolves it here
  std::vector<std::string> entries;                         // the same, relative to the installation root
  std::vector<std::pair<std::string, std::string>> copies;  // entries from outside: source, place
  std::vector<std::string> warnings;                        // where the bundle's order differs
};

// `jars`: further jars or directories of jars inside DIR, after the main jar. Throws a
// failure for a directory or jar that cannot be used.
InstalledApplication readInstalledApplication(const std::string& input, const std::string& mainJar,
                                              const std::vector<std::string>& jars);

}  // namespace bwk::bundle
