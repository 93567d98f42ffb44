// Opening a runtime directory: a bundle with Contents/Info.plist, or a plain runtime home
// described by its "release" file.
#include "launcher/runtime_bundle.h"

#include <dirent.h>

#include "base/fs.h"
#include "base/path.h"
#include "base/plist_reader.h"
#include "base/strings.h"

namespace bwk {

namespace {

bool canReadDirectory(const std::string& path) {
  DIR* dir = ::opendir(path.c_str());
  if (!dir) return false;
  ::closedir(dir);
  return true;
}

// The JAVA_VERSION line of a "release" file, without its quotes.
std::optional<std::string> releaseJavaVersion(const std::string& releaseFile) {
  std::optional<std::string> contents = fs::readFile(releaseFile);
  if (!contents) return std::nullopt;
  for (std::string line : text::split(*contents, "\n")) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!text::startsWith(line, "JAVA_VERSION=")) continue;
    return text::unquoted(text::trimHorizontal(line.substr(13)));
  }
  return std::nullopt;
}

PlistValue infoOf(const std::string& directory) {
  std::string infoPlist = path::append(directory, "Contents/Info.plist");
  if (fs::exists(infoPlist)) {
    std::optional<PlistValue> info = readPropertyListFile(infoPlist);
    // A malformed or non-dictionary Info.plist leaves an empty one, which no check accepts.
    if (info && info->isDictionary()) return *info;
    return PlistValue(PlistDict{});
  }
  // No Info.plist: the runtime home's "release" file describes it (a plain home, or a
  // bundle-shaped directory such as an unpacked runtime archive holding Contents/Home).
  std::string release = path::append(runtimeHome(directory), "release");
  if (!fs::isDirectory(release)) {
    if (std::optional<std::string> version = releaseJavaVersion(release))
      return PlistValue(PlistDict{{"JavaVM", PlistValue(PlistDict{{"JVMVersion", *version}})}});
  }
  return PlistValue(PlistDict{});
}

}  // namespace

std::shared_ptr<RuntimeBundle> RuntimeBundle::open(const std::string& path) {
  // A broken link, a file and a directory that cannot be read are no bundles.
  if (!canReadDirectory(path)) return nullptr;
  return std::make_shared<RuntimeBundle>(path, infoOf(path));
}

std::string RuntimeBundle::home() const { return runtimeHome(path_); }

std::string runtimeHome(const std::string& runtimePath) {
  std::string home = path::append(runtimePath, "Contents/Home");
  return fs::isDirectory(home) ? home : runtimePath;
}

}  // namespace bwk
