// Option files (.vmoptions, vmoptions.txt) and the configured option lists, with their
// includes and class-path directives.
#include "launcher/option_files.h"

#include "base/errors.h"
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// The platform writes an absent value as "(null)" when it is formatted into a text.
std::string orNull(const OptionalString& s) { return s.value_or("(null)"); }

OptionalString readNested(const OptionalString& filePath, std::vector<std::string>& options, OptionalString classPath,
                          const VariableScope& scope, int depth) {
  if (!filePath) return classPath;
  std::string file = text::replaceAll(*replaceVariables(filePath, scope), "~", platform::homeDirectory());
  if (depth > kMaxOptionFileDepth) {
    BWK_SYSLOG("%s [Line %d] option files nested deeper than %d at %@", kMaxOptionFileDepth, file);
    throw ReportedFailure("fenmo.InternalError", file);
  }
  BWK_DLOG("%s [Line %d] option file %@", file);
  auto contents = fs::readFile(file);
  if (!contents || !text::isValidUtf8(*contents)) return classPath;

  // Lines end at every CR and at every LF, each by itself.
  for (const std::string& rawLine : text::splitAny(*contents, "\r\n")) {
    std::string line = text::trimHorizontal(rawLine);
    BWK_DLOG("%s [Line %d] option %@", line);
    if (line.empty() || line[0] == '#') continue;
    line = *replaceVariables(line, scope);
    if (text::startsWith(line, "-classpath ")) {
      classPath = line.substr(11);
    } else if (text::startsWith(line, "-classpath/p ")) {
      classPath = line.substr(13) + ":" + orNull(classPath);
    } else if (text::startsWith(line, "-classpath/a ")) {
      // Without a class path the appended part is dropped (unlike "/p").
      if (classPath) classPath = *classPath + ":" + line.substr(13);
    } else if (text::startsWith(line, "-include-options ")) {
      classPath =
          readNested(includedOptionsFile(line.substr(17), path::parent(file)), options, classPath, scope, depth + 1);
    } else {
      options.push_back(line);
    }
  }
  return classPath;
}

}  // namespace

OptionalString includedOptionsFile(std::string_view value, const OptionalString& baseDirectory) {
  std::string name = text::unquoted(value);
  if (path::isAbsolute(name)) return name;
  // A relative name needs a directory; without one the file is not looked for.
  return baseDirectory ? OptionalString(path::append(*baseDirectory, name)) : std::nullopt;
}

OptionalString readOptionsFile(const OptionalString& filePath, std::vector<std::string>& options,
                               OptionalString classPath, const VariableScope& scope) {
  return readNested(filePath, options, std::move(classPath), scope, 1);
}

OptionalString addPredefinedOptions(const std::optional<std::vector<std::string>>& list,
                                    std::vector<std::string>& options, OptionalString classPath,
                                    const VariableScope& scope) {
  if (!list) return classPath;
  for (const std::string& entry : *list) {
    if (text::startsWith(entry, "-include-options ")) {
      OptionalString file =
          includedOptionsFile(*replaceVariables(entry.substr(17), scope), scope.paths.launcherDirInApp);
      classPath = readOptionsFile(file, options, classPath, scope);
    } else {
      options.push_back(*replaceVariables(entry, scope));
    }
  }
  return classPath;
}

std::vector<std::string> optionFiles(const LaunchContext& context) {
  // Without a known launcher path there is no file to name: a relative ".vmoptions" would be
  // looked up in whatever the current directory is.
  const OptionalString& base = context.paths.launcherDirAndName;
  if (!base) return {};
  std::vector<std::string> files;
  if (!context.commandLineLauncher) files.push_back(*base + ".app/Contents/vmoptions.txt");
  files.push_back(*base + ".vmoptions");
  return files;
}

}  // namespace bwk
