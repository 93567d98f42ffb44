// The command-line launcher: the executable carries its own configuration, which stands in
// for an Info dictionary from here on.
#include "base/log.h"
#include "base/path.h"
#include "entry/entry.h"
#include "launcher/launch_state.h"
#include "launcher/launcher.h"

namespace bwk {

int launch_cli(const PlistValue& configuration, int /*argc*/, char** /*argv*/) {
  const PlistDict* entries = configuration.asDictionary();
  BWK_DLOG("%s [Line %d] Loaded plist: %@ %d", configuration, static_cast<int>(entries ? entries->size() : 0));
  g_cli = true;
  s_guiLauncher = true;
  const PlistValue* serviceValue = configuration.find("bwk.service");
  s_serviceMode = configuration.string("bwk.service");
  // Launcher's init leaves the bundle-derived paths alone once this is set.
  s_infoDictionary = configuration;
  s_launcherDirAndName = getExecutablePath();
  s_launcherDirInApp = s_launcherDirAndName ? std::optional<std::string>(path::parent(*s_launcherDirAndName)) : std::nullopt;
  BWK_DLOG("%s [Line %d] service mode: %@ %@", s_serviceMode, serviceValue);
  if (s_serviceMode) return serviceControl();
  return Launcher::launcher()->load().launch();
}

}  // namespace bwk
