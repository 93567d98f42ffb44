// "create": a complete application bundle (or, with --embed, a command-line launcher) from a
// name, a main class, jars, options and perhaps a runtime. Everything is built in a
// temporary directory beside the output and moved into place at the end.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <set>

#include "arguments.h"
#include "base/fs.h"
#include "base/path.h"
#include "base/plist_reader.h"
#include "base/strings.h"
#include "build_id.h"
#include "class_names.h"
#include "commands.h"
#include "default_texts.h"
#include "icon.h"
#include "installed_application.h"
#include "launcher/runtime_checks.h"
#include "launcher/version_compare.h"
#include "launcher_copy.h"
#include "manifest_options.h"
#include "module_deps.h"
#include "plist_writer.h"
#include "runtime_link.h"
#include "runtime_shipping.h"
#include "runtime_tree.h"
#include "runtime_trim.h"
#include "staged_output.h"
#include "tool_error.h"
#include "zip_directory.h"

namespace bwk::bundle {

namespace {

const OptionDefinition kCreateOptions[] = {
    {"name", "NAME", false, "application name: NAME.app, Contents/MacOS/NAME, CFBundleName"},
    {"input", "DIR", false, "an installed application: DIR is shipped whole as Contents/Resources/app"},
    {"main-jar", "JAR", false,
     "(with --input) the jar `java -jar` is given, relative to DIR: class path, main class, options"},
    {"main-class", "CLASS", false, "the Java main class (with --main-jar: instead of its manifest's Main-Class)"},
    {"jar", "PATH", true,
     "a jar, or a directory whose .jar and .zip files are all taken (repeatable; class-path order); with --input, inside DIR"},
    {"working-directory", "bundle|caller|DIR", false,
     "where the application runs: the bundle, the directory it is started from (default), or DIR"},
    {"app-version", "V", false,
     "CFBundleShortVersionString and CFBundleVersion (default: the main jar's Implementation-Version)"},
    {"java-option", "OPT", true, "a runtime option, VMOptionArray (repeatable)"},
    {"argument", "ARG", true, "an application argument before those of the command line, ArgumentArray (repeatable)"},
    {"min-version", "V", false, "lowest runtime version accepted (bwk.minVersion)"},
    {"max-version", "V", false, "highest runtime version accepted (bwk.maxVersion)"},
    {"identifier", "ID", false, "bundle identifier (CFBundleIdentifier)"},
    {"icon", "FILE", false, "an .icns file, or a PNG image that is wrapped into one"},
    {"runtime", "DIR", false,
     "a runtime to ship (a JDK, a jlink image or a runtime bundle); without it the launcher searches"},
    {"runtime-as", "bundle|archive", false,
     "ship it as Contents/Resources/jre.bundle (default), or as app/jre.tar.gz unpacked at every start"},
    {"jlink", nullptr, false,
     "ship a runtime linked by the --runtime JDK of only the modules the application needs (jdeps over its jars)"},
    {"add-modules", "M,...", true, "(with --jlink) modules to link beside those found (repeatable)"},
    {"progress-window", "auto|always|never", false,
     "bwk.initialProgress: auto (default) shows the window only while a runtime archive is unpacked"},
    {"reuse-unpacked-runtime", nullptr, false,
     "(with --runtime-as archive) unpack it once into the user's cache (bwk.reuseUnpackedRuntime)"},
    {"aot-cache", nullptr, false,
     "AotCacheEnabled: runtimes from 25 on start from a cache the first start writes; AotCacheBuildId a digest of the jars"},
    {"strings", "FILE", false, "a Localizable.strings table whose texts replace the English defaults, key by key"},
    {"allow-passthrough", nullptr, false,
     "command-line words -J<option> become runtime options (bwk.allowPassthrough)"},
    {"output", "DIR", false, "where NAME.app goes (made when missing)"},
    {"force", nullptr, false, "replace an existing NAME.app"},
    {"embed", nullptr, false,
     "write the command-line launcher DIR/NAME/NAME, its configuration embedded, instead of a bundle"},
    {"service", "MODE", false,
     "(with --embed) bwk.service: the first argument is a service action; 'legacy' detaches on start"},
    {"launcher", "FILE", false, "the launcher to copy (default: brackwood-launcher beside this program)"},
};

constexpr const char* kCreateSynopsis =
    "usage: brackwood-bundle create --name NAME --main-class CLASS --jar PATH... --output DIR [options]\n"
    "       brackwood-bundle create --name NAME --input DIR --main-jar JAR --output DIR [options]\n"
    "Writes DIR/NAME.app: Info.plist, the launcher (stripped) as Contents/MacOS/NAME, the jars in\n"
    "Contents/Resources/app/lib (or the --input directory as Contents/Resources/app),\n"
    "Localizable.strings, the icon and the runtime. An existing output is refused without --force; a\n"
    "failure leaves no half-written bundle.";

struct Request {
  std::string name, mainClass, output, launcher;
  std::vector<std::string> jars;  // files, in class-path order
  std::optional<InstalledApplication> installed;
  std::vector<std::string> javaOptions, arguments;
  std::optional<std::string> minVersion, maxVersion, identifier, icon, service, strings, appVersion;
  std::optional<std::string> workingDirectory;  // the value of WorkingDirectory; absent: the launcher's default
  bool nativeAccess = false;
  std::optional<ShippedRuntime> runtime;
  bool archive = false, force = false, embed = false, passthrough = false;
  bool jlink = false, reuseUnpacked = false, aotCache = false;
  std::vector<std::string> addedModules;
  std::string progressWindow = "auto";
};

void warn(const std::string& message) { std::fprintf(stderr, "brackwood-bundle: warning: %s\n", message.c_str()); }

std::string megabytes(uint64_t bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
  return text;
}

void requireName(const std::string& name) {
  bool control = std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
  if (name.empty() || name == "." || name == ".." || text::contains(name, "/") || control || !text::isValidUtf8(name))
    throw usageError("--name: '" + name + "' cannot name a file");
}

// Dot-separated Java identifiers.
void requireMainClass(const std::string& mainClass) {
  for (const std::string& part : text::split(mainClass, ".")) {
    bool valid = !part.empty() && !text::isDigit(part[0]);
    for (char c : part) {
      auto byte = static_cast<unsigned char>(c);
      valid = valid && (std::isalnum(byte) || c == '_' || c == '$' || byte >= 0x80);
    }
    if (!valid) throw usageError("--main-class: '" + mainClass + "' is no Java class name");
  }
}

void requireVersions(const Request& request) {
  for (const auto& [option, value] :
       {std::pair{"--min-version", request.minVersion}, {"--max-version", request.maxVersion}})
    if (value && (value->empty() || !std::isdigit(static_cast<unsigned char>((*value)[0]))))
      throw usageError(std::string(option) + ": '" + *value + "' is no version");
  // The same comparison the launcher makes: the minimum itself must pass the maximum.
  if (request.minVersion && request.maxVersion &&
      !compareVersion(request.maxVersion, text::splitAny(*request.minVersion, "._-+"), true))
    throw usageError("--max-version " + *request.maxVersion + " is below --min-version " + *request.minVersion);
}

// Each --jar in turn: a jar, or every .jar and .zip of a directory in name order.
std::vector<std::string> collectJars(const std::vector<std::string>& given) {
  std::vector<std::string> jars;
  std::set<std::string> names;
  auto add = [&](const std::string& file) {
    std::string error;
    if (!zipEntryNames(file, &error)) throw failure(file + ": not a jar: " + error);
    std::string name = path::lastComponent(file);
    if (text::contains(name, ":")) throw failure(file + ": a ':' in a jar's name would split the class path");
    if (!names.insert(name).second) throw failure(file + ": a second jar named " + name);
    jars.push_back(file);
  };
  for (const std::string& entry : given) {
    if (!fs::exists(entry)) throw failure(entry + ": no such file or directory");
    if (!fs::isDirectory(entry)) {
      add(entry);
      continue;
    }
    std::vector<std::string> listed = fs::listDirectory(entry).value_or(std::vector<std::string>{});
    std::sort(listed.begin(), listed.end());
    size_t before = jars.size();
    for (const std::string& name : listed)
      if ((text::endsWith(name, ".jar") || text::endsWith(name, ".zip")) && !fs::isDirectory(path::append(entry, name)))
        add(path::append(entry, name));
    if (jars.size() == before) throw failure(entry + ": holds no .jar or .zip file");
  }
  return jars;
}

std::vector<std::string> classPathJars(const Request& request) {
  std::vector<std::string> jars = request.jars;
  if (request.installed)
    for (const ClassPathItem& item : request.installed->classPath.items)
      if (!item.directory) jars.push_back(item.path);
  return jars;
}

bool mainClassInJars(const Request& request) {
  std::string entry = text::replaceAll(request.mainClass, ".", "/") + ".class";
  for (const std::string& jar : classPathJars(request)) {
    std::vector<std::string> names = zipEntryNames(jar, nullptr).value_or(std::vector<std::string>{});
    if (std::find(names.begin(), names.end(), entry) != names.end()) return true;
  }
  return false;
}

// How the runtime is made and how a start begins: linked or trimmed, the progress window,
// the cache of unpacked runtimes, the AOT cache.
void readStartChoices(Request& request, const ParsedArguments& args) {
  request.jlink = args.has("jlink");
  request.addedModules = args.all("add-modules");
  request.reuseUnpacked = args.has("reuse-unpacked-runtime");
  request.aotCache = args.has("aot-cache");
  request.progressWindow = args.value("progress-window").value_or("auto");
  if (request.jlink && !args.has("runtime"))
    throw usageError("--jlink needs --runtime: the JDK that links the runtime");
  if (!request.addedModules.empty() && !request.jlink) throw usageError("--add-modules needs --jlink");
  if (request.reuseUnpacked && !request.archive)
    throw usageError("--reuse-unpacked-runtime needs --runtime-as archive");
  if (request.progressWindow != "auto" && request.progressWindow != "always" && request.progressWindow != "never")
    throw usageError("--progress-window takes auto, always or never, not '" + request.progressWindow + "'");
  if (request.embed && args.has("progress-window"))
    throw usageError("--progress-window needs a bundle: a command-line launcher shows none");
}

// "bundle" is the launcher's default for a bundle; a command-line launcher stays in the
// caller's directory unless told otherwise.
std::optional<std::string> workingDirectoryValue(const std::string& given, bool embed) {
  if (given.empty()) throw usageError("--working-directory takes bundle, caller or a directory");
  if (given == "bundle") return embed ? std::optional<std::string>("${launcher:sys.appRootDir}") : std::nullopt;
  if (given == "caller") return embed ? std::nullopt : std::optional<std::string>("${launcher:sys.callerDirectory}");
  return given;
}

// The main jar and what `java -jar` takes from it; the runtime is known by now.
void takeInstalledApplication(Request& request, const ParsedArguments& args) {
  request.installed = bundle::readInstalledApplication(*args.value("input"), *args.value("main-jar"), args.all("jar"));
  const InstalledApplication& app = *request.installed;
  if (text::startsWith(path::standardize(std::filesystem::absolute(request.output).string()) + "/", app.input + "/"))
    throw usageError("--output " + request.output + " lies inside --input");
  for (const std::string& warning : app.classPath.warnings) warn(warning);
  for (const std::string& warning : app.warnings) warn(warning);

  std::optional<std::set<std::string>> modules;
  if (request.runtime)
    modules = runtimeModules(request.runtime->bundleShaped ? path::append(request.runtime->directory, "Contents/Home")
                                                           : request.runtime->directory);
  ManifestOptions fromManifest = manifestOptions(app.manifest, modules);
  for (const std::string& note : fromManifest.notes) warn(note);
  if (fromManifest.agentClass)
    throw failure(app.mainJar + ": Launcher-Agent-Class " + *fromManifest.agentClass +
                  ": the launcher cannot start an agent before the main class, as `java -jar` does");
  std::optional<std::string> mainClass = args.value("main-class");
  if (!mainClass) mainClass = fromManifest.mainClass;
  if (!mainClass) throw usageError(app.mainJar + " names no Main-Class in its manifest: give --main-class");
  request.mainClass = *mainClass;
  request.javaOptions.insert(request.javaOptions.begin(), fromManifest.options.begin(), fromManifest.options.end());
  request.nativeAccess = fromManifest.nativeAccess;
  if (!request.appVersion) request.appVersion = app.manifest.value("Implementation-Version");

  // Names the shipped directory must leave to the bundle.
  std::vector<std::string> reserved{kExternalClassPathFolder};
  if (request.embed)
    reserved.insert(reserved.end(), {request.name, "Contents", ".brackwood"});
  else if (request.runtime && args.value("runtime-as") == "archive")
    reserved.push_back("jre.tar.gz");
  for (const std::string& name : reserved)
    if (fs::existsNoFollow(path::append(app.input, name)))
      throw failure(path::append(app.input, name) + ": the bundle needs this name for itself");
}

Request readRequest(const ParsedArguments& args) {
  Request request;
  bool installed = args.has("input");
  if (installed != args.has("main-jar"))
    throw usageError(installed ? "--input needs --main-jar" : "--main-jar needs --input");
  for (const char* required : {"name", "output"})
    if (!args.has(required)) throw usageError(std::string("--") + required + " is required");
  if (!installed && !args.has("main-class")) throw usageError("--main-class is required (or --input with --main-jar)");
  if (!installed && !args.has("jar")) throw usageError("--jar is required (or --input with --main-jar)");
  if (!args.words.empty()) throw usageError("unexpected word '" + args.words[0] + "'");
  request.name = *args.value("name");
  request.output = *args.value("output");
  request.appVersion = args.value("app-version");
  request.javaOptions = args.all("java-option");
  request.arguments = args.all("argument");
  request.minVersion = args.value("min-version");
  request.maxVersion = args.value("max-version");
  request.identifier = args.value("identifier");
  request.icon = args.value("icon");
  request.service = args.value("service");
  request.strings = args.value("strings");
  request.force = args.has("force");
  request.embed = args.has("embed");
  request.passthrough = args.has("allow-passthrough");
  std::optional<std::string> runtimeAs = args.value("runtime-as");
  if (runtimeAs && *runtimeAs != "bundle" && *runtimeAs != "archive")
    throw usageError("--runtime-as takes bundle or archive, not '" + *runtimeAs + "'");
  if (runtimeAs && !args.has("runtime")) throw usageError("--runtime-as needs --runtime");
  request.archive = runtimeAs == "archive";
  if (request.service && !request.embed) throw usageError("--service needs --embed");
  if (request.embed && request.archive)
    throw usageError("--runtime-as archive needs a bundle: a command-line launcher does not unpack archives");
  if (request.embed && request.icon) throw usageError("--icon needs a bundle");
  readStartChoices(request, args);
  requireName(request.name);
  requireVersions(request);
  request.workingDirectory = workingDirectoryValue(args.value("working-directory").value_or("caller"), request.embed);

  if (std::optional<std::string> runtime = args.value("runtime")) {
    std::string error;
    request.runtime = inspectRuntime(*runtime, &error);
    if (!request.runtime) throw failure(error);
    if (request.jlink)
      if (std::optional<std::string> problem = linkProblem(*request.runtime)) throw failure(*problem);
    if (!checkBundleVersion(request.minVersion, request.maxVersion, true, false, request.runtime->version, std::nullopt,
                            std::nullopt))
      warn("the runtime's version " + request.runtime->version +
           " is outside the range given; a shipped runtime is used whatever the range says");
  }
  if (installed) {
    takeInstalledApplication(request, args);
  } else {
    request.mainClass = *args.value("main-class");
    request.jars = collectJars(args.all("jar"));
  }
  requireMainClass(request.mainClass);
  if (!mainClassInJars(request)) {
    std::optional<std::string> nearest = nearestClassName(request.mainClass, classPathJars(request));
    warn(request.mainClass + " is in none of the jars" + (nearest ? " (did you mean " + *nearest + "?)" : ""));
  }
  std::optional<std::string> launcher = args.value("launcher");
  if (!launcher) launcher = defaultLauncherPath();
  if (!launcher) throw failure("the launcher is not found: give --launcher");
  request.launcher = *launcher;
  return request;
}

// Only an archive to unpack gives the window something to show; without one it would only
// delay the start.
bool showsProgressWindow(const Request& request) {
  return request.progressWindow == "always" || (request.progressWindow == "auto" && request.archive);
}

// The configuration: Info.plist, or the one embedded in a command-line launcher.
PlistValue configuration(const Request& request, const std::optional<uint64_t>& archiveSize,
                         const std::optional<std::string>& buildId) {
  auto strings = [](const std::vector<std::string>& list) { return PlistValue(PlistArray(list.begin(), list.end())); };
  std::vector<std::string> classPath;
  for (const std::string& jar : request.jars)
    classPath.push_back("${launcher:sys.appRootDir}/lib/" + path::lastComponent(jar));
  if (request.installed)
    for (const std::string& entry : request.installed->entries)
      classPath.push_back("${launcher:sys.appRootDir}/" + entry);
  PlistDict javaVM{{"MainClass", request.mainClass}, {"ClassPath", text::join(classPath, ":")}};
  if (!request.javaOptions.empty()) javaVM["VMOptionArray"] = strings(request.javaOptions);
  // `java -jar` grants native access from the runtime that reads the manifest attribute on.
  if (request.nativeAccess)
    javaVM["VersionSpecificVMOptions"] =
        PlistValue(PlistArray{PlistValue("22-9999"), strings({"--enable-native-access=ALL-UNNAMED"})});
  if (request.workingDirectory) javaVM["WorkingDirectory"] = *request.workingDirectory;
  if (!request.arguments.empty()) javaVM["ArgumentArray"] = strings(request.arguments);
  if (buildId) {
    javaVM["AotCacheEnabled"] = true;
    javaVM["AotCacheBuildId"] = *buildId;
  }

  PlistDict info{{"CFBundleName", request.name}, {"JavaVM", PlistValue(std::move(javaVM))}};
  if (request.embed) {
    // The installation root is the launcher's own directory.
    info["bwk.baseDir"] = ".";
    if (request.service) info["bwk.service"] = *request.service;
  } else {
    info["CFBundleExecutable"] = request.name;
    info["CFBundlePackageType"] = "APPL";
    info["CFBundleInfoDictionaryVersion"] = "6.0";
    info["CFBundleDevelopmentRegion"] = "en";
  }
  if (request.identifier) info["CFBundleIdentifier"] = *request.identifier;
  if (request.appVersion) {
    info["CFBundleShortVersionString"] = *request.appVersion;
    info["CFBundleVersion"] = *request.appVersion;
  }
  if (request.icon) info["CFBundleIconFile"] = "app.icns";
  if (request.minVersion) info["bwk.minVersion"] = *request.minVersion;
  if (request.maxVersion) info["bwk.maxVersion"] = *request.maxVersion;
  if (request.passthrough) info["bwk.allowPassthrough"] = true;
  if (!request.embed) info["bwk.initialProgress"] = showsProgressWindow(request);
  if (request.reuseUnpacked) info["bwk.reuseUnpackedRuntime"] = true;
  // The launcher reads the size as a 32-bit number.
  if (archiveSize) info["bwk.jreUncompressedSize"] = static_cast<int64_t>(std::min<uint64_t>(*archiveSize, 0x7fffffff));
  return PlistValue(std::move(info));
}

std::string iconContainer(const std::string& file) {
  std::optional<std::string> bytes = fs::readFile(file);
  if (!bytes) throw failure(file + ": cannot be read");
  std::string extension = path::extension(file);
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  std::string error;
  if (extension == "png") {
    std::optional<WrappedIcon> icon = icnsFromPng(*bytes, &error);
    if (!icon) throw failure(file + ": " + error);
    if (!icon->warning.empty()) warn(file + ": " + icon->warning);
    return icon->icns;
  }
  if (extension != "icns") throw failure(file + ": an icon is an .icns file or a .png image");
  if (std::optional<std::string> problem = icnsProblem(*bytes)) throw failure(file + ": " + *problem);
  return *bytes;
}

// The English defaults, with the texts of --strings in their place.
std::vector<StringsEntry> strings(const Request& request) {
  std::vector<StringsEntry> entries = defaultStrings(request.name, request.minVersion.has_value());
  if (!request.strings) return entries;
  std::string error;
  std::optional<PlistValue> table = readPropertyListFile(*request.strings, &error);
  if (!table || !table->asDictionary())
    throw failure(*request.strings + ": not a strings table" + (table ? "" : ": " + error));
  for (const auto& [key, value] : *table->asDictionary()) {
    // The binding is captured under a name of its own: clang before 16 cannot capture a structured binding.
    auto entry =
        std::find_if(entries.begin(), entries.end(), [&name = key](const StringsEntry& e) { return e.key == name; });
    if (entry == entries.end()) throw failure(*request.strings + ": " + key + " is no message of the launcher");
    if (!value.asString()) throw failure(*request.strings + ": " + key + " is no text");
    entry->value = *value.asString();
  }
  return entries;
}

void makeDirectory(const std::string& dir) {
  if (!fs::createDirectory(dir, true)) throw failure(dir + ": cannot be made");
}

void writeFile(const std::string& file, std::string_view bytes, mode_t mode) {
  makeDirectory(path::parent(file));
  if (!fs::writeFile(file, std::string(bytes)) || ::chmod(file.c_str(), mode) != 0)
    throw failure(file + ": cannot be written");
}

void copyFile(const std::string& from, const std::string& to) {
  makeDirectory(path::parent(to));
  std::error_code ec;
  if (!std::filesystem::copy_file(from, to, ec) || ::chmod(to.c_str(), 0644) != 0)
    throw failure(to + ": cannot be written: " + ec.message());
}

uint64_t compressedSize(const std::string& file) {
  std::error_code ec;
  uintmax_t size = std::filesystem::file_size(file, ec);
  return ec ? 0 : size;
}

// What jdeps reads: the class path, every other jar shipped with the application (plugins
// it loads later), the module path of its runtime options.
std::vector<std::string> applicationClasses(const Request& request, const std::string& appRoot) {
  std::vector<std::string> items = request.jars;
  if (request.installed) {
    for (const ClassPathItem& item : request.installed->classPath.items) items.push_back(item.path);
    std::set<std::string> listed(items.begin(), items.end());
    walkRuntimeTree(request.installed->input, [&](const TreeEntry& entry, std::string&) {
      if (entry.kind == TreeEntry::Kind::File && text::endsWith(entry.relative, ".jar") && !listed.count(entry.source))
        items.push_back(entry.source);
      return true;
    });
  }
  for (const std::string& entry : modulesInOptions(request.javaOptions).modulePath) {
    std::string placed = text::replaceAll(entry, "${launcher:sys.appRootDir}", appRoot);
    if (fs::exists(placed)) items.push_back(placed);
  }
  return items;
}

// The runtime as the bundle ships it: linked of the modules the application needs, or the
// runtime given without what no start needs.
ShippedRuntime runtimeToShip(const Request& request, const std::string& linkDirectory, const std::string& appRoot,
                             std::vector<std::string>& summary, std::vector<std::string>& warnings) {
  ShippedRuntime runtime = *request.runtime;
  if (!request.jlink) {
    uint64_t whole = shippedSize(runtime);
    std::vector<std::string> names = leaveOutUnneeded(runtime);
    if (!names.empty())
      summary.push_back("left out of the runtime, as no start needs them: " + text::join(names, ", ") + " (" +
                        megabytes(whole - shippedSize(runtime)) + " saved; --jlink ships only the modules used)");
    return runtime;
  }
  LinkedRuntime linked = linkRuntime(LinkInput{runtime, applicationClasses(request, appRoot), request.javaOptions,
                                               request.addedModules, !request.archive},
                                     linkDirectory);
  warnings.insert(warnings.end(), linked.notes.begin(), linked.notes.end());
  summary.push_back("runtime linked of " + std::to_string(linked.modules.size()) +
                    " modules (and what they require): " + text::join(linked.modules, ","));
  return linked.runtime;
}

// One line on how a start begins, so that the choice made is seen.
std::string startSummary(const Request& request, const std::optional<std::string>& buildId) {
  std::string line;
  if (request.embed)
    line = "start: no progress window (a command-line launcher)";
  else if (showsProgressWindow(request))
    line = request.archive ? "start: the progress window shows while the runtime archive is unpacked"
                           : "start: the progress window shows until the launch (--progress-window always)";
  else
    line = std::string("start: fast, no progress window") +
           (request.archive ? " (--progress-window never)" : " (nothing to unpack)");
  if (request.reuseUnpacked)
    line += "; the archive is unpacked once into the user's cache";
  else if (request.archive)
    line += "; the archive is unpacked at every start (--reuse-unpacked-runtime keeps it)";
  if (buildId) {
    line += "; AOT cache " + *buildId + ", written by the first start";
    std::optional<int> feature = request.runtime ? featureRelease(request.runtime->version) : std::nullopt;
    if (feature && *feature < 25)
      line += ", used by runtimes from 25 on only: the shipped one is " + request.runtime->version;
  }
  return line;
}

// Everything inside the staging directory; returns the lines of the summary.
std::vector<std::string> build(const Request& request, const std::string& root) {
  std::vector<std::string> summary, warnings;
  // A command-line launcher's messages come from Contents/Resources beside it, as a bundle's do.
  std::string contents = path::append(root, "Contents");
  std::string resources = path::append(contents, "Resources");
  std::string appRoot = request.embed ? root : path::append(resources, "app");

  std::string error;
  if (request.installed) {
    const InstalledApplication& app = *request.installed;
    if (!copyTree(app.input, appRoot, warnings, &error)) throw failure(error);
    for (const auto& [source, place] : app.copies) {
      std::string target = path::append(appRoot, place);
      if (!fs::isDirectory(source))
        copyFile(source, target);
      else if (!copyTree(source, target, warnings, &error))
        throw failure(error);
    }
    if (!app.copies.empty())
      summary.push_back(std::to_string(app.copies.size()) + " class-path entr" +
                        (app.copies.size() == 1 ? "y" : "ies") + " from outside " + app.input + " copied to " +
                        (request.embed ? "" : "Contents/Resources/app/") + kExternalClassPathFolder);
  }
  for (const std::string& jar : request.jars) copyFile(jar, path::append(appRoot, "lib/" + path::lastComponent(jar)));
  writeFile(path::append(resources, "en.lproj/Localizable.strings"), stringsTable(strings(request)), 0644);
  if (request.icon) writeFile(path::append(resources, "app.icns"), iconContainer(*request.icon), 0644);

  std::optional<uint64_t> archiveSize;
  if (request.runtime) {
    std::string linkDirectory = path::append(root, ".linked-runtime");
    ShippedRuntime runtime = runtimeToShip(request, linkDirectory, appRoot, summary, warnings);
    if (request.archive) {
      std::string archive = path::append(appRoot, "jre.tar.gz");
      archiveSize = packRuntime(runtime, archive, warnings, &error);
      if (!archiveSize) throw failure(error);
      summary.push_back("runtime " + runtime.version + " packed as Contents/Resources/app/jre.tar.gz (" +
                        megabytes(compressedSize(archive)) + ", " + megabytes(*archiveSize) + " unpacked)");
    } else {
      // A command-line launcher finds its runtime as the private one of its installation.
      std::string where = request.embed ? ".brackwood/jre.bundle" : "Contents/Resources/jre.bundle";
      if (!copyRuntime(runtime, path::append(root, where), warnings, &error)) throw failure(error);
      summary.push_back("runtime " + runtime.version + " copied to " + where + " (" + megabytes(shippedSize(runtime)) +
                        ")");
    }
    if (request.jlink && !fs::removeItem(linkDirectory)) throw failure(linkDirectory + ": cannot be removed");
  }
  for (const std::string& warning : warnings) warn(warning);

  std::optional<std::string> buildId;
  if (request.aotCache) buildId = applicationBuildId(appRoot);
  summary.push_back(startSummary(request, buildId));
  PlistValue config = configuration(request, archiveSize, buildId);
  std::string plist = xmlPropertyList(config);
  std::optional<PreparedLauncher> launcher =
      prepareLauncher(request.launcher, request.embed ? std::optional<std::string>(plist) : std::nullopt, &error);
  if (!launcher) throw failure(error);
  std::string executable =
      request.embed ? path::append(root, request.name) : path::append(contents, "MacOS/" + request.name);
  writeFile(executable, std::string_view(reinterpret_cast<const char*>(launcher->bytes.data()), launcher->bytes.size()),
            0755);
  summary.insert(summary.begin(), "launcher " + megabytes(launcher->originalSize) +
                                      ", copied stripped: " + megabytes(launcher->bytes.size()));
  if (!request.embed) writeFile(path::append(contents, "Info.plist"), plist, 0644);
  size_t entries = request.jars.size() + (request.installed ? request.installed->entries.size() : 0);
  summary.push_back(std::to_string(entries) + " class-path entr" + (entries == 1 ? "y" : "ies") + ", main class " +
                    request.mainClass);
  return summary;
}

}  // namespace

int runCreate(std::span<const std::string> words) {
  std::string error;
  std::optional<ParsedArguments> args = parseArguments(kCreateOptions, words, &error);
  if (!args) throw usageError(error);
  if (args->help) {
    std::fputs(helpText(kCreateSynopsis, kCreateOptions).c_str(), stdout);
    return 0;
  }
  Request request = readRequest(*args);

  makeDirectory(request.output);
  std::string target = path::append(request.output, request.embed ? request.name : request.name + ".app");
  if (fs::existsNoFollow(target) && !request.force) throw failure(target + " exists (--force replaces it)");
  std::optional<StagedOutput> staged = StagedOutput::begin(target, &error);
  if (!staged) throw failure(error);
  std::vector<std::string> summary = build(request, staged->path());
  ::chmod(staged->path().c_str(), 0755);
  if (!staged->commit(request.force, &error)) throw failure(error);
  std::printf("wrote %s\n", target.c_str());
  for (const std::string& line : summary) std::printf("  %s\n", line.c_str());
  return 0;
}

}  // namespace bwk::bundle
