#pragma once
// The process entry and the routines it dispatches to.
#include <optional>
#include <string>
#include <vector>

#include "base/bundle.h"
#include "base/plist.h"
#include "launcher/launch_context.h"
#include "platform/embedded_config.h"

namespace bwk {

// main's body: decides the mode and runs it.
int processMain(int argc, char** argv);
// Whether a graphical user interface may be shown (AWT_FORCE_HEADFUL, or the session).
bool isInGraphicalSession();
// The runtime's re-invocation, the workspace markers and the authorization restart.
int launcher_main(int argc, char** argv);
std::optional<std::string> getExecutablePath();
// Whether a region found in the executable holds a configuration (a command-line launcher).
bool carriesConfiguration(const std::optional<platform::EmbeddedRegion>& region);

// Reopens the application bundle as a new process and waits for it.
int workspace_open(bool hidden, const std::vector<std::string>& arguments);
void forward_sigterm(int sig);

// The command-line launcher path: configuration already parsed. Returns the exit status.
int launch_cli(const PlistValue& configuration, const Bundle& bundle, const std::vector<std::string>& arguments);
// Service control (the configuration named a service mode): returns the exit status.
int serviceControl(const LaunchContext& context);

}  // namespace bwk
