#pragma once
// What is wrong with a configuration that would otherwise only show as the runtime's
// "Could not find or load main class (null)".
#include <string>
#include <vector>

#include "launcher/launch_context.h"

namespace bwk {

// Why the launch has no main class, one line each naming the file and the problem: the
// Info.plist that could not be read (with the reader's reason and line), an executable
// outside a "<Name>.app/Contents/MacOS" folder, or the missing key.
std::vector<std::string> missingMainClassReasons(const LaunchContext& context);

}  // namespace bwk
