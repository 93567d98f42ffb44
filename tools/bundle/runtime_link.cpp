#include "runtime_link.h"

#include <algorithm>

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"
#include "elf_strip.h"
#include "manifest_options.h"
#include "module_deps.h"
#include "tool_error.h"
#include "tool_process.h"

namespace bwk::bundle {

namespace {

// Providers found through ServiceLoader, which no class names, so jdeps never sees them.
constexpr const char* kServiceModules[] = {
    "jdk.crypto.ec",   // elliptic-curve keys: most TLS servers' handshakes fail without it
    "jdk.localedata",  // every locale but English: dates, numbers and collation in the user's language
    "jdk.charsets",    // the encodings beyond the standard six (Windows code pages, Shift_JIS, GB18030)
    "jdk.zipfs",       // FileSystems.newFileSystem over a jar or zip file
};

// Values of an option given as "--opt value" or "--opt=value".
std::vector<std::string> optionValues(const std::vector<std::string>& options, const std::vector<std::string>& names) {
  std::vector<std::string> values;
  for (size_t i = 0; i < options.size(); ++i)
    for (const std::string& name : names) {
      if (options[i] == name && i + 1 < options.size())
        values.push_back(options[++i]);
      else if (text::startsWith(options[i], name + "="))
        values.push_back(options[i].substr(name.size() + 1));
    }
  return values;
}

// A path list split at ":", except inside "${...}" (the launcher's variables hold one).
std::vector<std::string> pathEntries(const std::string& list) {
  std::vector<std::string> entries{""};
  int depth = 0;
  for (size_t i = 0; i < list.size(); ++i) {
    if (list.compare(i, 2, "${") == 0)
      ++depth;
    else if (list[i] == '}' && depth > 0)
      --depth;
    if (list[i] == ':' && depth == 0)
      entries.emplace_back();
    else
      entries.back() += list[i];
  }
  return entries;
}

// The class-data archive for heaps without compressed object pointers (over 32 GB, or
// -XX:-UseCompressedOops): a runtime that misses it starts such a heap without a shared
// archive, silently. 3 MB of every archive for a heap desktop applications do not use.
constexpr const char* kUncompressedPointersArchive = "classes_nocoops.jsa";

// Leaves out of a linked image what no start uses: the class-data archives above, and the
// symbol tables of its ELF libraries (only a crash report names functions with them; the
// dynamic symbols the loader needs stay, and the loaded bytes stay as they are).
void leaveOutUnused(const std::string& directory) {
  for (const std::string& name : fs::listDirectory(directory).value_or(std::vector<std::string>{})) {
    std::string item = path::append(directory, name);
    if (fs::isSymbolicLink(item)) continue;
    if (fs::isDirectory(item)) {
      leaveOutUnused(item);
    } else if (name == kUncompressedPointersArchive) {
      if (!fs::removeItem(item)) throw failure(item + ": cannot be removed from the linked image");
    } else if (text::endsWith(name, ".so") || text::contains(name, ".so.")) {
      std::optional<std::string> contents = fs::readFile(item);
      if (!contents) throw failure(item + ": cannot be read in the linked image");
      std::span<const uint8_t> file(reinterpret_cast<const uint8_t*>(contents->data()), contents->size());
      std::string reason;
      std::optional<std::vector<uint8_t>> stripped = stripElf(file, &reason);
      if (!stripped || stripped->size() >= contents->size()) continue;  // not ELF, or nothing to strip
      if (!fs::writeFile(item, std::string(stripped->begin(), stripped->end())))
        throw failure(item + ": cannot be written in the linked image");
    }
  }
}

bool isPseudoModule(const std::string& name) { return text::startsWith(name, "ALL-"); }

std::string program(const ShippedRuntime& runtime, const std::string& name) {
  return path::append(runtimeHomeOf(runtime), "bin/" + name);
}

// jlink's plugins differ by release: the CDS archive came with 17.
bool hasPlugin(const std::string& jlink, const std::string& plugin) {
  std::string ignored;
  std::optional<ProgramOutput> plugins = runProgram(jlink, {"--list-plugins"}, &ignored);
  return plugins && plugins->status == 0 && text::contains(plugins->out, plugin);
}

}  // namespace

std::string runtimeHomeOf(const ShippedRuntime& runtime) {
  return runtime.bundleShaped ? path::append(runtime.directory, "Contents/Home") : runtime.directory;
}

std::optional<std::string> linkProblem(const ShippedRuntime& runtime) {
  for (const char* tool : {"jlink", "jdeps"})
    if (!fs::exists(program(runtime, tool)))
      return runtime.directory + ": --jlink needs a JDK (bin/jlink and bin/jdeps); this runtime has no bin/" + tool;
  if (!featureRelease(runtime.version)) return runtime.directory + ": version " + runtime.version + " names no release";
  return std::nullopt;
}

NamedModules modulesInOptions(const std::vector<std::string>& options) {
  NamedModules named;
  for (const std::string& value : optionValues(options, {"--add-opens", "--add-exports"}))
    named.modules.insert(value.substr(0, value.find('/')));
  for (const std::string& value : optionValues(options, {"--add-modules"}))
    for (const std::string& name : text::split(value, ","))
      if (!name.empty()) named.modules.insert(name);
  for (const std::string& value : optionValues(options, {"-p", "--module-path"}))
    for (const std::string& entry : pathEntries(value))
      if (!entry.empty()) named.modulePath.push_back(entry);
  return named;
}

LinkedRuntime linkRuntime(const LinkInput& input, const std::string& output) {
  if (std::optional<std::string> problem = linkProblem(input.jdk)) throw failure(*problem);
  std::string home = runtimeHomeOf(input.jdk);
  int feature = *featureRelease(input.jdk.version);
  std::string error;
  std::optional<std::set<std::string>> used =
      printedModuleDeps(program(input.jdk, "jdeps"), feature, input.classes, &error);
  if (!used) throw failure("the modules the application uses are not known: " + error);

  std::optional<std::set<std::string>> available = runtimeModules(home);
  auto has = [&](const std::string& name) { return !available || available->count(name) != 0; };
  LinkedRuntime linked;
  std::set<std::string> roots = *used;
  auto addAll = [&] {
    if (available) roots.insert(available->begin(), available->end());
  };
  for (const std::string& name : modulesInOptions(input.javaOptions).modules) {
    if (name == "ALL-SYSTEM" || name == "ALL-DEFAULT")
      addAll();
    else if (isPseudoModule(name))
      continue;
    else if (has(name))
      roots.insert(name);
    else
      linked.notes.push_back(name + ", which the runtime options name, is no module of " + input.jdk.directory +
                             ": left out");
  }
  for (const char* name : kServiceModules)
    if (has(name)) roots.insert(name);
  for (const std::string& list : input.addedModules)
    for (const std::string& name : text::split(list, ",")) {
      if (name == "ALL-SYSTEM" || name == "ALL-DEFAULT")
        addAll();
      else if (name.empty() || isPseudoModule(name) || !has(name))
        throw usageError("--add-modules: '" + name + "' is no module of " + input.jdk.directory);
      else
        roots.insert(name);
    }
  if (available)
    for (auto it = roots.begin(); it != roots.end();) it = available->count(*it) ? std::next(it) : roots.erase(it);
  linked.modules.assign(roots.begin(), roots.end());

  std::string jlink = program(input.jdk, "jlink");
  std::vector<std::string> arguments{"--add-modules",
                                     text::join(linked.modules, ","),
                                     "--strip-debug",
                                     "--no-header-files",
                                     "--no-man-pages",
                                     "--output",
                                     output};
  // A JDK without jmods/ links from its own image (a linkable runtime, from release 24).
  if (fs::isDirectory(path::append(home, "jmods")))
    arguments.insert(arguments.begin(), {"--module-path", path::append(home, "jmods")});
  if (input.compressClasses) arguments.push_back(feature >= 21 ? "--compress=zip-6" : "--compress=2");
  if (hasPlugin(jlink, "--generate-cds-archive")) arguments.push_back("--generate-cds-archive");
  std::optional<ProgramOutput> ran = runProgram(jlink, arguments, &error);
  if (!ran) throw failure(error);
  if (ran->status != 0)
    throw failure("jlink ended with status " + std::to_string(ran->status) + ": " +
                  (ran->err.empty() ? ran->out : ran->err));
  leaveOutUnused(path::append(output, "lib"));
  std::optional<ShippedRuntime> runtime = inspectRuntime(output, &error);
  if (!runtime) throw failure("jlink's image: " + error);
  linked.runtime = *runtime;
  return linked;
}

}  // namespace bwk::bundle
