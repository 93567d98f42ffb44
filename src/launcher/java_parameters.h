#pragma once
// Everything the Java runtime is started with, computed from values: options in their fixed
// order, main class, application arguments.
#include <string>
#include <vector>

#include "launcher/launch_context.h"
#include "launcher/runtime_search.h"

namespace bwk {

struct JavaParameters {
  std::vector<std::string> options;
  OptionalString mainClass;
  std::vector<std::string> args;
  // "StartOnMainThread": read, not acted on (the options decide the thread).
  bool startOnMainThread = false;
};

// What the launch finds out before the parameters are built, because it takes effects or
// time: the AOT cache's options (they make files), the running application's bundle
// identity (asked again after a pause), and the archive the runtime was unpacked from.
struct LaunchFacts {
  std::vector<std::string> aotOptions;
  OptionalString runningBundleIdentifier;
  OptionalString tarFile;
};

// The directory the runtime starts in: "WorkingDirectory" against the launcher directory, or
// the bundle for a bundle launch; none leaves the current directory.
OptionalString workingDirectory(const LaunchContext& context, const ChosenRuntime& runtime);

// Whether the launch asks for the running application's identity (only where the runtime
// takes the Dock options, and not for a command-line launcher).
bool needsBundleIdentity(const LaunchContext& context);

// The parameters, once the current directory is the working directory (relative "dir/*"
// class-path entries are listed there).
JavaParameters readJavaParameters(const LaunchContext& context, const ChosenRuntime& runtime, const LaunchFacts& facts);

}  // namespace bwk
