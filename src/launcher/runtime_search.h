#pragma once
// Which runtime the launcher starts.
#include <memory>
#include <optional>
#include <string>

#include "launcher/launch_context.h"
#include "launcher/runtime_bundle.h"

namespace bwk {

// Where an application bundle ships its own runtime, in the order they are tried.
inline constexpr const char* kShippedRuntimeLocations[] = {"Contents/Resources/jre.bundle",
                                                           "Contents/PlugIns/jre.bundle"};

struct ChosenRuntime {
  // The runtime's directory (a bundle holding Contents/Home, or a plain runtime home).
  std::string path;
  // Its bundle; null for a plain private runtime used without a check.
  std::shared_ptr<RuntimeBundle> bundle;
  // The version text that was checked, and its major version; unset without a check.
  OptionalString version;
  int majorVersion = -1;
  // What JLI_Launch is told as the runtime's version ("1.7.0" for an unchecked runtime).
  std::string shortVersion;
  // The applet plug-in, whose launcher library lies at a fixed place.
  bool plugin = false;
  // Found through the records of a previous installation.
  bool previousInstallation = false;
};

// In this order: a runtime handed over by an authorization restart, a "-jvm=" override, the
// runtime the installation worker has just unpacked (`installerJreBundle`), one shipped in
// the bundle, the private runtime, then the configured search sequence. Runtimes at fixed
// locations have their packed jars unpacked; when that fails, throws ReportedFailure.
std::optional<ChosenRuntime> findJavaBundle(const LaunchContext& context, const OptionalString& installerJreBundle);

// The runtime named by the last "-jvm=" option of the configured list, the option files and
// the command line, in that order.
OptionalString findOverrideJvm(const LaunchContext& context);

}  // namespace bwk
