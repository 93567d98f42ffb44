#pragma once
// "create --jlink": a runtime of only the modules the application needs, linked by the JDK
// given as --runtime: those its classes use (jdeps), those its runtime options name, the
// service providers applications load without naming them, and those the user adds.
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "runtime_shipping.h"

namespace bwk::bundle {

// The runtime's home: Contents/Home of a runtime bundle, else the directory itself.
std::string runtimeHomeOf(const ShippedRuntime& runtime);

// Why the runtime cannot link one (no bin/jlink or bin/jdeps); absent when it can.
std::optional<std::string> linkProblem(const ShippedRuntime& runtime);

// The modules runtime options name (--add-opens M/P=..., --add-exports, --add-modules) and
// the entries of their module path (-p, --module-path), as given.
struct NamedModules {
  std::set<std::string> modules;
  std::vector<std::string> modulePath;
};
NamedModules modulesInOptions(const std::vector<std::string>& options);

struct LinkInput {
  ShippedRuntime jdk;
  std::vector<std::string> classes;       // jars and class directories of the application
  std::vector<std::string> javaOptions;   // the configuration's runtime options
  std::vector<std::string> addedModules;  // --add-modules of create, "M,N" each
  // Compress the classes in the image (a runtime shipped as a directory); an archive's gzip
  // compresses them better left as they are.
  bool compressClasses = false;
};

struct LinkedRuntime {
  ShippedRuntime runtime;            // the linked home
  std::vector<std::string> modules;  // the root modules, sorted
  std::vector<std::string> notes;    // modules named but not in the JDK, left out
};

// Links into `output`, which must not exist. Throws a failure naming what went wrong.
LinkedRuntime linkRuntime(const LinkInput& input, const std::string& output);

}  // namespace bwk::bundle
