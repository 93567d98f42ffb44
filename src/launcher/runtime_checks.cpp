// Acceptance of a candidate runtime: version texts from its bundle information, the
// pre-release rule, the architecture rule under translation and the configured range.
#include "launcher/runtime_checks.h"

#include <climits>

#include "base/log.h"
#include "base/strings.h"
#include "launcher/version_compare.h"
#include "platform/platform.h"

namespace bwk {

namespace {

int majorVersion(const std::vector<std::string>& components) {
  long long major = text::integerValue(components.front());
  if (major == 1) major = components.size() > 1 ? text::integerValue(components[1]) : 1;
  if (major > INT_MAX) return INT_MAX;
  if (major < INT_MIN) return INT_MIN;
  return static_cast<int>(major);
}

// Every refusal logs the line of an acceptance with no version. A macro, so that the log
// names the checking function.
#define BWK_REFUSE()                                     \
  do {                                                   \
    BWK_DLOG("%s [Line %d] check returned %s", nullptr); \
    return std::nullopt;                                 \
  } while (0)

}  // namespace

std::optional<AcceptedVersion> checkJavaVersion(const RuntimeBundle* runtime, const std::optional<std::string>& min,
                                                const std::optional<std::string>& max, bool allowBeta, bool plugin) {
  if (!runtime) return checkBundleVersion(min, max, allowBeta, plugin, std::nullopt, std::nullopt, std::nullopt);
  const PlistValue& info = runtime->infoDictionary();
  std::optional<std::string> version;
  if (const PlistValue* javaVM = info.find("JavaVM")) version = javaVM->string("JVMVersion");
  if (plugin && !version) version = info.string("CFBundleVersion");

  if (std::optional<int> architecture = platform::requiredRuntimeArchitecture()) {
    BWK_DLOG("%s [Line %d] checking architectures %d %@", *architecture, runtime->path());
    if (!platform::runtimeHasArchitecture(runtime->path(), *architecture)) return std::nullopt;
  }
  return checkBundleVersion(min, max, allowBeta, plugin, version, info.string("EvarVersion"),
                            info.string("CFBundleGetInfoString"));
}

std::optional<AcceptedVersion> checkBundleVersion(const std::optional<std::string>& min,
                                                  const std::optional<std::string>& max, bool allowBeta, bool plugin,
                                                  const std::optional<std::string>& bundleVersion,
                                                  const std::optional<std::string>& evarVersion,
                                                  const std::optional<std::string>& infoString) {
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
  AcceptedVersion accepted{text::splitAny(*bundleVersion, "_+").front(), *bundleVersion, majorVersion(components)};
  BWK_DLOG("%s [Line %d] check returned %s", accepted.shortVersion.c_str());
  return accepted;
}

std::optional<std::string> getJavaMinVersion(const PlistValue& configuration) {
  return configuration.string("bwk.minVersion");
}

}  // namespace bwk
