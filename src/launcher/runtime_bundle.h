#pragma once
// A Java runtime opened from a directory: a macOS-style bundle with Contents/Info.plist,
// or (on Linux) a plain runtime home whose "release" file gives JAVA_VERSION, which then
// stands for "JavaVM" -> "JVMVersion".
#include <memory>
#include <optional>
#include <string>

#include "base/plist.h"

namespace bwk {

class RuntimeBundle {
 public:
  // Opens a directory as a runtime (CFBundleCreate). Absent when the path is not a readable
  // directory. A malformed Info.plist gives a bundle with an empty Info dictionary, which
  // every version check then refuses.
  static std::shared_ptr<RuntimeBundle> open(const std::string& path);

  const std::string& path() const { return path_; }
  const PlistValue& infoDictionary() const { return info_; }
  // CFBundleGetValueForInfoDictionaryKey with a string value.
  std::optional<std::string> string(const std::string& key) const { return info_.string(key); }
  // Contents/Home when it exists, else the directory itself.
  std::string home() const;

  RuntimeBundle(std::string path, PlistValue info) : path_(std::move(path)), info_(std::move(info)) {}

 private:
  std::string path_;
  PlistValue info_;
};

// The home of a runtime path: Contents/Home when that exists, else the path itself.
std::string runtimeHome(const std::string& runtimePath);

}  // namespace bwk
