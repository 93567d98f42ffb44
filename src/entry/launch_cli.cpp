// The command-line launcher: the executable carries its own configuration, which stands in
// for an Info dictionary from here on.
#include "base/log.h"
#include "entry/entry.h"
#include "launcher/launcher.h"

namespace bwk {

int launch_cli(const PlistValue& configuration, const Bundle& bundle, const std::vector<std::string>& arguments) {
  const PlistDict* entries = configuration.asDictionary();
  BWK_DLOG("%s [Line %d] Loaded plist: %@ %d", configuration, static_cast<int>(entries ? entries->size() : 0));
  BWK_DLOG("%s [Line %d] service mode: %@ %@", configuration.string("bwk.service"), configuration.find("bwk.service"));
  const LaunchContext context =
      LaunchContext::forEmbeddedConfiguration(bundle, configuration, getExecutablePath(), arguments);
  if (context.serviceMode) return serviceControl(context);
  return Launcher(context).load().launch();
}

}  // namespace bwk
