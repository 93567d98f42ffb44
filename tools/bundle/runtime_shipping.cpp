#include "runtime_shipping.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/fs.h"
#include "base/path.h"
#include "launcher/runtime_bundle.h"
#include "launcher/runtime_checks.h"
#include "platform/platform.h"
#include "runtime_tree.h"
#include "tar_writer.h"

namespace bwk::bundle {

namespace {

// Owner read and write always, as the launcher's extraction adds them; a directory also
// needs the owner's search bit to be filled.
mode_t fileMode(mode_t mode) { return mode | 0600; }
mode_t directoryMode(mode_t mode) { return mode | 0700; }

// The entries' names in the shipped layout.
std::string shippedName(const ShippedRuntime& runtime, const std::string& relative) {
  return runtime.bundleShaped ? relative : "Contents/Home/" + relative;
}

}  // namespace

std::optional<ShippedRuntime> inspectRuntime(const std::string& directory, std::string* error) {
  std::shared_ptr<RuntimeBundle> opened = RuntimeBundle::open(directory);
  if (!opened) {
    *error = directory + ": not a readable directory";
    return std::nullopt;
  }
  std::optional<AcceptedVersion> accepted = checkJavaVersion(opened.get(), std::nullopt, std::nullopt, true, false);
  if (!accepted) {
    *error = directory +
             ": not a Java runtime the launcher can use: it has neither a Contents/Info.plist naming "
             "JavaVM/JVMVersion nor a 'release' file with JAVA_VERSION";
    return std::nullopt;
  }
  bool hasLibrary = false;
  for (const std::string& candidate : platform::runtimeLibraryCandidates())
    hasLibrary = hasLibrary || fs::exists(path::append(directory, candidate));
  if (!hasLibrary) {
    *error = directory + ": no runtime launcher library (lib/libjli or lib/jli/libjli) in it";
    return std::nullopt;
  }
  return ShippedRuntime{directory, accepted->version, fs::isDirectory(path::append(directory, "Contents/Home")), {}};
}

bool copyTree(const std::string& from, const std::string& to, std::vector<std::string>& warnings, std::string* error,
              const std::set<std::string>& leaveOut) {
  if (!fs::createDirectory(to, true)) {
    *error = to + ": cannot be made";
    return false;
  }
  // Directories get their own modes once everything inside them is written.
  std::vector<std::pair<std::string, mode_t>> directoryModes;
  TreeWalk walk = walkRuntimeTree(
      from,
      [&](const TreeEntry& entry, std::string& reason) {
        std::string target = path::append(to, entry.relative);
        bool ok = true;
        switch (entry.kind) {
          case TreeEntry::Kind::Directory:
            ok = ::mkdir(target.c_str(), 0700) == 0;
            directoryModes.emplace_back(target, directoryMode(entry.mode));
            break;
          case TreeEntry::Kind::Link: ok = ::symlink(entry.linkTarget.c_str(), target.c_str()) == 0; break;
          case TreeEntry::Kind::File: {
            std::error_code ec;
            ok = std::filesystem::copy_file(entry.source, target, ec) &&
                 ::chmod(target.c_str(), fileMode(entry.mode)) == 0;
            if (ec) errno = ec.value();
            break;
          }
        }
        if (!ok) reason = target + ": " + std::strerror(errno);
        return ok;
      },
      leaveOut);
  for (auto it = directoryModes.rbegin(); it != directoryModes.rend(); ++it) ::chmod(it->first.c_str(), it->second);
  warnings.insert(warnings.end(), walk.warnings.begin(), walk.warnings.end());
  if (!walk.error.empty()) *error = walk.error;
  return walk.error.empty();
}

bool copyRuntime(const ShippedRuntime& runtime, const std::string& bundleDirectory, std::vector<std::string>& warnings,
                 std::string* error) {
  std::string home = runtime.bundleShaped ? bundleDirectory : path::append(bundleDirectory, "Contents/Home");
  return copyTree(runtime.directory, home, warnings, error, runtime.leftOut);
}

std::optional<uint64_t> packRuntime(const ShippedRuntime& runtime, const std::string& archive,
                                    std::vector<std::string>& warnings, std::string* error) {
  TarGzWriter writer;
  if (!writer.open(archive)) {
    *error = writer.error();
    return std::nullopt;
  }
  // The launcher creates a regular file only where its directory exists: every directory
  // comes before what it holds, the layout's own ones first.
  bool ok = runtime.bundleShaped ||
            (writer.addDirectory("Contents", 0755, 0) && writer.addDirectory("Contents/Home", 0755, 0));
  TreeWalk walk;
  if (ok) {
    walk = walkRuntimeTree(
        runtime.directory,
        [&](const TreeEntry& entry, std::string& reason) {
          std::string name = shippedName(runtime, entry.relative);
          bool written = false;
          switch (entry.kind) {
            case TreeEntry::Kind::Directory:
              written = writer.addDirectory(name, directoryMode(entry.mode), entry.mtime);
              break;
            case TreeEntry::Kind::Link: written = writer.addSymlink(name, entry.linkTarget, entry.mtime); break;
            case TreeEntry::Kind::File:
              written = writer.addFile(name, entry.source, entry.size, fileMode(entry.mode), entry.mtime);
              break;
          }
          if (!written) reason = writer.error();
          return written;
        },
        runtime.leftOut);
    warnings.insert(warnings.end(), walk.warnings.begin(), walk.warnings.end());
    ok = walk.error.empty();
  }
  if (!writer.finish() || !ok) {
    *error = !walk.error.empty() ? walk.error : writer.error();
    return std::nullopt;
  }
  return writer.uncompressedSize();
}

}  // namespace bwk::bundle
