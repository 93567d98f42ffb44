// Which runtime the launcher starts: a runtime handed over by an authorization restart, a
// "-jvm=" override, the runtime just unpacked by the installation worker, one shipped in
// the bundle, the private runtime, then the configured search sequence.
#include <unistd.h>

#include <cstdlib>

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "install/unpacker.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// A runtime at a fixed location may carry packed jars; they are unpacked in place before it
// is used. When that fails the launch cannot go on: the process ends here with status 1,
// and a test directory tells a tool failure from a runtime directory that is not writable.
void unpackOrExit(const std::string& unpackDirectory) {
  BWK_DLOG("%s [Line %d] Running unpacker on %@", unpackDirectory);
  if (Unpacker::unpack(path::append(unpackDirectory, "jre"), nullptr) && Unpacker::unpack(unpackDirectory, nullptr))
    return;
  std::string testDirectory = path::append(unpackDirectory, "_bwk_testdir");
  if (!fs::exists(testDirectory) && fs::createDirectory(testDirectory, false)) {
    if (::rmdir(testDirectory.c_str()) != 0) BWK_DLOG("%s [Line %d] could not remove _bwk_testdir");
    Launcher::displayError("fenmo.InternalError", std::string("could not run unpack200"));
  } else {
    Launcher::displayError("NonWritablePackDir");
  }
  std::exit(1);
}

void findShippedRuntime(Launcher& launcher) {
  if (launcher.installerJreBundle) {
    // Just extracted by the installation worker: opened without a further test.
    launcher.javaBundlePath = launcher.installerJreBundle;
    launcher.javaBundle = RuntimeBundle::open(*launcher.installerJreBundle);
    return;
  }
  if (!s_mainBundlePath) return;
  for (const char* location : {"Contents/Resources/jre.bundle", "Contents/PlugIns/jre.bundle"}) {
    launcher.javaBundlePath = path::append(*s_mainBundlePath, location);
    if (fs::exists(*launcher.javaBundlePath)) launcher.javaBundle = RuntimeBundle::open(*launcher.javaBundlePath);
    if (launcher.javaBundle) return;
  }
}

void findPrivateRuntime(Launcher& launcher) {
  if (!s_appRootDir) return;
  launcher.javaBundlePath = path::append(*s_appRootDir, ".brackwood/jre.bundle");
  if (fs::isDirectory(*launcher.javaBundlePath)) {
    launcher.javaBundle = RuntimeBundle::open(*launcher.javaBundlePath);
    return;
  }
  launcher.javaBundlePath = path::append(*s_appRootDir, ".brackwood/jre");
  // A plain private runtime: used as it is, without a bundle or a version check.
  if (fs::isDirectory(*launcher.javaBundlePath)) launchJavaVersion = "1.7.0";
}

void runSearchSequence(Launcher& launcher, const OptionalString& min, const OptionalString& max, bool allowBeta) {
  const PlistValue* javaVM = javaVMDictionary();
  const PlistValue* sequence = javaVM ? javaVM->find("SearchSequence") : nullptr;
  if (sequence && !sequence->isArray()) sequence = nullptr;
  BWK_DLOG("%s [Line %d] search sequence %@", sequence);
  if (!sequence) {
    launcher.findPublicJavaBundle(min, max, allowBeta);
    return;
  }
  for (const PlistValue& entry : *sequence->asArray()) {
    const std::string* entryText = entry.asString();
    if (entryText && !entryText->empty()) {
      char kind = (*entryText)[0];
      OptionalString value = launcher.replaceVariables(entryText->substr(1));
      switch (kind) {
        case 'Y':
          BWK_DLOG("%s [Line %d] checking standard locations");
          launcher.findPublicJavaBundle(min, max, allowBeta);
          break;
        case 'I':
          BWK_DLOG("%s [Line %d] checking previous installations");
          launcher.findJavaPreviousInstallation(infoDictionary(), min, max, allowBeta);
          break;
        case 'R':
          BWK_DLOG("%s [Line %d] checking directory %@", value);
          launcher.findDirectoryJavaBundle(value, min, max, allowBeta);
          break;
        case 'E':
          BWK_DLOG("%s [Line %d] checking environment variable %@", value);
          if (value) launcher.findDirectoryJavaBundle(platform::environmentValue(*value), min, max, allowBeta);
          break;
        default:
          break;
      }
    }
    if (launcher.javaBundle || launchJavaVersion) return;
  }
}

}  // namespace

OptionalString Launcher::findOverrideJvm() {
  std::vector<std::string> options;
  const PlistValue* javaVM = javaVMDictionary();
  addPredefinedOptions(javaVM ? javaVM->stringArray("VMOptionArray") : std::nullopt, options, std::string());
  if (s_launcherDirAndName) {
    if (!s_guiLauncher) readOptionsFile(*s_launcherDirAndName + ".app/Contents/vmoptions.txt", options, std::string());
    readOptionsFile(*s_launcherDirAndName + ".vmoptions", options, std::string());
  }
  std::vector<std::string> ignoredArguments;
  addCommandLineParameters(options, ignoredArguments);
  // The last one wins: the command line overrides the files, which override the built-in list.
  for (auto option = options.rbegin(); option != options.rend(); ++option) {
    if (text::startsWith(*option, "-jvm=")) return option->substr(5);
  }
  return std::nullopt;
}

OptionalString Launcher::findJavaBundle() {
  launchJavaVersion = nullptr;
  javaBundle.reset();
  javaBundlePath.reset();
  pluginUsed = false;
  previousJdkUsed = false;
  const PlistValue& info = infoDictionary();
  const OptionalString min = info.string("bwk.minVersion");
  const OptionalString max = info.string("bwk.maxVersion");
  const bool allowBeta = info.boolean("bwk.allowBeta").value_or(false);

  const std::vector<std::string>& arguments = platform::processArguments();
  bool overridden = false;
  if (arguments.size() >= 3 && arguments[1] == "__bwk_auth_restart") {
    // The restarted process uses the runtime its parent chose, or a private one.
    javaBundlePath = arguments[2];
    javaBundle = RuntimeBundle::open(arguments[2]);
    BWK_DLOG("%s [Line %d] authorization restart with %@ %@", javaBundlePath,
             javaBundle ? OptionalString(javaBundle->path()) : std::nullopt);
  } else {
    if (OptionalString jvm = findOverrideJvm()) {
      BWK_DLOG("%s [Line %d] JVM override: %@", jvm);
      findDirectoryJavaBundle(jvm, min, max, allowBeta);
      overridden = javaBundle != nullptr;
      if (!overridden) BWK_DLOG("%s [Line %d] No suitable JVM bundle found at: %@", jvm);
    }
    if (!overridden) findShippedRuntime(*this);
  }
  if (!javaBundle) findPrivateRuntime(*this);

  if (javaBundle || launchJavaVersion) {
    // Shipped and private runtimes are not held to the configured range (an override has
    // passed it already); only a missing version or the architecture rule refuses them. A
    // refused one is still unpacked, and not replaced by one from the search sequence.
    if (!launchJavaVersion) launchJavaVersion = checkJavaVersion(std::nullopt, std::nullopt, true, false);
    unpackOrExit(javaBundle ? javaBundle->home() : *javaBundlePath);
  } else {
    runSearchSequence(*this, min, max, allowBeta);
  }

  if (!launchJavaVersion) {
    javaBundlePath.reset();
    return std::nullopt;
  }
  return javaBundlePath;
}

}  // namespace bwk
