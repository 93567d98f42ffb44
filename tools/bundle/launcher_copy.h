#pragma once
// The launcher as it goes into an application: without debugging information, and for a
// command-line launcher carrying its configuration.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bwk::bundle {

struct PreparedLauncher {
  std::vector<uint8_t> bytes;
  uint64_t originalSize = 0;
};

// Reads the launcher at `path`; an ELF file is stripped (a Mach-O file carries no debugging
// information of its own and is taken as it is); with `configuration` (property-list bytes),
// the configuration is embedded. Absent, with the reason, on failure.
std::optional<PreparedLauncher> prepareLauncher(const std::string& path,
                                                const std::optional<std::string>& configuration, std::string* error);

// The launcher beside this program ("brackwood-launcher" in the same directory).
std::optional<std::string> defaultLauncherPath();

}  // namespace bwk::bundle
