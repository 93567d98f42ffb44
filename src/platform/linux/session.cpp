// Bundles, the graphical session and the user defaults on Linux.
#include <algorithm>
#include <cstdlib>

#include "platform/platform.h"

namespace bwk::platform {

std::string mainBundlePath() {
  std::optional<std::string> exe = executablePath();
  if (!exe) return ".";
  // The path is absolute and canonical: its parents are plain prefixes.
  auto parent = [](const std::string& p) { return p.substr(0, std::max<size_t>(p.rfind('/'), 1)); };
  auto name = [](const std::string& p) { return p.substr(p.rfind('/') + 1); };
  std::string macos = parent(*exe);
  std::string contents = parent(macos);
  std::string bundle = parent(contents);
  if (name(macos) == "MacOS" && name(contents) == "Contents" && bundle.size() > 4 &&
      bundle.compare(bundle.size() - 4, 4, ".app") == 0)
    return bundle;
  return macos;
}

bool hasGraphicSession() {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
    const char* v = std::getenv(name);
    if (v && *v) return true;
  }
  return false;
}

std::optional<std::string> runningApplicationBundleIdentifier() { return std::nullopt; }
bool supportsDockOptions() { return false; }
void setUserDefault(const std::string&, const std::string&) {}
std::optional<std::string> userLocale() { return std::nullopt; }

}  // namespace bwk::platform
