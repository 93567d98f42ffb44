#pragma once
// One launch, from a context to a running Java virtual machine: the runtime search, the
// parameters, the argument vector, and JLI_Launch.
#include <optional>
#include <string>
#include <vector>

#include "launcher/java_parameters.h"
#include "launcher/launch_context.h"
#include "launcher/runtime_search.h"

namespace bwk {

class Launcher {
 public:
  explicit Launcher(const LaunchContext& context) : context_(context) {}
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  // The runtime the installation worker has just unpacked, and the archive it came from.
  void setInstallerJreBundle(const OptionalString& jreBundle, const OptionalString& tarFile);

  // Chooses the runtime and builds the argument vector. The one step with effects on the
  // process: LANG from the user's locale, the working directory, the wait for the running
  // application's identity. Throws ReportedFailure when a runtime's packed jars cannot be
  // unpacked or option files nest too deeply.
  Launcher& load();

  // Loads the runtime's launcher library and calls JLI_Launch: its result. 1 with a message
  // when no runtime was found; throws PlatformException("JavaLaunchError", ...) when the
  // library cannot be used.
  int launch();

  const std::optional<ChosenRuntime>& runtime() const { return runtime_; }
  // The vector handed to JLI_Launch: program, options, runtime property, main class, arguments.
  const std::vector<std::string>& argumentVector() const { return argv_; }

 private:
  const LaunchContext& context_;
  OptionalString installerJreBundle_;
  OptionalString tarFile_;
  std::optional<ChosenRuntime> runtime_;
  std::vector<std::string> argv_;
};

// The vector handed to JLI_Launch: the program, the options, "-Dbwk.jreBundle=", the main class
// ("(null)" when none is configured) and the arguments.
std::vector<std::string> argumentVector(const std::string& program, const JavaParameters& parameters,
                                        const std::string& runtimePath);

}  // namespace bwk
