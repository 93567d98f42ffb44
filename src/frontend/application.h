#pragma once
// Application mode: the window front end's loop on the main thread, the delegate, and the
// installation worker on a background thread.
#include <optional>
#include <string>
#include <vector>

#include "base/bundle.h"

namespace bwk {

// Runs the application of `bundle`: never returns when the front end started (the worker
// ends the process). Absent when no window front end can be loaded or initialised here (no
// GTK, no display), so that the caller runs the command-line mode instead.
std::optional<int> runApplication(const Bundle& bundle, const std::vector<std::string>& arguments);

}  // namespace bwk
