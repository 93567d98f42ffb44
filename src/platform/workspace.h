#pragma once
// The workspace service: opens an application bundle as an application process of its own.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bwk::platform {

// Launch option bits of the workspace service.
inline constexpr unsigned long kLaunchWithoutAddingToRecents = 0x100;
inline constexpr unsigned long kLaunchWithoutActivation = 0x200;
inline constexpr unsigned long kLaunchAndHide = 0x100000;

struct OpenedApplication {
  int32_t processIdentifier = 0;
  std::string description;  // what a log line shows of it
};

struct OpenResult {
  std::optional<OpenedApplication> application;  // absent when nothing was started
  std::optional<std::string> error;              // the failure's localized description
};

// Opens the bundle at `bundlePath` with `arguments` (absent: none are configured) and the
// option bits above. `executableName` is the bundle's "CFBundleExecutable", for platforms
// that start the executable themselves (absent: this executable). The opened process never
// lingers as an unreaped child of this one, so that kill(pid, 0) fails as soon as it has
// ended.
OpenResult openApplication(const std::string& bundlePath, const std::optional<std::string>& executableName,
                           const std::optional<std::vector<std::string>>& arguments, unsigned long options);

}  // namespace bwk::platform
