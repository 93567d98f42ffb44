// Which of the five ways the process runs: the runtime's re-invocation, the workspace
// markers, the authorization restart, command-line mode or application mode.
#include <strings.h>

#include <cstring>

#include "base/errors.h"
#include "base/log.h"
#include "entry/entry.h"
#include "frontend/application.h"
#include "install/app_delegate.h"
#include "install/temporary_directory.h"
#include "launcher/jli.h"
#include "platform/platform.h"

namespace bwk {

bool isInGraphicalSession() {
  const char* forced = std::getenv("AWT_FORCE_HEADFUL");
  if (forced && std::strlen(forced) >= 4 && strncasecmp(forced, "true", 4) == 0) {
    BWK_DLOG("%s [Line %d] force headful");
    return true;
  }
  if (platform::hasGraphicSession()) {
    BWK_DLOG("%s [Line %d] full graphic session");
    return true;
  }
  BWK_DLOG("%s [Line %d] no full graphic session");
  return false;
}

namespace {

// Command-line mode: the worker on the main thread, no event loop. The worker ends the
// process; an exception it lets through is logged.
int runCommandLineMode(AppDelegate& delegate) {
  BWK_DLOG("%s [Line %d] cli mode");
  try {
    delegate.useCommandLineMode();
    BWK_DLOG("%s [Line %d] app delegate %p", static_cast<const void*>(&delegate));
    delegate.worker();
  } catch (const PlatformException& e) {
    BWK_SYSLOG("%s [Line %d] %@: %@", e.name() + ": " + e.reason(), e.callStackSymbols());
    return 1;
  }
}

}  // namespace

int processMain(int argc, char** argv) {
  if (g_javaMainInvocation) {
    BWK_DLOG("%s [Line %d] invoke java");
    return launcher_main(argc, argv);
  }
  BWK_DLOG("%s [Line %d] app started %d", argc);
  for (int i = 0; i < argc; ++i) BWK_DLOG("%s [Line %d] arg %s", argv[i]);

  if (argc >= 2) {
    if (std::strcmp(argv[1], "__bwk_auth_restart") == 0) {
      BWK_DLOG("%s [Line %d] authorization restart");
      return launcher_main(argc, argv);
    }
    if (std::strcmp(argv[1], "__bwk_workspace_open") == 0 || std::strcmp(argv[1], "__bwk_workspace_open_hidden") == 0) {
      BWK_DLOG("%s [Line %d] workspace open");
      return launcher_main(argc, argv);
    }
  }

  // An executable that carries its own configuration is a command-line launcher: started
  // plainly it takes the command-line path, its first argument a service action.
  if (carriesConfiguration(platform::embeddedConfigurationRegion())) {
    BWK_DLOG("%s [Line %d] command-line launcher");
    return launcher_main(argc, argv);
  }

  bool commandLine = !isInGraphicalSession();
  bool splash = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-q") == 0 || std::strcmp(argv[i], "-c") == 0) commandLine = true;
    if (std::strcmp(argv[i], "-splash") == 0) splash = true;
  }
  // What killed processes left in the temporary directory goes, without holding up this start.
  removeAbandonedTemporaryDirectories();
  // The bundle and the delegate outlive every thread that reads them: the worker ends the
  // process with exit, which does not unwind this frame.
  const Bundle bundle(platform::mainBundlePath());
  AppDelegate delegate(bundle, std::vector<std::string>(argv, argv + argc), false);
  // A splash screen needs the application loop.
  if (splash || !commandLine) {
    if (std::optional<int> status = runApplication(delegate)) return *status;
  }
  return runCommandLineMode(delegate);
}

}  // namespace bwk
