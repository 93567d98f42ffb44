#pragma once
// The English texts "create" writes for every message and window text the launcher looks up.
#include <string>
#include <vector>

#include "plist_writer.h"

namespace bwk::bundle {

// One entry per message key, each with a comment that names its inserts. Without a minimum
// version the launcher shows the runtime message unformatted, so that text has no inserts.
std::vector<StringsEntry> defaultStrings(const std::string& applicationName, bool hasMinimumVersion);

}  // namespace bwk::bundle
