#include "class_names.h"

#include "base/fs.h"
#include "base/strings.h"
#include "check_steps.h"
#include "zip_directory.h"

namespace bwk::bundle {

std::optional<std::string> nearestClassName(const std::string& mainClass, const std::vector<std::string>& jars) {
  std::vector<std::string> classes;
  for (const std::string& jar : jars) {
    if (fs::isDirectory(jar)) continue;
    for (const std::string& entry : zipEntryNames(jar, nullptr).value_or(std::vector<std::string>{})) {
      // Versioned copies under META-INF repeat the classes; module and package descriptions start nothing.
      if (!text::endsWith(entry, ".class") || text::startsWith(entry, "META-INF/") ||
          text::endsWith(entry, "-info.class"))
        continue;
      classes.push_back(text::replaceAll(entry.substr(0, entry.size() - 6), "/", "."));
    }
  }
  std::optional<std::string> nearest = nearestName(mainClass, classes);
  if (nearest == mainClass) return std::nullopt;
  return nearest;
}

}  // namespace bwk::bundle
