// The entry for the runtime's re-invocation, the workspace markers and the authorization
// restart, where an embedded configuration turns the executable into a command-line launcher.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/errors.h"
#include "base/log.h"
#include "base/plist_reader.h"
#include "entry/entry.h"
#include "install/temporary_directory.h"
#include "launcher/jli.h"
#include "launcher/launcher.h"
#include "launcher/messages.h"
#include "platform/embedded_config.h"
#include "platform/platform.h"

namespace bwk {

std::optional<std::string> getExecutablePath() { return platform::executablePath(); }

bool carriesConfiguration(const std::optional<platform::EmbeddedRegion>& region) {
  // A region shorter than the length and one byte of a property list is none.
  return region && static_cast<int32_t>(static_cast<uint32_t>(region->size)) >= 5;
}

int launcher_main(int argc, char** argv) {
  BWK_DLOG("%s [Line %d] launcher_main %d", argc);
  if (argc >= 2 && std::strcmp(argv[1], "__bwk_workspace_open") == 0) {
    BWK_DLOG("%s [Line %d] workspace open");
    return workspace_open(false, std::vector<std::string>(argv, argv + argc));
  }
  if (argc >= 2 && std::strcmp(argv[1], "__bwk_workspace_open_hidden") == 0) {
    BWK_DLOG("%s [Line %d] workspace open hidden");
    return workspace_open(true, std::vector<std::string>(argv, argv + argc));
  }
  // The runtime calling main again: hand it straight back.
  if (JLI_LaunchFxnPtr) return reinvokeJavaLaunch(argc, argv);

  // Reached through the authorization restart, or by a plain start of a command-line
  // launcher: errors go to standard error.
  removeAbandonedTemporaryDirectories();
  const Bundle bundle(platform::mainBundlePath());
  const std::vector<std::string> arguments(argv, argv + argc);
  try {
    std::optional<platform::EmbeddedRegion> region = platform::embeddedConfigurationRegion();
    BWK_DLOG("%s [Line %d] embedded config %p %d", static_cast<const void*>(region ? region->address : nullptr),
             static_cast<int>(region ? static_cast<int32_t>(region->size) : 0));
    if (!carriesConfiguration(region)) {
      // An application bundle.
      const LaunchContext context = LaunchContext::forBundle(bundle, arguments, true);
      return Launcher(context).load().launch();
    }
    uint32_t length = 0;
    std::memcpy(&length, region->address, sizeof length);  // little-endian on every target
    BWK_DLOG("%s [Line %d] plist length %d", static_cast<int>(length));
    std::string error;
    // The length is trusted, but never read past the region the container holds: a hostile
    // length only shortens what the parser sees.
    uint64_t available = region->size - 4;
    std::optional<PlistValue> configuration = readPropertyList(
        std::string_view(reinterpret_cast<const char*>(region->address) + 4, std::min<uint64_t>(length, available)),
        &error);
    if (!configuration) {
      BWK_SYSLOG("%s [Line %d] Failed to parse plist: %@", error);
      std::fputs("ERROR: Could not load embedded plist.\n", stderr);
      std::fflush(stderr);
      return 1;
    }
    return launch_cli(*configuration, bundle, arguments);
  } catch (const ReportedFailure& failure) {
    displayError(bundle, bundle.infoDictionary(), true, failure.messageKey(), failure.info());
    return 1;
  } catch (const PlatformException& e) {
    BWK_SYSLOG("%s [Line %d] %@: %@", e.name() + ": " + e.reason(), e.callStackSymbols());
    displayInternalError(bundle, bundle.infoDictionary(), true, e);
    return 1;
  }
}

}  // namespace bwk
