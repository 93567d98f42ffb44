#include "manifest_options.h"

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"

namespace bwk::bundle {

ManifestOptions manifestOptions(const JarManifest& manifest, const std::optional<std::set<std::string>>& modules) {
  ManifestOptions result;
  if (std::optional<std::string> mainClass = manifest.value("Main-Class")) {
    std::string name = text::replaceAll(text::trimHorizontal(*mainClass), "/", ".");
    if (!name.empty()) result.mainClass = name;
  }
  for (const auto& [attribute, option] : {std::pair{"Add-Opens", "--add-opens="}, {"Add-Exports", "--add-exports="}}) {
    // Words of the form module/package; any other word is ignored, as the JDK ignores it.
    for (const std::string& word : text::split(manifest.value(attribute).value_or(""), " ")) {
      std::vector<std::string> parts = text::split(text::trimHorizontal(word), "/");
      if (parts.size() != 2 || parts[0].empty() || parts[1].empty()) continue;
      if (modules && !modules->count(parts[0])) {
        result.notes.push_back(std::string(attribute) + " " + parts[0] + "/" + parts[1] +
                               " left out: the runtime has no module " + parts[0]);
        continue;
      }
      result.options.push_back(option + parts[0] + "/" + parts[1] + "=ALL-UNNAMED");
    }
  }
  if (std::optional<std::string> access = manifest.value("Enable-Native-Access")) {
    if (*access == "ALL-UNNAMED")
      result.nativeAccess = true;
    else
      result.notes.push_back("Enable-Native-Access '" + *access + "' left out: only ALL-UNNAMED is accepted");
  }
  if (std::optional<std::string> agent = manifest.value("Launcher-Agent-Class"))
    result.agentClass = text::trimHorizontal(*agent);
  return result;
}

std::optional<std::set<std::string>> runtimeModules(const std::string& home) {
  std::optional<std::string> release = fs::readFile(path::append(home, "release"));
  if (!release) return std::nullopt;
  for (const std::string& line : text::split(*release, "\n")) {
    if (!text::startsWith(line, "MODULES=")) continue;
    std::string value = text::unquoted(text::trimHorizontal(line.substr(8)));
    std::set<std::string> names;
    for (const std::string& name : text::split(value, " "))
      if (!name.empty()) names.insert(name);
    if (!names.empty()) return names;
  }
  return std::nullopt;
}

}  // namespace bwk::bundle
