// Which runtime the launcher starts: a runtime handed over by an authorization restart, a
// "-jvm=" override, the runtime just unpacked by the installation worker, one shipped in
// the bundle, the private runtime, then the configured search sequence.
#include "launcher/runtime_search.h"

#include <unistd.h>

#include "base/errors.h"
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "launcher/command_line.h"
#include "launcher/option_files.h"
#include "launcher/runtime_search_state.h"
#include "launcher/unpacker.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// A runtime at a fixed location may carry packed jars; they are unpacked in place before it
// is used. When that fails the launch cannot go on, and a test directory tells a tool
// failure from a runtime directory that is not writable.
void unpackOrFail(const std::string& unpackDirectory) {
  BWK_DLOG("%s [Line %d] Running unpacker on %@", unpackDirectory);
  if (Unpacker::unpack(path::append(unpackDirectory, "jre"), nullptr) && Unpacker::unpack(unpackDirectory, nullptr))
    return;
  std::string testDirectory = path::append(unpackDirectory, "_bwk_testdir");
  if (!fs::exists(testDirectory) && fs::createDirectory(testDirectory, false)) {
    if (::rmdir(testDirectory.c_str()) != 0) BWK_DLOG("%s [Line %d] could not remove _bwk_testdir");
    throw ReportedFailure("fenmo.InternalError", std::string("could not run unpack200"));
  }
  throw ReportedFailure("NonWritablePackDir");
}

void findShippedRuntime(RuntimeSearch& search, const OptionalString& installerJreBundle) {
  if (installerJreBundle) {
    // Just extracted by the installation worker: opened without a further test.
    search.javaBundlePath = installerJreBundle;
    search.javaBundle = RuntimeBundle::open(*installerJreBundle);
    return;
  }
  const OptionalString& bundle = search.context.paths.mainBundlePath;
  if (!bundle) return;
  for (const char* location : kShippedRuntimeLocations) {
    search.javaBundlePath = path::append(*bundle, location);
    if (fs::exists(*search.javaBundlePath)) search.javaBundle = RuntimeBundle::open(*search.javaBundlePath);
    if (search.javaBundle) return;
  }
}

void findPrivateRuntime(RuntimeSearch& search) {
  const OptionalString& root = search.context.paths.appRootDir;
  if (!root) return;
  search.javaBundlePath = path::append(*root, ".brackwood/jre.bundle");
  if (fs::isDirectory(*search.javaBundlePath)) {
    search.javaBundle = RuntimeBundle::open(*search.javaBundlePath);
    return;
  }
  search.javaBundlePath = path::append(*root, ".brackwood/jre");
  // A plain private runtime: used as it is, without a bundle or a version check.
  if (fs::isDirectory(*search.javaBundlePath)) search.launchJavaVersion = "1.7.0";
}

void runSearchSequence(RuntimeSearch& search, const OptionalString& min, const OptionalString& max, bool allowBeta) {
  const PlistValue* sequence = search.context.javaVM().find("SearchSequence");
  if (sequence && !sequence->isArray()) sequence = nullptr;
  BWK_DLOG("%s [Line %d] search sequence %@", sequence);
  if (!sequence) {
    search.findPublicJavaBundle(min, max, allowBeta);
    return;
  }
  for (const PlistValue& entry : *sequence->asArray()) {
    const std::string* entryText = entry.asString();
    if (entryText && !entryText->empty()) {
      char kind = (*entryText)[0];
      OptionalString value = search.replaceVariables(entryText->substr(1));
      switch (kind) {
        case 'Y':
          BWK_DLOG("%s [Line %d] checking standard locations");
          search.findPublicJavaBundle(min, max, allowBeta);
          break;
        case 'I':
          BWK_DLOG("%s [Line %d] checking previous installations");
          search.findJavaPreviousInstallation(min, max, allowBeta);
          break;
        case 'R':
          BWK_DLOG("%s [Line %d] checking directory %@", value);
          search.findDirectoryJavaBundle(value, min, max, allowBeta);
          break;
        case 'E':
          BWK_DLOG("%s [Line %d] checking environment variable %@", value);
          if (value) search.findDirectoryJavaBundle(platform::environmentValue(*value), min, max, allowBeta);
          break;
        default: break;
      }
    }
    if (search.javaBundle || search.launchJavaVersion) return;
  }
}

}  // namespace

bool RuntimeSearch::record(const std::optional<AcceptedVersion>& accepted) {
  if (!accepted) {
    launchJavaVersion.reset();
    return false;
  }
  launchJavaVersion = accepted->shortVersion;
  javaVersion = accepted->version;
  javaMajorVersion = accepted->majorVersion;
  return true;
}

bool RuntimeSearch::tryBundle(const std::string& path, const OptionalString& min, const OptionalString& max,
                              bool allowBeta, bool plugin) {
  javaBundlePath = path;
  javaBundle = RuntimeBundle::open(path);
  if (record(checkJavaVersion(javaBundle.get(), min, max, allowBeta, plugin))) return true;
  javaBundle.reset();
  return false;
}

OptionalString RuntimeSearch::replaceVariables(const OptionalString& text) const {
  return bwk::replaceVariables(text, VariableScope{context.paths, javaBundlePath});
}

OptionalString findOverrideJvm(const LaunchContext& context) {
  std::vector<std::string> options;
  VariableScope scope{context.paths, std::nullopt};
  addPredefinedOptions(context.javaVM().stringArray("VMOptionArray"), options, std::string(), scope);
  for (const std::string& file : optionFiles(context)) readOptionsFile(file, options, std::string(), scope);
  std::vector<std::string> ignoredArguments;
  addCommandLineParameters(context, options, ignoredArguments);
  // The last one wins: the command line overrides the files, which override the built-in list.
  for (auto option = options.rbegin(); option != options.rend(); ++option) {
    if (text::startsWith(*option, "-jvm=")) return option->substr(5);
  }
  return std::nullopt;
}

std::optional<ChosenRuntime> findJavaBundle(const LaunchContext& context, const OptionalString& installerJreBundle) {
  RuntimeSearch search(context);
  const PlistValue& info = context.configuration;
  const OptionalString min = info.string("bwk.minVersion");
  const OptionalString max = info.string("bwk.maxVersion");
  const bool allowBeta = info.boolean("bwk.allowBeta").value_or(false);

  const std::vector<std::string>& arguments = context.arguments;
  if (arguments.size() >= 3 && arguments[1] == "__bwk_auth_restart") {
    // The restarted process uses the runtime its parent chose, or a private one.
    search.javaBundlePath = arguments[2];
    search.javaBundle = RuntimeBundle::open(arguments[2]);
    BWK_DLOG("%s [Line %d] authorization restart with %@ %@", search.javaBundlePath,
             search.javaBundle ? OptionalString(search.javaBundle->path()) : std::nullopt);
  } else {
    bool overridden = false;
    if (OptionalString jvm = findOverrideJvm(context)) {
      BWK_DLOG("%s [Line %d] JVM override: %@", jvm);
      search.findDirectoryJavaBundle(jvm, min, max, allowBeta);
      overridden = search.javaBundle != nullptr;
      if (!overridden) BWK_DLOG("%s [Line %d] No suitable JVM bundle found at: %@", jvm);
    }
    if (!overridden) findShippedRuntime(search, installerJreBundle);
  }
  if (!search.javaBundle) findPrivateRuntime(search);

  if (search.javaBundle || search.launchJavaVersion) {
    // Shipped and private runtimes are not held to the configured range (an override has
    // passed it already); only a missing version or the architecture rule refuses them. A
    // refused one is still unpacked, and not replaced by one from the search sequence.
    if (!search.launchJavaVersion)
      search.record(checkJavaVersion(search.javaBundle.get(), std::nullopt, std::nullopt, true, false));
    unpackOrFail(search.javaBundle ? search.javaBundle->home() : *search.javaBundlePath);
  } else {
    runSearchSequence(search, min, max, allowBeta);
  }

  if (!search.launchJavaVersion || !search.javaBundlePath) return std::nullopt;
  return ChosenRuntime{*search.javaBundlePath,    search.javaBundle, search.javaVersion,    search.javaMajorVersion,
                       *search.launchJavaVersion, search.pluginUsed, search.previousJdkUsed};
}

}  // namespace bwk
