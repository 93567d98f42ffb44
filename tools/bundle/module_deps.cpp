#include "module_deps.h"

#include <cctype>

#include "base/strings.h"
#include "tool_process.h"

namespace bwk::bundle {

namespace {

std::string trimmed(const std::string& s) {
  size_t begin = s.find_first_not_of(" \t\r\n"), end = s.find_last_not_of(" \t\r\n");
  return begin == std::string::npos ? "" : s.substr(begin, end - begin + 1);
}

std::optional<std::string> runJdeps(const std::string& jdeps, std::vector<std::string> arguments,
                                    const std::vector<std::string>& items, std::string* error) {
  arguments.insert(arguments.end(), items.begin(), items.end());
  std::optional<ProgramOutput> output = runProgram(jdeps, arguments, error);
  if (!output) return std::nullopt;
  if (output->status != 0) {
    std::string said = trimmed(output->err.empty() ? output->out : output->err);
    if (said.size() > 600) said = said.substr(0, 600) + "...";
    *error = "jdeps ended with status " + std::to_string(output->status) + ": " + said;
    return std::nullopt;
  }
  return output->out;
}

bool isModuleName(const std::string& name) {
  if (name.empty()) return false;
  for (char c : name)
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_')) return false;
  return std::isalpha(static_cast<unsigned char>(name[0]));
}

}  // namespace

std::optional<int> featureRelease(const std::string& version) {
  size_t digits = 0;
  while (digits < version.size() && std::isdigit(static_cast<unsigned char>(version[digits]))) ++digits;
  if (digits == 0 || digits > 4) return std::nullopt;
  int feature = std::stoi(version.substr(0, digits));
  // "1.8.0" is release 8.
  if (feature == 1 && version.size() > 2 && version[1] == '.') return featureRelease(version.substr(2));
  return feature;
}

std::optional<std::set<std::string>> printedModuleDeps(const std::string& jdeps, int feature,
                                                       const std::vector<std::string>& items, std::string* error) {
  std::optional<std::string> out =
      runJdeps(jdeps, {"--print-module-deps", "--ignore-missing-deps", "--multi-release", std::to_string(feature)},
               items, error);
  if (!out) return std::nullopt;
  std::set<std::string> modules;
  // The list is the last line; warnings may come before it.
  std::vector<std::string> lines = text::split(trimmed(*out), "\n");
  for (const std::string& name : text::split(lines.empty() ? "" : trimmed(lines.back()), ","))
    if (isModuleName(trimmed(name))) modules.insert(trimmed(name));
  if (modules.empty()) {
    *error = "jdeps named no module: " + trimmed(*out);
    return std::nullopt;
  }
  return modules;
}

std::map<std::string, std::string> parseClassUses(const std::string& output) {
  std::map<std::string, std::string> uses;
  for (const std::string& line : text::split(output, "\n")) {
    // "   a.B    -> c.D    module" below a "x.jar -> module" heading.
    if (line.empty() || !std::isspace(static_cast<unsigned char>(line[0]))) continue;
    std::vector<std::string> words;
    for (const std::string& word : text::splitAny(line, " \t\r"))
      if (!word.empty()) words.push_back(word);
    if (words.size() < 4 || words[1] != "->") continue;
    std::string module = words.back();
    if (module.size() > 2 && module.front() == '(' && module.back() == ')')
      module = module.substr(1, module.size() - 2);
    // Other entries of the class path show as their file names, classes not found as "not found".
    if (!isModuleName(module) || module == "found" || text::endsWith(module, ".jar") || text::endsWith(module, ".zip"))
      continue;
    uses.emplace(module, words[0] + " uses " + words[2]);
  }
  return uses;
}

std::optional<std::map<std::string, std::string>> moduleUses(const std::string& jdeps, int feature,
                                                             const std::vector<std::string>& items,
                                                             std::string* error) {
  std::optional<std::string> out = runJdeps(
      jdeps, {"-verbose:class", "--ignore-missing-deps", "--multi-release", std::to_string(feature)}, items, error);
  if (!out) return std::nullopt;
  return parseClassUses(*out);
}

}  // namespace bwk::bundle
