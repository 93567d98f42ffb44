#pragma once
// Application mode: the window front end's loop on the main thread, the delegate, and the
// worker on a background thread.
#include <optional>

namespace bwk {

// Runs the application: never returns when the front end started (the worker ends the
// process). Absent when no window front end can be loaded or initialised here (no GTK, no
// display), so that the caller runs the command-line mode instead.
std::optional<int> NSApplicationMain(int argc, char** argv);

}  // namespace bwk
