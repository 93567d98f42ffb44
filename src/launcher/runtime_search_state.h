#pragma once
// The state of one runtime search, named as the launch object's fields: the search operations
// leave their outcome here, and a later step may look at what an earlier one tried.
#include <memory>
#include <optional>
#include <string>

#include "launcher/launch_context.h"
#include "launcher/runtime_bundle.h"
#include "launcher/runtime_checks.h"
#include "launcher/variables.h"

namespace bwk {

class RuntimeSearch {
 public:
  explicit RuntimeSearch(const LaunchContext& launch) : context(launch) {}

  // Opens `path` as the candidate and checks it: kept when accepted, dropped otherwise.
  // `javaBundlePath` is left at `path` either way.
  bool tryBundle(const std::string& path, const OptionalString& min, const OptionalString& max, bool allowBeta,
                 bool plugin = false);
  // Records a check's result in launchJavaVersion (none when refused) and, when accepted,
  // the version fields.
  bool record(const std::optional<AcceptedVersion>& accepted);
  // Variables as they stand at this point of the search: "${launcher:sys.jvmHome}" follows
  // the path tried last.
  OptionalString replaceVariables(const OptionalString& text) const;

  // The search operations.
  void findDirectoryJavaBundle(const OptionalString& path, const OptionalString& min, const OptionalString& max,
                               bool allowBeta);
  void findPublicJavaBundle(const OptionalString& min, const OptionalString& max, bool allowBeta);
  void findJavaPreviousInstallation(const OptionalString& min, const OptionalString& max, bool allowBeta);

  const LaunchContext& context;
  std::shared_ptr<RuntimeBundle> javaBundle;
  OptionalString javaBundlePath;
  OptionalString javaVersion;
  int javaMajorVersion = -1;
  bool pluginUsed = false;
  bool previousJdkUsed = false;
  // Set once a runtime is accepted: its short version.
  OptionalString launchJavaVersion;
};

}  // namespace bwk
