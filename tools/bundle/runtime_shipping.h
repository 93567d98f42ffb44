#pragma once
// A runtime given to "create": what it is, and the two ways a bundle ships it: as the
// directory Contents/Resources/jre.bundle, or as the archive app/jre.tar.gz that the launcher
// unpacks at every start. Both hold the runtime's home at Contents/Home.
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace bwk::bundle {

struct ShippedRuntime {
  std::string directory;  // as given
  std::string version;    // the version the launcher reads from it
  // It already has the bundle shape (Contents/Home, perhaps Contents/Info.plist) and is
  // shipped as it is; otherwise it is a runtime home and goes to Contents/Home.
  bool bundleShaped = false;
  std::set<std::string> leftOut;  // paths below `directory` that are not shipped
};

// Opens the directory the way the launcher opens a runtime. Absent, with the reason, when
// the launcher would not accept it (no version, no launcher library).
std::optional<ShippedRuntime> inspectRuntime(const std::string& directory, std::string* error);

// Copies the directory `from` to `to` (made with its parents) with the link rules of the
// runtime walk, without what `leaveOut` names; the modes of files and directories gain the
// owner's read and write.
bool copyTree(const std::string& from, const std::string& to, std::vector<std::string>& warnings, std::string* error,
              const std::set<std::string>& leaveOut = {});

// Copies the runtime to `bundleDirectory` (which must not exist yet).
bool copyRuntime(const ShippedRuntime& runtime, const std::string& bundleDirectory, std::vector<std::string>& warnings,
                 std::string* error);

// Packs the runtime into a new gzip-compressed tar archive; gives the length of its
// uncompressed tar stream.
std::optional<uint64_t> packRuntime(const ShippedRuntime& runtime, const std::string& archive,
                                    std::vector<std::string>& warnings, std::string* error);

}  // namespace bwk::bundle
