#pragma once
// The launcher's own command line, handed on to the Java application.
#include <string>
#include <vector>

#include "launcher/launch_context.h"

namespace bwk {

// Appends the command-line words to the arguments, or, with "bwk.allowPassthrough", words
// beginning with "-J" (less the prefix) to the options. A "-psn_" word in first position is
// dropped; a service launcher's first word leads the arguments.
void addCommandLineParameters(const LaunchContext& context, std::vector<std::string>& options,
                              std::vector<std::string>& args);

}  // namespace bwk
