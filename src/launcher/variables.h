#pragma once
// Launcher variables ("${launcher:sys.appRootDir}" ...), environment variables ("${NAME}")
// and ":"-separated path lists with "$NAME" and "dir/*" entries.
#include <optional>
#include <string>

#include "launcher/launch_context.h"

namespace bwk {

// What the launcher variables stand for in one launch.
struct VariableScope {
  const LaunchPaths& paths;
  // The chosen runtime's path; "${launcher:sys.jvmHome}" stays in the text while it is unset.
  OptionalString runtimePath;
};

// One pass of plain replacements in a fixed order, launcher variables first, then the
// environment's; text inserted by a replacement is seen only by the ones after it.
OptionalString replaceVariables(const OptionalString& text, const VariableScope& scope);

// Expands "$NAME" entries (the variable's value; unset: dropped) and "dir/*" entries (every
// .jar and .zip of the directory, in listing order). Absent when no entry is left.
OptionalString resolveArtifactPath(const OptionalString& pathList);

}  // namespace bwk
