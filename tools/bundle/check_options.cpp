// Option files and the configured option lists, read line by line with the launcher's rules:
// what it would ignore, stop on, or hand to the runtime as something the runtime refuses.
#include <algorithm>

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"
#include "check_steps.h"
#include "launcher/option_files.h"
#include "launcher/variables.h"
#include "platform/platform.h"

namespace bwk::bundle {

namespace {

class OptionChecker {
 public:
  OptionChecker(const LaunchContext& context, Findings& findings)
      : scope_{context.paths, std::nullopt}, findings_(findings) {}

  // One option as it stands after variables, from `file` at `where`.
  void option(const std::string& line, const std::string& file, const std::string& where,
              const OptionalString& baseDirectory, std::vector<std::string>& chain) {
    if (text::startsWith(line, "-include-options ")) {
      OptionalString found = includedOptionsFile(line.substr(17), baseDirectory);
      if (!found) return;  // relative, and no launcher directory: the launcher does not look for it either
      std::string included = text::replaceAll(*found, "~", platform::homeDirectory());
      if (!fs::exists(included)) {
        findings_.add(file, where, "includes " + included + ", which does not exist");
      } else if (std::find(chain.begin(), chain.end(), included) != chain.end()) {
        findings_.add(file, where,
                      "includes " + findings_.relative(included) +
                          " again, inside itself: the launcher stops with an internal error");
      } else {
        readFile(included, chain);
      }
      return;
    }
    for (const char* directive : {"-classpath", "-classpath/p", "-classpath/a", "-include-options"}) {
      if (line == directive) {
        findings_.add(file, where, std::string("'") + directive + "' without a value reaches the runtime as an option");
        return;
      }
    }
    if (text::startsWith(line, "-jvm=") && !fs::isDirectory(line.substr(5))) {
      findings_.add(file, where,
                    "names " + line.substr(5) + ", which is no directory: the runtime search goes on without it");
    } else if (!text::startsWith(line, "-")) {
      findings_.add(file, where, "'" + line + "' is no option: the runtime would take it for the main class");
    }
  }

  void readFile(const std::string& file, std::vector<std::string>& chain) {
    std::optional<std::string> contents = fs::readFile(file);
    if (!contents || !text::isValidUtf8(*contents)) {
      findings_.add(
          file, "",
          contents ? "is not UTF-8: the launcher ignores the whole file" : "cannot be read: the launcher ignores it");
      return;
    }
    chain.push_back(file);
    std::vector<std::string> lines = text::split(*contents, "\n");
    for (size_t number = 0; number < lines.size(); ++number) {
      // The launcher ends lines at every CR too.
      for (const std::string& piece : text::split(lines[number], "\r")) {
        std::string line = text::trimHorizontal(piece);
        if (line.empty() || line[0] == '#') continue;
        if (text::startsWith(line, "-classpath ") || text::startsWith(line, "-classpath/p ") ||
            text::startsWith(line, "-classpath/a "))
          continue;
        option(*replaceVariables(line, scope_), file, "line " + std::to_string(number + 1), path::parent(file), chain);
      }
    }
    chain.pop_back();
  }

  void list(const PlistValue& javaVM, const std::string& key, const std::string& file,
            const OptionalString& launcherDirectory) {
    const PlistArray* entries = javaVM.array(key);
    if (!entries) return;
    for (size_t i = 0; i < entries->size(); ++i) {
      const std::string* entry = (*entries)[i].asString();
      if (!entry) continue;
      std::vector<std::string> chain;
      option(*replaceVariables(*entry, scope_), file, "JavaVM." + key + "[" + std::to_string(i) + "]",
             launcherDirectory, chain);
    }
  }

 private:
  VariableScope scope_;
  Findings& findings_;
};

}  // namespace

void checkOptions(const LaunchContext& context, Findings& findings) {
  OptionChecker checker(context, findings);
  std::string info = path::append(context.bundle->path(), "Contents/Info.plist");
  checker.list(context.javaVM(), "VMOptionArray", info, context.paths.launcherDirInApp);
  for (const std::string& file : optionFiles(context)) {
    if (!fs::exists(file)) continue;
    std::vector<std::string> chain;
    checker.readFile(file, chain);
  }
}

}  // namespace bwk::bundle
