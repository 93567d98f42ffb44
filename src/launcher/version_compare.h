#pragma once
// Version texts of runtimes: how they split, order and compare with a configured bound.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bwk {

// 0 numeric, 1 alphabetic, 2 separator: the class of the text's first character.
int typeOfCharacter(std::string_view s);
// Runs of digits, runs of letters, and separators one by one.
std::vector<std::string> splitVersionString(std::string_view s);
// Negative, zero or positive as `a` is older than, equal to or newer than `b`.
int compareVersion(std::string_view a, std::string_view b);
// Whether the components lie on the right side of the bound (inclusive to the bound's own
// precision); an absent or empty bound always passes.
bool compareVersion(const std::optional<std::string>& bound, const std::vector<std::string>& versionList, bool max);
// "beta", "ea" or "rc" anywhere in the text.
bool isBetaVersion(const std::optional<std::string>& s);
// A runtime folder name without its "openjdk-", "jdk-", "jre" ... prefix.
std::string removeJrePrefix(std::string_view name);

}  // namespace bwk
