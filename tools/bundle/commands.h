#pragma once
// The commands of brackwood-bundle; each takes the words after its name and gives the exit
// status, or throws ToolError.
#include <span>
#include <string>

namespace bwk::bundle {

int runCreate(std::span<const std::string> words);
int runCheck(std::span<const std::string> words);

}  // namespace bwk::bundle
