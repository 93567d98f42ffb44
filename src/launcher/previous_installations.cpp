// Runtimes left by earlier installations of the same application, found through the
// installation records that the packaging system's installers write.
#include "base/fs.h"
#include "base/log.h"
#include "base/plist_reader.h"
#include "base/strings.h"
#include "launcher/runtime_search.h"
#include "launcher/runtime_search_state.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// The records dictionary, or none when the file is missing, unreadable or holds no records.
std::optional<PlistValue> readInstallationRecords() {
  std::optional<PlistValue> file = readPropertyListFile(platform::installationRecordsFile());
  if (!file) return std::nullopt;
  const PlistValue* records = file->find("/com/brackwood/installations/");
  if (!records || !records->isDictionary()) return std::nullopt;
  return *records;
}

// The content of a private runtime's version file, when it is a readable UTF-8 file.
OptionalString readVersionFile(const std::string& runtimeDirectory) {
  std::string versionFile = runtimeDirectory + "/brackwood_jre_version";
  OptionalString contents = fs::readFile(versionFile);
  if (!contents || !text::isValidUtf8(*contents)) return std::nullopt;
  return contents;
}

}  // namespace

void RuntimeSearch::findJavaPreviousInstallation(const OptionalString& min, const OptionalString& max, bool allowBeta) {
  OptionalString appId = context.configuration.string("bwk.appId");
  std::optional<PlistValue> records = readInstallationRecords();
  BWK_DLOG("%s [Line %d] %@", records ? &*records : nullptr);
  if (!appId || !records) return;

  OptionalString allDirectories = records->string("allinstdirs" + *appId);
  if (!allDirectories) return;
  std::vector<std::string> directories = text::split(*allDirectories, ";");
  if (directories.empty()) return;

  // One way only: after the first private runtime with a version file, no later directory
  // is opened as a bundle, and the last such runtime's check decides launchJavaVersion. A
  // later directory without such a runtime leaves the accepted one in place: its path was
  // never checked and must not be launched with another runtime's version.
  bool checkBundle = true;
  for (const std::string& directory : directories) {
    OptionalString bundleName = records->string("singleBundleName" + *appId + "_" + directory);
    std::string candidate;
    if (bundleName) {
      // The first location that exists, else the last one, which is then not found.
      for (const char* location : kShippedRuntimeLocations) {
        candidate = directory + "/" + *bundleName + "/" + location;
        if (fs::exists(candidate)) break;
      }
    } else {
      candidate = directory + "/.brackwood/jre.bundle";
      if (!(fs::exists(candidate) && fs::isDirectory(candidate))) {
        std::string privateRuntime = directory + "/.brackwood/jre";
        if (fs::isDirectory(privateRuntime)) {
          if (OptionalString version = readVersionFile(privateRuntime)) {
            candidate = privateRuntime;
            checkBundle = false;
            javaBundlePath = privateRuntime;
            record(checkBundleVersion(min, max, allowBeta, false, version, std::nullopt, std::nullopt));
          }
        }
      }
    }
    if (checkBundle) javaBundlePath = candidate;
    BWK_DLOG("%s [Line %d] checking %@", javaBundlePath);

    if (checkBundle && fs::exists(candidate) && tryBundle(candidate, min, max, allowBeta)) {
      previousJdkUsed = true;
      return;
    }
  }
}

}  // namespace bwk
