#pragma once
// Ahead-of-time cache options for runtimes of major version 25 and later.
#include <string>
#include <vector>

#include "launcher/launch_context.h"
#include "launcher/runtime_search.h"

namespace bwk {

// Zero, one or three options: the cache of this application, build, runtime version and
// runtime location when it exists, else a training run that writes it (stale caches of the
// same application removed first). Makes the cache directory and its "install-dir" file.
std::vector<std::string> addAotCacheOption(const LaunchContext& context, const ChosenRuntime& runtime);

}  // namespace bwk
