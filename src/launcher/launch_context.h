#pragma once
// What a launch knows before a runtime is chosen: the bundle, the configuration, the
// directories that configured paths are resolved against, the kind of launcher and the
// command line. Made once per start (init), then only read.
#include <optional>
#include <string>
#include <vector>

#include "base/bundle.h"
#include "base/plist.h"

namespace bwk {

using OptionalString = std::optional<std::string>;

struct LaunchPaths {
  // The application bundle (ends in ".app"); for a single-bundle layout the outer bundle.
  // Unset for a command-line launcher.
  OptionalString mainBundlePath;
  // The launcher directory: relative paths of the configuration are resolved against it.
  OptionalString launcherDirInApp;
  // The bundle path less its extension (/Applications/Tool.app gives /Applications/Tool), or
  // a command-line launcher's own path.
  OptionalString launcherDirAndName;
  // The installation's root directory.
  OptionalString appRootDir;
};

struct LaunchContext {
  // The running executable's bundle: its strings give the messages.
  const Bundle* bundle = nullptr;
  // The bundle's Info dictionary, or the configuration embedded in a command-line launcher.
  PlistValue configuration{PlistDict{}};
  LaunchPaths paths;
  // The configuration is embedded in the executable (a command-line launcher).
  bool commandLineLauncher = false;
  // The service mode of a command-line launcher ("bwk.service").
  OptionalString serviceMode;
  // No graphical session: errors go to standard error, no alert is shown.
  bool reportOnStandardError = false;
  // The process's arguments as main received them; the first is the program.
  std::vector<std::string> arguments;

  // The "JavaVM" dictionary, or an empty one when it is missing or no dictionary.
  const PlistValue& javaVM() const;

  // An application bundle's launch: its Info dictionary and paths.
  static LaunchContext forBundle(const Bundle& bundle, std::vector<std::string> arguments, bool reportOnStandardError);
  // A command-line launcher's: the embedded configuration and the executable's own path.
  static LaunchContext forEmbeddedConfiguration(const Bundle& bundle, PlistValue configuration,
                                                const OptionalString& executablePath,
                                                std::vector<std::string> arguments);
};

}  // namespace bwk
