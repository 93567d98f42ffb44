#pragma once
// The AOT cache's build identifier: a digest of the application's code as shipped, so that
// every change of a jar gives a new cache, trained afresh, and a stale one is never used.
#include <string>

namespace bwk::bundle {

// Hex digest of the names and contents of every .jar, .zip and .class file below
// `appRoot`, in name order; a runtime shipped there is not part of it.
std::string applicationBuildId(const std::string& appRoot);

}  // namespace bwk::bundle
