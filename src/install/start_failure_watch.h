#pragma once
// Application mode: a start that fails on the Java side ends with an alert that shows the
// runtime's own lines, which nobody sees on standard error when the application was opened
// from the desktop.
#include "launcher/launch_context.h"

namespace bwk {

// Passes standard error through this process and, when the process ends, shows an alert if
// what was written last and the status tell of a failed start. Call once, before the launch;
// `context` gives the alert's header and the application's name.
void watchJavaStart(const LaunchContext& context);

}  // namespace bwk
