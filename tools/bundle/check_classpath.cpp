// The class path as the launcher builds it (configured, then changed by option lists and
// files, entries expanded in the working directory), every entry that matches nothing, and
// the main class in the jars and directories it names.
#include <unistd.h>

#include <algorithm>
#include <set>

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"
#include "check_steps.h"
#include "class_names.h"
#include "jar_manifest.h"
#include "launcher/java_parameters.h"
#include "launcher/option_files.h"
#include "launcher/runtime_bundle.h"
#include "launcher/variables.h"
#include "manifest_options.h"
#include "zip_directory.h"

namespace bwk::bundle {

namespace {

// Restores the current directory when the check is done with the working directory.
class CurrentDirectory {
 public:
  CurrentDirectory() {
    char buffer[4096];
    if (::getcwd(buffer, sizeof buffer)) saved_ = buffer;
  }
  ~CurrentDirectory() {
    if (saved_ && ::chdir(saved_->c_str()) != 0) { /* nothing more to restore */
    }
  }
  CurrentDirectory(const CurrentDirectory&) = delete;
  CurrentDirectory& operator=(const CurrentDirectory&) = delete;

 private:
  std::optional<std::string> saved_;
};

struct ClassPathSource {
  OptionalString classPath;
  std::string file, key;             // where its last change came from
  std::vector<std::string> options;  // every runtime option of the configuration and the option files
};

// The class path the launcher reaches before it expands the entries.
ClassPathSource configuredClassPath(const LaunchContext& context, const VariableScope& scope) {
  std::string info = path::append(context.bundle->path(), "Contents/Info.plist");
  ClassPathSource source{replaceVariables(context.javaVM().string("ClassPath"), scope), info, "JavaVM.ClassPath", {}};
  std::vector<std::string>& options = source.options;
  OptionalString before = source.classPath;
  source.classPath =
      addPredefinedOptions(context.javaVM().stringArray("VMOptionArray"), options, source.classPath, scope);
  if (source.classPath != before) source.key = "JavaVM.VMOptionArray";
  for (const std::string& file : optionFiles(context)) {
    before = source.classPath;
    try {
      source.classPath = readOptionsFile(file, options, source.classPath, scope);
    } catch (const std::exception&) {
      continue;  // an include cycle: reported with the option files
    }
    if (source.classPath != before) {
      source.file = file;
      source.key = "-classpath";
    }
  }
  return source;
}

bool holdsClass(const std::string& item, const std::string& entry) {
  if (fs::isDirectory(item)) return fs::exists(path::append(item, entry));
  std::vector<std::string> names = zipEntryNames(item, nullptr).value_or(std::vector<std::string>{});
  return std::find(names.begin(), names.end(), entry) != names.end();
}

// The packages the main jar's manifest opens or exports that no runtime option does; those
// of modules the shipped runtime lacks do not count, as `java -jar` passes them over.
void checkManifestOptions(const std::string& mainJar, const std::vector<std::string>& configured,
                          const std::optional<std::string>& runtimePath, const std::string& info, Findings& findings) {
  std::optional<JarManifest> manifest = JarManifest::read(mainJar, nullptr);
  if (!manifest) return;
  std::optional<std::set<std::string>> modules;
  if (runtimePath) modules = runtimeModules(runtimeHome(*runtimePath));
  // "--add-opens X" and "--add-opens=X" are the same option.
  std::set<std::string> applied;
  for (size_t i = 0; i < configured.size(); ++i) {
    bool separate = (configured[i] == "--add-opens" || configured[i] == "--add-exports") && i + 1 < configured.size();
    applied.insert(separate ? configured[i] + "=" + configured[i + 1] : configured[i]);
  }
  for (const std::string& option : manifestOptions(*manifest, modules).options)
    if (!applied.count(option))
      findings.add(info, "JavaVM.VMOptionArray",
                   "lacks " + option + ": the manifest of " + path::lastComponent(mainJar) +
                       " asks for it and `java -jar` applies it");
}

}  // namespace

std::vector<std::string> checkClassPath(const LaunchContext& context, const std::optional<std::string>& runtimePath,
                                        Findings& findings) {
  std::string info = path::append(context.bundle->path(), "Contents/Info.plist");
  VariableScope scope{context.paths, runtimePath};
  ClassPathSource source = configuredClassPath(context, scope);

  CurrentDirectory restore;
  ChosenRuntime runtime{runtimePath.value_or(""), nullptr, std::nullopt, -1, "", false, false};
  OptionalString workingDirectory = bwk::workingDirectory(context, runtime);
  if (workingDirectory && ::chdir(workingDirectory->c_str()) != 0)
    findings.add(info, "JavaVM.WorkingDirectory", *workingDirectory + " is no directory: the start stays where it was");
  std::string base = workingDirectory.value_or(context.bundle->path());

  std::vector<std::string> items;
  for (const std::string& entry : text::split(source.classPath.value_or(""), ":")) {
    if (entry.empty()) continue;
    OptionalString expanded = resolveArtifactPath(entry);
    if (!expanded || expanded->empty()) {
      findings.add(source.file, source.key, "the entry " + entry + " matches nothing");
      continue;
    }
    for (const std::string& item : text::split(*expanded, ":")) {
      std::string absolute = path::isAbsolute(item) ? item : path::append(base, item);
      std::string error;
      if (!fs::exists(absolute))
        findings.add(source.file, source.key, "the entry " + item + " does not exist");
      else if (!fs::isDirectory(absolute) && !zipEntryNames(absolute, &error))
        findings.add(source.file, source.key, "the entry " + item + " is neither a directory nor a jar: " + error);
      else
        items.push_back(absolute);
    }
  }

  OptionalString mainClass = context.javaVM().string("MainClass");
  if (!mainClass) {
    findings.add(info, "JavaVM.MainClass", "missing: the runtime is asked to start the class '(null)'");
    return items;
  }
  std::string entry = text::replaceAll(*mainClass, ".", "/") + ".class";
  // A modular application may hold it on the module path.
  if (OptionalString modulePath = resolveArtifactPath(replaceVariables(context.javaVM().string("ModulePath"), scope)))
    for (const std::string& item : text::split(*modulePath, ":"))
      items.push_back(path::isAbsolute(item) ? item : path::append(base, item));
  auto mainJar =
      std::find_if(items.begin(), items.end(), [&](const std::string& item) { return holdsClass(item, entry); });
  if (mainJar == items.end()) {
    findings
        .add(info, "JavaVM.MainClass",
             *mainClass + " is in none of the " + std::to_string(items.size()) + " class-path entries (no " + entry +
                 ")")
        .suggestion = nearestClassName(*mainClass, items);
    return items;
  }
  if (!fs::isDirectory(*mainJar)) checkManifestOptions(*mainJar, source.options, runtimePath, info, findings);
  return items;
}

}  // namespace bwk::bundle
