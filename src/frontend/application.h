#pragma once
// Application mode: the window front end's loop on the main thread, the delegate, and the
// installation worker on a background thread.
#include <optional>

#include "install/app_delegate.h"

namespace bwk {

// Runs the application whose worker is `delegate` (it lives as long as the process): never
// returns when it started (the worker ends the process). Absent when no window front end
// can be loaded or initialised here (no GTK, no display), so that the caller runs the same
// delegate in command-line mode instead.
std::optional<int> runApplication(AppDelegate& delegate);

}  // namespace bwk
