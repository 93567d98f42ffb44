// Where runtimes live on Linux and how their launcher library is found.
#include <cstdlib>

#include "platform/platform.h"

namespace bwk::platform {

std::string installedRuntimesDirectory() { return "/usr/lib/jvm"; }
std::optional<std::string> appletPluginPath() { return std::nullopt; }
std::optional<int> requiredRuntimeArchitecture() { return std::nullopt; }
bool runtimeHasArchitecture(const std::string&, int) { return true; }

std::vector<std::string> runtimeLibraryCandidates() {
  return {"Contents/Home/jre/lib/jli/libjli.so",
          "Contents/Home/lib/jli/libjli.so",
          "Contents/Home/lib/libjli.so",
          "lib/jli/libjli.so",
          "jre/lib/amd64/jli/libjli.so",
          "lib/amd64/jli/libjli.so",
          "lib/libjli.so"};
}

std::string appletPluginLibrary() { return "/nonexistent/applet-plugin/libjli.so"; }

std::string installationRecordsFile() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  std::string base = (xdg && *xdg) ? std::string(xdg) : homeDirectory() + "/.config";
  if (base.back() != '/') base += '/';
  return base + "brackwood/com.brackwood.installations.plist";
}

}  // namespace bwk::platform
