// Ahead-of-time cache options for runtimes of major version 25 and later: use the cache of
// this application, build, runtime version and runtime location, or train it.
#include <zlib.h>

#include <cctype>

#include "base/format.h"
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/aot_cache.h"
#include "launcher/variables.h"
#include "platform/platform.h"

namespace bwk {

namespace {

unsigned long crc32Of(const std::string& s) {
  uLong crc = crc32(0L, Z_NULL, 0);
  return crc32(crc, reinterpret_cast<const Bytef*>(s.data()), static_cast<uInt>(s.size()));
}

// The digits runs of the version, at most three, joined with "." (25+36 gives 25.36).
std::string versionKey(const std::string& version) {
  std::vector<std::string> pieces;
  std::string current;
  for (char c : version + ' ') {
    if (std::isdigit(static_cast<unsigned char>(c))) {
      current += c;
    } else if (!current.empty()) {
      pieces.push_back(current);
      current.clear();
    }
  }
  if (pieces.size() > 3) pieces.resize(3);
  return text::join(pieces, ".");
}

}  // namespace

std::vector<std::string> addAotCacheOption(const LaunchContext& context, const ChosenRuntime& runtime) {
  const PlistValue& javaVM = context.javaVM();
  const LaunchPaths& paths = context.paths;
  if (!javaVM.boolean("AotCacheEnabled").value_or(false)) return {};
  if (runtime.majorVersion < 25) return {};
  if (platform::environmentValue("BRACKWOOD_NO_AOT_CACHE")) return {};
  OptionalString buildId = javaVM.string("AotCacheBuildId");
  if (!buildId || !runtime.version) return {};

  std::string stem;
  bool defaultLocation = false;
  OptionalString configured = replaceVariables(javaVM.string("AotCachePath"), VariableScope{paths, runtime.path});
  if (configured && !configured->empty()) {
    stem = *configured;
  } else {
    std::string home = platform::environmentValue("HOME").value_or(platform::homeDirectory());
    OptionalString name = javaVM.string("AotCacheName");
    // The default place is named after the installation: without one there is none.
    if (!paths.appRootDir || (!(name && !name->empty()) && !paths.launcherDirAndName)) return {};
    std::string baseName = (name && !name->empty()) ? *name : path::lastComponent(*paths.launcherDirAndName);
    std::string installHash = format("%lu", crc32Of(*paths.appRootDir));
    stem = path::join({home, "Library/Caches", "brackwood/aot", installHash, baseName});
    defaultLocation = true;
  }

  std::string cacheDir = path::parent(stem);
  if (!fs::createDirectory(cacheDir, true) && !fs::isDirectory(cacheDir)) return {};
  if (!fs::isWritable(cacheDir)) return {};
  std::string installDirFile = path::append(cacheDir, "install-dir");
  if (defaultLocation && !fs::existsNoFollow(installDirFile)) fs::writeFile(installDirFile, *paths.appRootDir);

  std::string runtimeHomePath = runtime.bundle ? runtimeHome(runtime.path) : runtime.path;
  std::string cacheFile =
      format("%@-%@-%@-%lu.aot", stem, *buildId, versionKey(*runtime.version), crc32Of(runtimeHomePath));
  if (fs::exists(cacheFile)) return {"-XX:AOTCache=" + cacheFile};
  // Training run: first remove the caches of other builds, runtime versions and locations.
  std::string stalePrefix = path::lastComponent(stem) + "-";
  if (auto names = fs::listDirectory(cacheDir)) {
    for (const std::string& name : *names) {
      std::string entry = path::append(cacheDir, name);
      if (text::startsWith(name, stalePrefix) && fs::exists(entry) && !fs::isDirectory(entry)) fs::removeItem(entry);
    }
  }
  return {"-Xlog:aot=error", "-Dbrackwood.aotTraining=true", "-XX:AOTCacheOutput=" + cacheFile};
}

}  // namespace bwk
