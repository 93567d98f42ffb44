// Acceptance of a candidate runtime: version texts from its bundle information, the
// pre-release rule, the architecture rule under translation and the configured range.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "base/log.h"
#include "base/strings.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// x86-64 as the system names executable architectures.
constexpr int kX86_64Architecture = 0x1000007;

// The short version becomes launchJavaVersion, which the runtime's launch entry reads for
// the rest of the process, so it is never freed. Every copy stays listed here: a search may
// replace launchJavaVersion several times, and the earlier copies are then still owned by
// the process rather than lost, which keeps leak checkers quiet.
const char* copyForProcessLifetime(const std::string& text) {
  static std::mutex guard;
  static std::vector<const char*>* kept = new std::vector<const char*>();
  char* copy = strdup(text.c_str());
  if (!copy) return nullptr;
  std::lock_guard<std::mutex> lock(guard);
  kept->push_back(copy);
  return copy;
}

int majorVersion(const std::vector<std::string>& components) {
  long long major = text::integerValue(components.front());
  if (major == 1) major = components.size() > 1 ? text::integerValue(components[1]) : 1;
  if (major > INT_MAX) return INT_MAX;
  if (major < INT_MIN) return INT_MIN;
  return static_cast<int>(major);
}

}  // namespace

const char* Launcher::checkJavaVersion(const OptionalString& min, const OptionalString& max, bool allowBeta,
                                       bool plugin) {
  if (!javaBundle) return checkBundleVersion(min, max, allowBeta, plugin, std::nullopt, std::nullopt, std::nullopt);
  const PlistValue& info = javaBundle->infoDictionary();
  OptionalString version;
  if (const PlistValue* javaVM = info.find("JavaVM")) version = javaVM->string("JVMVersion");
  if (plugin && !version) version = info.string("CFBundleVersion");
  OptionalString evarVersion = info.string("EvarVersion");
  OptionalString infoString = info.string("CFBundleGetInfoString");

  if (platform::processIsTranslated()) {
    BWK_DLOG("%s [Line %d] checking architectures %d %@", kX86_64Architecture, javaBundle->path());
    if (!platform::runtimeHasNativeCode(javaBundle->path())) return nullptr;
  }
  return checkBundleVersion(min, max, allowBeta, plugin, version, evarVersion, infoString);
}

const char* Launcher::checkBundleVersion(const OptionalString& min, const OptionalString& max, bool allowBeta,
                                         bool plugin, const OptionalString& bundleVersion,
                                         const OptionalString& evarVersion, const OptionalString& infoString) {
  // Every refusal logs the same line as an acceptance, with no version; written out at each
  // place so that the log names this function.
#define BWK_REFUSE()                                     \
  do {                                                   \
    BWK_DLOG("%s [Line %d] check returned %s", nullptr); \
    return nullptr;                                      \
  } while (0)
  if (!bundleVersion) BWK_REFUSE();
  if (!allowBeta && (isBetaVersion(bundleVersion) || isBetaVersion(evarVersion) || isBetaVersion(infoString))) {
    BWK_DLOG("%s [Line %d] beta not allowed %@", bundleVersion);
    BWK_REFUSE();
  }

  std::vector<std::string> components = text::splitAny(*bundleVersion, "._-+");
  // The applet plug-in writes 1.8.291.10 for 1.8.0_291.
  if (plugin && components.size() == 4 && components[0] == "1" && components[2] != "0")
    components = {components[0], components[1], "0", components[2]};

  BWK_DLOG("%s [Line %d] comparing3 %@ %@ %@ %@", bundleVersion, components, min, max);
  bool aboveMinimum = compareVersion(min, components, false);
  bool belowMaximum = compareVersion(max, components, true);
  BWK_DLOG("%s [Line %d] comparing4 %d %d", aboveMinimum, belowMaximum);
  if (!aboveMinimum || !belowMaximum) BWK_REFUSE();

  // The text before the first "_" or "+": 1.8.0_291 gives 1.8.0, 17.0.2+8 gives 17.0.2.
  const char* shortVersion = copyForProcessLifetime(text::splitAny(*bundleVersion, "_+").front());
  if (!shortVersion) BWK_REFUSE();

  javaVersion = bundleVersion;
  javaMajorVersion = majorVersion(components);
  BWK_DLOG("%s [Line %d] check returned %s", shortVersion);
  return shortVersion;
#undef BWK_REFUSE
}

OptionalString Launcher::getJavaMinVersion() { return infoDictionary().string("bwk.minVersion"); }

}  // namespace bwk
