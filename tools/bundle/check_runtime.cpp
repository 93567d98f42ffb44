// The runtime a start would use: one the bundle ships (a directory, or the archive unpacked
// at every start, which is unpacked here with the launcher's own extraction), or else one of
// the search sequence within the configured range.
#include <stdlib.h>
#include <zlib.h>

#include <algorithm>
#include <variant>

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"
#include "check_steps.h"
#include "install/untar.h"
#include "launcher/runtime_bundle.h"
#include "launcher/runtime_checks.h"
#include "launcher/runtime_search.h"
#include "launcher/variables.h"
#include "launcher/version_compare.h"
#include "manifest_options.h"
#include "platform/platform.h"

namespace bwk::bundle {

namespace {

constexpr int64_t kDefaultUncompressedSize = 6000000;

bool hasLauncherLibrary(const std::string& runtime) {
  for (const std::string& candidate : platform::runtimeLibraryCandidates())
    if (fs::exists(path::append(runtime, candidate))) return true;
  return false;
}

// A shipped runtime read once as the launcher reads it: its version (in any range) when the
// launcher would start it, otherwise why it would not.
std::variant<AcceptedVersion, std::string> readShippedRuntime(const std::string& runtime) {
  std::shared_ptr<RuntimeBundle> opened = RuntimeBundle::open(runtime);
  if (!opened) return "cannot be read as a directory";
  std::optional<AcceptedVersion> version = checkJavaVersion(opened.get(), std::nullopt, std::nullopt, true, false);
  if (!version)
    return "gives no version (no Contents/Info.plist with JavaVM/JVMVersion, no release file with JAVA_VERSION under "
           "Contents/Home): the launcher refuses it and shows the runtime message";
  if (!hasLauncherLibrary(runtime)) return "holds no runtime launcher library (Contents/Home/lib/libjli)";
  return *version;
}

// A shipped runtime is started whatever its version, so a range it falls outside of does
// not hold: the bundle runs on a version it says it does not accept.
void checkShippedVersion(const LaunchContext& context, const AcceptedVersion& version, const std::string& file,
                         Findings& findings) {
  const PlistValue& info = context.configuration;
  OptionalString min = info.string("bwk.minVersion"), max = info.string("bwk.maxVersion");
  if (checkBundleVersion(min, max, true, false, version.version, std::nullopt, std::nullopt)) return;
  findings.add(file, "",
               "ships runtime " + version.version + ", outside the range (bwk.minVersion " + min.value_or("(none)") +
                   ", bwk.maxVersion " + max.value_or("(none)") + "); it is started all the same");
}

// The length of the uncompressed stream, or the reason it cannot be read to its end.
std::optional<uint64_t> uncompressedLength(const std::string& archive, std::string* error) {
  gzFile gz = gzopen(archive.c_str(), "rb");
  if (!gz) {
    *error = "cannot be opened";
    return std::nullopt;
  }
  std::vector<char> buffer(1 << 18);
  uint64_t total = 0;
  int n;
  while ((n = gzread(gz, buffer.data(), static_cast<unsigned>(buffer.size()))) > 0) total += static_cast<uint64_t>(n);
  // A stream cut short reads as ended, leaving Z_BUF_ERROR behind.
  int code = Z_OK;
  std::string message = gzerror(gz, &code);
  gzclose(gz);
  if (n >= 0 && code != Z_BUF_ERROR) return total;
  *error = message;
  return std::nullopt;
}

// What the top level of an unpacked archive holds, for the layout message.
std::string topLevel(const std::string& directory) {
  std::vector<std::string> names = fs::listDirectory(directory).value_or(std::vector<std::string>{});
  std::sort(names.begin(), names.end());
  if (names.empty()) return "nothing";
  if (names.size() > 6) {
    names.resize(6);
    names.push_back("...");
  }
  return text::join(names, ", ");
}

ShippedModules modulesOf(const std::string& location, const std::string& runtime, const AcceptedVersion& version) {
  return ShippedModules{location, version.version, runtimeModules(runtimeHome(runtime))};
}

void checkArchive(const LaunchContext& context, const std::string& archive, Findings& findings,
                  std::optional<ShippedModules>& shipped) {
  std::string info = path::append(context.bundle->path(), "Contents/Info.plist");
  std::string error;
  std::optional<uint64_t> length = uncompressedLength(archive, &error);
  if (!length) {
    findings.add(archive, "", "is no complete gzip stream: " + error);
    return;
  }
  std::optional<int64_t> configured = context.configuration.integer("bwk.jreUncompressedSize");
  if (!configured) {
    findings.add(
        info, "bwk.jreUncompressedSize",
        "missing: the progress bar measures against 6000000 bytes; the archive holds " + std::to_string(*length));
  } else if (static_cast<uint64_t>(*configured) != std::min<uint64_t>(*length, 0x7fffffff)) {
    findings.add(
        info, "bwk.jreUncompressedSize",
        "says " + std::to_string(*configured) + "; the archive's tar stream is " + std::to_string(*length) + " bytes");
  }

  // Unpacked as a start unpacks it, into a directory of its own that goes afterwards.
  std::string temporary = path::append(platform::temporaryDirectory(), "brackwood-check-XXXXXX");
  if (!::mkdtemp(temporary.data())) {
    findings.add(archive, "", "cannot be unpacked for the check: no temporary directory");
    return;
  }
  std::string unpacked = path::append(temporary, "jre.bundle");
  fs::createDirectory(unpacked, false);
  int32_t size = static_cast<int32_t>(configured.value_or(kDefaultUncompressedSize));
  if (!UnTar::untar(archive, unpacked, size, nullptr).complete)
    findings.add(archive, "",
                 "the launcher's extraction reports errors (the lines above); a start goes on with what it unpacked");
  std::variant<AcceptedVersion, std::string> reading = readShippedRuntime(unpacked);
  if (const std::string* problem = std::get_if<std::string>(&reading)) {
    findings.add(archive, "",
                 "wrong layout: unpacked, it " + *problem +
                     ". The archive must hold Contents/Home/...; its top level holds " + topLevel(unpacked));
  } else {
    checkShippedVersion(context, std::get<AcceptedVersion>(reading), archive, findings);
    shipped = modulesOf(archive, unpacked, std::get<AcceptedVersion>(reading));
  }
  fs::removeItem(temporary);
}

// Why the launcher refuses a runtime of the search; absent when it accepts it.
std::optional<RuntimeSeen> refusal(const std::string& candidate, const OptionalString& min, const OptionalString& max,
                                   bool allowBeta) {
  RuntimeSeen seen{candidate, std::nullopt, ""};
  std::shared_ptr<RuntimeBundle> opened = RuntimeBundle::open(candidate);
  if (!opened) {
    seen.refusal = "not a readable directory";
    return seen;
  }
  if (checkJavaVersion(opened.get(), min, max, allowBeta, false)) return std::nullopt;
  const PlistValue& info = opened->infoDictionary();
  if (const PlistValue* javaVM = info.find("JavaVM")) seen.version = javaVM->string("JVMVersion");
  // The launcher takes a runtime for a pre-release by any of these texts.
  bool beta = isBetaVersion(seen.version) || isBetaVersion(info.string("EvarVersion")) ||
              isBetaVersion(info.string("CFBundleGetInfoString"));
  if (!seen.version) {
    seen.refusal = "no version: no Contents/Info.plist with JavaVM/JVMVersion, no release file";
  } else if (!allowBeta && beta) {
    seen.refusal = "a pre-release, and bwk.allowBeta is not set";
  } else if (!checkBundleVersion(min, std::nullopt, true, false, seen.version, std::nullopt, std::nullopt)) {
    seen.refusal = "below the minimum " + *min;
  } else if (!checkBundleVersion(std::nullopt, max, true, false, seen.version, std::nullopt, std::nullopt)) {
    seen.refusal = "above the maximum " + *max;
  } else {
    seen.refusal = "refused (not built for this machine's architecture)";
  }
  return seen;
}

// The runtimes of the search sequence in the launcher's order; true when one is accepted.
bool searchAccepts(const LaunchContext& context, std::vector<RuntimeSeen>& seen, std::optional<std::string>& accepted) {
  const PlistValue& info = context.configuration;
  OptionalString min = info.string("bwk.minVersion"), max = info.string("bwk.maxVersion");
  bool allowBeta = info.boolean("bwk.allowBeta").value_or(false);
  auto tryCandidate = [&](const std::string& candidate) {
    std::optional<RuntimeSeen> refused = refusal(candidate, min, max, allowBeta);
    if (!refused)
      accepted = candidate;
    else
      seen.push_back(*refused);
    return !refused;
  };
  auto installed = [&] {
    std::string directory = platform::installedRuntimesDirectory();
    std::vector<std::string> names = fs::listDirectory(directory).value_or(std::vector<std::string>{});
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
      if (fs::isDirectory(path::append(directory, name)) && tryCandidate(path::append(directory, name))) return true;
    return false;
  };
  OptionalString jvm;
  try {
    jvm = findOverrideJvm(context);
  } catch (const std::exception&) {
    // Option files that include themselves: reported with the option files.
  }
  if (jvm && fs::exists(*jvm) && tryCandidate(*jvm)) return true;
  const PlistValue* sequence = context.javaVM().find("SearchSequence");
  if (!sequence || !sequence->isArray()) return installed();
  VariableScope scope{context.paths, std::nullopt};
  for (const PlistValue& entry : *sequence->asArray()) {
    const std::string* text = entry.asString();
    if (!text || text->empty()) continue;
    OptionalString value = replaceVariables(text->substr(1), scope);
    if ((*text)[0] == 'Y' && installed()) return true;
    if ((*text)[0] == 'R' && value && fs::exists(*value) && tryCandidate(*value)) return true;
    if ((*text)[0] == 'E' && value) {
      OptionalString directory = platform::environmentValue(*value);
      if (directory && fs::exists(*directory) && tryCandidate(*directory)) return true;
    }
  }
  return false;
}

}  // namespace

std::optional<std::string> checkRuntimes(const LaunchContext& context, Findings& findings,
                                         std::optional<ShippedModules>& shipped) {
  const std::string& bundle = context.bundle->path();
  for (const char* location : kShippedRuntimeLocations) {
    std::string runtime = path::append(bundle, location);
    if (!fs::exists(runtime)) continue;
    std::variant<AcceptedVersion, std::string> reading = readShippedRuntime(runtime);
    if (const std::string* problem = std::get_if<std::string>(&reading)) {
      findings.add(runtime, "", *problem);
    } else {
      checkShippedVersion(context, std::get<AcceptedVersion>(reading), runtime, findings);
      shipped = modulesOf(runtime, runtime, std::get<AcceptedVersion>(reading));
    }
    return runtime;
  }
  std::string archive = path::append(context.bundle->resourcePath(), "app/jre.tar.gz");
  if (fs::exists(archive)) {
    checkArchive(context, archive, findings, shipped);
    return std::nullopt;
  }
  if (context.paths.appRootDir) {
    for (const char* privateRuntime : {".brackwood/jre.bundle", ".brackwood/jre"}) {
      std::string runtime = path::append(*context.paths.appRootDir, privateRuntime);
      if (!fs::isDirectory(runtime)) continue;
      std::variant<AcceptedVersion, std::string> reading = readShippedRuntime(runtime);
      if (const AcceptedVersion* version = std::get_if<AcceptedVersion>(&reading))
        shipped = modulesOf(runtime, runtime, *version);
      return runtime;
    }
  }

  std::vector<RuntimeSeen> seen;
  std::optional<std::string> accepted;
  if (searchAccepts(context, seen, accepted)) return accepted;
  const PlistValue& info = context.configuration;
  std::string range = "bwk.minVersion " + info.string("bwk.minVersion").value_or("(none)") + ", bwk.maxVersion " +
                      info.string("bwk.maxVersion").value_or("(none)");
  std::string key = info.find("bwk.maxVersion") && !info.find("bwk.minVersion") ? "bwk.maxVersion" : "bwk.minVersion";
  Finding& finding = findings.add(path::append(bundle, "Contents/Info.plist"), key,
                                  seen.empty() ? "no runtime was found for the range (" + range + ") in " +
                                                     platform::installedRuntimesDirectory() + " or the search sequence"
                                               : "no runtime of the search satisfies the range (" + range + ")");
  finding.runtimes = std::move(seen);
  return std::nullopt;
}

}  // namespace bwk::bundle
