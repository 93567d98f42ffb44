#pragma once
#include <functional>

namespace bwk {

// Progress of extraction and unpacking: a percentage (0 to 100, not clamped) and a status
// text that may be null. It may throw InstallationCancelled to abort.
using ProgressCallback = std::function<void(double percent, const char* status)>;

}  // namespace bwk
