// Bundles, the graphical session and the user defaults on Linux.
#include <cstdlib>

#include "base/path.h"
#include "base/strings.h"
#include "platform/platform.h"

namespace bwk::platform {

std::string mainBundlePath() {
  auto exe = executablePath();
  if (!exe) return ".";
  std::string macos = path::parent(*exe);
  std::string contents = path::parent(macos);
  std::string bundle = path::parent(contents);
  if (path::lastComponent(macos) == "MacOS" && path::lastComponent(contents) == "Contents" &&
      text::endsWith(bundle, ".app"))
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
