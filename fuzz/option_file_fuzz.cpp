// Any bytes as an option file (.vmoptions), with its variables, class-path directives and
// includes.
//
// The input is written under a fixed name in a private directory that holds one other file,
// "more.vmoptions"; an include may name either, so the input may include itself, which the
// reader ends at its depth limit. Inputs whose include names could reach anything else (a
// "/", "~" or "$" after "-include-options" on the same line) are rejected. With the
// environment emptied and every launcher directory set, no variable expands to nothing, so
// no replacement can splice an include into a line that did not spell it out.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/bundle.h"
#include "base/errors.h"
#include "base/fs.h"
#include "base/strings.h"
#include "launcher/launch_context.h"
#include "launcher/option_files.h"
#include "scratch_dir.h"

namespace {

constexpr std::string_view kInclude = "-include-options";

struct Sandbox {
  bwk::fuzz::ScratchDir dir{"bwk-option-fuzz"};
  std::string input = dir / "input.vmoptions";
  bwk::Bundle bundle{dir / "Tool.app"};
  bwk::LaunchContext context;

  Sandbox() {
    ::clearenv();
    bwk::fuzz::require(bwk::fs::writeFile(dir / "more.vmoptions", "-Dincluded=1\r-classpath/a more.jar\n# end\n"),
                       "cannot write the included file");
    context = bwk::LaunchContext::forBundle(bundle, {"/prog"}, true);
    context.paths.launcherDirInApp = dir.path();
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
  bwk::VariableScope scope{sandbox.context.paths, std::nullopt};
  for (const bwk::OptionalString& start : {bwk::OptionalString(), bwk::OptionalString("start.jar")}) {
    std::vector<std::string> options;
    bwk::OptionalString classPath;
    try {
      classPath = bwk::readOptionsFile(sandbox.input, options, start, scope);
    } catch (const bwk::ReportedFailure& failure) {
      // Includes that never end: refused at the depth limit, naming a file of the sandbox.
      bwk::fuzz::require(failure.info() && bwk::text::startsWith(*failure.info(), sandbox.dir.path()),
                         "a runaway include names no file of the sandbox");
      continue;
    }
    checkOptions(options);
    if (!readable) {
      bwk::fuzz::require(options.empty(), "options read from a file that is not UTF-8");
      bwk::fuzz::require(classPath == start, "class path changed by a file that is not UTF-8");
    }
  }
  return 0;
}
