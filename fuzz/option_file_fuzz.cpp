// Any bytes as an option file (.vmoptions), with its variables, class-path directives and
// includes.
//
// An include is followed wherever it points, and a file that includes itself recurses
// without end. So the input is written under a random name in a private directory that holds
// one other file, "more.vmoptions", which includes nothing; and inputs whose include names
// could reach anything else (a "/", "~" or "$" after "-include-options" on the same line)
// are rejected. With the environment emptied and every launcher directory set, no variable
// expands to nothing, so no replacement can splice an include into a line that did not
// spell it out.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/fs.h"
#include "base/strings.h"
#include "launcher/launcher.h"
#include "platform/platform.h"
#include "scratch_dir.h"

namespace {

constexpr std::string_view kInclude = "-include-options";

struct Sandbox {
  bwk::fuzz::ScratchDir dir{"bwk-option-fuzz"};
  std::string input = dir / (bwk::platform::globallyUniqueString() + ".vmoptions");
  std::unique_ptr<bwk::Launcher> launcher;

  Sandbox() {
    ::clearenv();
    bwk::fuzz::require(bwk::fs::writeFile(dir / "more.vmoptions", "-Dincluded=1\r-classpath/a more.jar\n# end\n"),
                       "cannot write the included file");
    bwk::resetLaunchState();
    bwk::platform::setProcessArguments(std::vector<std::string>{"/prog"});
    bwk::s_infoDictionary = bwk::PlistValue(bwk::PlistDict{});
    bwk::s_mainBundlePath = dir / "Tool.app";
    bwk::s_launcherDirInApp = dir.path();
    bwk::s_launcherDirAndName = dir / "Tool";
    launcher = std::make_unique<bwk::Launcher>();  // sets the application root from these
  }
};

// Every include names a file of the sandbox directory: one path component, no variables.
bool includesStayInside(std::string_view bytes) {
  for (size_t at = bytes.find(kInclude); at != std::string_view::npos; at = bytes.find(kInclude, at + 1)) {
    std::string_view line = bytes.substr(at, bytes.find_first_of("\r\n", at) - at);
    if (line.find_first_of("/~$") != std::string_view::npos) return false;
  }
  return true;
}

void checkOptions(const std::vector<std::string>& options) {
  for (const std::string& option : options) {
    bwk::fuzz::require(!option.empty(), "empty option");
    bwk::fuzz::require(option.find_first_of("\r\n") == std::string::npos, "option spans lines");
    bwk::fuzz::require(bwk::text::isValidUtf8(option), "option is not UTF-8");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sandbox sandbox;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (!includesStayInside(bytes)) return -1;
  bwk::fuzz::require(bwk::fs::writeFile(sandbox.input, std::string(bytes)), "cannot write the input");

  const bool readable = bwk::text::isValidUtf8(bytes);
  for (const bwk::OptionalString& start : {bwk::OptionalString(), bwk::OptionalString("start.jar")}) {
    std::vector<std::string> options;
    bwk::OptionalString classPath = sandbox.launcher->readOptionsFile(sandbox.input, options, start);
    checkOptions(options);
    if (!readable) {
      bwk::fuzz::require(options.empty(), "options read from a file that is not UTF-8");
      bwk::fuzz::require(classPath == start, "class path changed by a file that is not UTF-8");
    }
  }
  return 0;
}
