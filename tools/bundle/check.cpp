// "check": reads a bundle the way the launcher reads it and reports what would go wrong or
// be ignored. Exit status 0 when clean, 1 with findings, 2 for a command line it cannot use.
#include <stdlib.h>

#include <cstdio>

#include "arguments.h"
#include "base/bundle.h"
#include "base/fs.h"
#include "base/path.h"
#include "base/plist_reader.h"
#include "check_steps.h"
#include "commands.h"
#include "launcher/launch_context.h"
#include "tool_error.h"

namespace bwk::bundle {

namespace {

const OptionDefinition kCheckOptions[] = {
    {"json", nullptr, false,
     "print the findings as JSON: {\"bundle\", \"findings\": [{\"file\", \"key\", \"message\", ...}]}"},
};

constexpr const char* kCheckSynopsis =
    "usage: brackwood-bundle check APP [--json]\n"
    "Reads APP as the launcher does and prints one line per finding (file: key: message): unknown\n"
    "keys, values of the wrong type, a main class in none of the class-path entries, entries that\n"
    "match nothing, a version range no installed runtime satisfies or a shipped runtime falls outside,\n"
    "a runtime archive in the wrong layout or size, a shipped runtime without a module the classes\n"
    "use (jdeps of a JDK at hand), manifest Add-Opens/Add-Exports of the main jar that no option\n"
    "applies, malformed option files, strings files or icon.\n"
    "Exit status: 0 no findings, 1 findings, 2 usage errors.";

std::string resolvedPath(const std::string& given) {
  char* resolved = ::realpath(given.c_str(), nullptr);
  if (!resolved) throw usageError(given + ": no such bundle");
  std::string out(resolved);
  std::free(resolved);
  return out;
}

}  // namespace

int runCheck(std::span<const std::string> words) {
  std::string error;
  std::optional<ParsedArguments> args = parseArguments(kCheckOptions, words, &error);
  if (!args) throw usageError(error);
  if (args->help) {
    std::fputs(helpText(kCheckSynopsis, kCheckOptions).c_str(), stdout);
    return 0;
  }
  if (args->words.size() != 1) throw usageError(args->words.empty() ? "which bundle?" : "one bundle at a time");
  std::string app = resolvedPath(args->words[0]);
  if (!fs::isDirectory(app)) throw usageError(app + ": not a bundle directory");

  Findings findings(app);
  const Bundle bundle(app);
  std::string infoFile = path::append(app, "Contents/Info.plist");
  std::optional<PlistValue> info = readPropertyListFile(infoFile, &error);
  if (!fs::exists(infoFile))
    findings.add(infoFile, "", "missing: the launcher runs with an empty configuration");
  else if (!info)
    findings.add(infoFile, "", "cannot be read: " + error + "; the launcher runs with an empty configuration");
  else if (!info->isDictionary())
    findings.add(infoFile, "", "is no dictionary; the launcher runs with an empty configuration");
  else
    checkConfigurationKeys(*info, infoFile, findings);

  const LaunchContext context = LaunchContext::forBundle(bundle, {path::append(app, "Contents/MacOS/check")}, true);
  checkResources(context, findings);
  checkOptions(context, findings);
  std::optional<ShippedModules> shipped;
  std::optional<std::string> runtime = checkRuntimes(context, findings, shipped);
  std::vector<std::string> classes = checkClassPath(context, runtime, findings);
  if (shipped && !classes.empty()) checkRuntimeModules(*shipped, classes, findings);

  std::string report = args->has("json") ? jsonReport(findings) : humanReport(findings);
  std::fputs(report.c_str(), stdout);
  return findings.all().empty() ? 0 : 1;
}

}  // namespace bwk::bundle
