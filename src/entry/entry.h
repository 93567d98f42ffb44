#pragma once
// The process entry and the routines it dispatches to.
#include <cstdint>
#include <optional>
#include <string>

#include "base/plist.h"

namespace bwk {

// main's body: decides the mode and runs it.
int processMain(int argc, char** argv);
bool isInAquaSession();
// The runtime's re-invocation, the workspace markers and the authorization restart.
int launcher_main(int argc, char** argv);
std::optional<std::string> getExecutablePath();

// Reopens the application bundle as a new process and waits for it.
int workspace_open(bool hidden);
void forward_sigterm(int sig);

// The configuration embedded in the executable: the length-prefixed region (u32 L, then L
// bytes of a property list) and its size as the container records it.
struct EmbeddedRegion {
  const uint8_t* address = nullptr;
  uint64_t size = 0;
};
// Absent when the executable carries no embedded configuration.
std::optional<EmbeddedRegion> findEmbeddedConfiguration();

// The command-line launcher path: configuration already parsed. Returns the exit status.
int launch_cli(const PlistValue& configuration, int argc, char** argv);
// Service control (the configuration named a service mode): returns the exit status.
int serviceControl();

}  // namespace bwk
