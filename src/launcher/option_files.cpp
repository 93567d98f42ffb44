// Option files (.vmoptions, vmoptions.txt) and the configured option lists, with their
// includes and class-path directives.
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// An include name in double quotes on both sides loses them; quoted on one side it keeps them.
std::string unquote(std::string name) {
  if (name.size() >= 2 && name.front() == '"' && name.back() == '"') return name.substr(1, name.size() - 2);
  return name;
}

// Lines end at every CR and at every LF, each by itself.
std::vector<std::string> splitLines(const std::string& contents) {
  std::vector<std::string> lines;
  std::string current;
  for (char c : contents) {
    if (c == '\r' || c == '\n') {
      lines.push_back(std::move(current));
      current.clear();
    } else {
      current += c;
    }
  }
  lines.push_back(std::move(current));
  return lines;
}

// The platform writes an absent value as "(null)" when it is formatted into a text.
std::string orNull(const OptionalString& s) { return s.value_or("(null)"); }

}  // namespace

OptionalString Launcher::readOptionsFile(const OptionalString& filePath, std::vector<std::string>& options,
                                         OptionalString classPath) {
  if (!filePath) return classPath;
  std::string file = text::replaceAll(*replaceVariables(filePath), "~", platform::homeDirectory());
  BWK_DLOG("%s [Line %d] option file %@", file);
  auto contents = fs::readFile(file);
  if (!contents || !text::isValidUtf8(*contents)) return classPath;

  for (const std::string& rawLine : splitLines(*contents)) {
    std::string line = text::trimHorizontal(rawLine);
    BWK_DLOG("%s [Line %d] option %@", line);
    if (line.empty() || line[0] == '#') continue;
    line = *replaceVariables(line);
    if (text::startsWith(line, "-classpath ")) {
      classPath = line.substr(11);
    } else if (text::startsWith(line, "-classpath/p ")) {
      classPath = line.substr(13) + ":" + orNull(classPath);
    } else if (text::startsWith(line, "-classpath/a ")) {
      // Without a class path the appended part is dropped (unlike "/p").
      if (classPath) classPath = *classPath + ":" + line.substr(13);
    } else if (text::startsWith(line, "-include-options ")) {
      std::string name = unquote(line.substr(17));
      std::string included = path::isAbsolute(name) ? name : path::append(path::parent(file), name);
      classPath = readOptionsFile(included, options, classPath);
    } else {
      options.push_back(line);
    }
  }
  return classPath;
}

OptionalString Launcher::addPredefinedOptions(const std::optional<std::vector<std::string>>& list,
                                              std::vector<std::string>& options, OptionalString classPath) {
  if (!list) return classPath;
  for (const std::string& entry : *list) {
    if (text::startsWith(entry, "-include-options ")) {
      std::string name = unquote(*replaceVariables(entry.substr(17)));
      std::string file = path::isAbsolute(name) ? name : path::append(s_launcherDirInApp.value_or(""), name);
      classPath = readOptionsFile(file, options, classPath);
    } else {
      options.push_back(*replaceVariables(entry));
    }
  }
  return classPath;
}

}  // namespace bwk
