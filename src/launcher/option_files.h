#pragma once
// Option files (.vmoptions, vmoptions.txt) and the configured option lists: options in
// reading order, includes, and the class-path directives of option files.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "launcher/launch_context.h"
#include "launcher/variables.h"

namespace bwk {

// Option files may include each other; deeper than this is a cycle, and the start ends.
inline constexpr int kMaxOptionFileDepth = 32;

// The file that "-include-options NAME" names: NAME unquoted, and taken in `baseDirectory`
// when relative (without one, none).
OptionalString includedOptionsFile(std::string_view value, const OptionalString& baseDirectory);

// Appends the options of the file at `path` (variables replaced, every "~" the home
// directory) and returns the class path afterwards. A missing, unreadable or non-UTF-8 file
// contributes nothing. Throws ReportedFailure when includes nest deeper than the limit.
OptionalString readOptionsFile(const OptionalString& path, std::vector<std::string>& options, OptionalString classPath,
                               const VariableScope& scope);

// Appends a configured list ("VMOptionArray" or a version-specific list): each entry with its
// variables replaced, "-include-options FILE" entries read relative to the launcher
// directory. Returns the class path afterwards.
OptionalString addPredefinedOptions(const std::optional<std::vector<std::string>>& list,
                                    std::vector<std::string>& options, OptionalString classPath,
                                    const VariableScope& scope);

// The option files of a launch in reading order: the bundle's Contents/vmoptions.txt (not for
// a command-line launcher), then the ".vmoptions" file beside the bundle or the executable.
std::vector<std::string> optionFiles(const LaunchContext& context);

}  // namespace bwk
