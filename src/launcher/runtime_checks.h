#pragma once
// Acceptance of a candidate runtime: its version texts, the pre-release rule, the
// architecture rule under translation, and the configured range.
#include <optional>
#include <string>

#include "base/plist.h"
#include "launcher/runtime_bundle.h"

namespace bwk {

struct AcceptedVersion {
  std::string shortVersion;  // the text before the first "_" or "+": what JLI_Launch is told
  std::string version;       // the full version text that was checked
  int majorVersion = -1;     // the first number, or the second when the first is 1
};

// The check of a version text and the texts that may mark a pre-release. `plugin`: the
// applet plug-in's versions (1.8.291.10 stands for 1.8.0_291).
std::optional<AcceptedVersion> checkBundleVersion(const std::optional<std::string>& min,
                                                  const std::optional<std::string>& max, bool allowBeta, bool plugin,
                                                  const std::optional<std::string>& bundleVersion,
                                                  const std::optional<std::string>& evarVersion,
                                                  const std::optional<std::string>& infoString);

// The check of an opened runtime (none: refused), its texts read from its Info dictionary.
std::optional<AcceptedVersion> checkJavaVersion(const RuntimeBundle* runtime, const std::optional<std::string>& min,
                                                const std::optional<std::string>& max, bool allowBeta, bool plugin);

// The configured minimum ("bwk.minVersion"), the insert of the message shown when no runtime
// is found.
std::optional<std::string> getJavaMinVersion(const PlistValue& configuration);

}  // namespace bwk
