#include "installed_application.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"
#include "tool_error.h"

namespace bwk::bundle {

namespace {

std::string absolute(const std::string& given) {
  if (path::isAbsolute(given) && given[0] == '/') return path::standardize(given);
  char buffer[4096];
  std::string here = ::getcwd(buffer, sizeof buffer) ? buffer : "/";
  return path::standardize(path::append(here, given));
}

// `p` relative to one of the roots it lies below; empty when it lies below none.
std::string below(const std::string& p, const std::vector<std::string>& roots) {
  for (const std::string& root : roots)
    if (text::startsWith(p, root + "/")) return p.substr(root.size() + 1);
  return "";
}

// A name in the folder for outside entries that no earlier entry has taken.
std::string freeName(const std::string& name, std::set<std::string>& taken) {
  std::string candidate = name;
  std::string extension = path::extension(name);
  std::string stem = extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
  for (int n = 2; !taken.insert(candidate).second; ++n)
    candidate = stem + "-" + std::to_string(n) + (extension.empty() ? "" : "." + extension);
  return candidate;
}

// The jars of a --jar word: a jar, or the .jar and .zip files of a directory in name order.
void addJars(const std::string& given, std::vector<std::string>& jars) {
  if (!fs::isDirectory(given)) {
    jars.push_back(given);
    return;
  }
  std::vector<std::string> names = fs::listDirectory(given).value_or(std::vector<std::string>{});
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    if ((text::endsWith(name, ".jar") || text::endsWith(name, ".zip")) && !fs::isDirectory(path::append(given, name)))
      jars.push_back(path::append(given, name));
}

}  // namespace

InstalledApplication readInstalledApplication(const std::string& input, const std::string& mainJar,
                                              const std::vector<std::string>& jars) {
  InstalledApplication app;
  app.input = absolute(input);
  if (!fs::isDirectory(app.input)) throw failure(input + ": no such directory");
  std::vector<std::string> roots{app.input, fs::realPath(app.input)};
  if (path::isAbsolute(mainJar)) throw usageError("--main-jar " + mainJar + ": give it relative to --input");
  app.mainJar = path::standardize(path::append(app.input, mainJar));
  if (below(app.mainJar, roots).empty()) throw usageError("--main-jar " + mainJar + " leaves --input");
  if (!fs::exists(app.mainJar) || fs::isDirectory(app.mainJar)) throw failure(app.mainJar + ": no such jar");
  std::string error;
  std::optional<JarManifest> manifest = JarManifest::read(app.mainJar, &error);
  if (!manifest) throw failure(app.mainJar + ": not a jar: " + error);
  app.manifest = std::move(*manifest);

  std::vector<std::string> start{app.mainJar};
  for (const std::string& given : jars) {
    std::string jar = path::standardize(path::isAbsolute(given) ? given : path::append(app.input, given));
    if (below(jar, roots).empty()) throw usageError("--jar " + given + ": with --input, further jars lie inside it");
    if (!fs::exists(jar)) throw failure(jar + ": no such file or directory");
    addJars(jar, start);
  }
  app.classPath = resolveJarClassPath(start);

  std::set<std::string> taken;
  for (const ClassPathItem& item : app.classPath.items) {
    std::string inside = below(item.path, roots);
    if (inside.empty()) {
      inside = std::string(kExternalClassPathFolder) + "/" + freeName(path::lastComponent(item.path), taken);
      app.copies.emplace_back(item.path, inside);
    }
    if (text::contains(inside, ":")) throw failure(item.path + ": a ':' in its name would split the class path");
    app.entries.push_back(inside);
  }
  // The runtime also reads the manifests of the shipped jars, and finds the entries inside
  // the installation through them before those the class path adds from outside it.
  for (size_t i = 0; i < app.entries.size(); ++i) {
    if (!text::startsWith(app.entries[i], std::string(kExternalClassPathFolder) + "/")) continue;
    for (size_t later = i + 1; later < app.entries.size(); ++later) {
      if (text::startsWith(app.entries[later], std::string(kExternalClassPathFolder) + "/") ||
          app.classPath.items[later].listedBy.empty())
        continue;
      app.warnings.push_back(app.classPath.items[i].path + " is searched after " + app.entries[later] +
                             " in the bundle (java -jar searches it before); a class in both is taken from the latter");
      break;
    }
  }
  return app;
}

}  // namespace bwk::bundle
