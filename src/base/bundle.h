#pragma once
// An application bundle: a directory with Contents/Info.plist and Contents/Resources,
// the same layout on every platform. The running executable's own bundle is
// Bundle(platform::mainBundlePath()).
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/plist.h"

namespace bwk {

class Bundle {
 public:
  explicit Bundle(std::string path);
  Bundle(const Bundle&) = delete;
  Bundle& operator=(const Bundle&) = delete;

  const std::string& path() const { return path_; }
  std::string resourcePath() const;  // Contents/Resources
  // Contents/Info.plist in any of the three formats; an empty dictionary when missing or
  // unreadable. Read once.
  const PlistValue& infoDictionary() const;
  // Why Contents/Info.plist gave no dictionary ("<file>: no such file", the parse error with
  // its line); absent when it was read.
  std::optional<std::string> infoDictionaryProblem() const;
  // Contents/Resources/<name>.<ext> when it exists.
  std::optional<std::string> pathForResource(const std::string& name, const std::string& ext) const;
  // Looks `key` up in Localizable.strings of the first language folder that has the table,
  // languages in the order of preferredLocalizations(). Missing: `value` when it is
  // present and not empty, else the key itself.
  std::string localizedString(const std::string& key, const std::optional<std::string>& value = std::nullopt) const;
  // LANGUAGE (colon list), LC_ALL, LC_MESSAGES, LANG (de_DE.UTF-8 tried as de_DE then de),
  // then CFBundleDevelopmentRegion, then en, English, Base; duplicates removed.
  std::vector<std::string> preferredLocalizations() const;

 private:
  std::string path_;
  // The main thread and the installation worker both read the lazily loaded files.
  mutable std::mutex mutex_;
  mutable std::optional<PlistValue> info_;
  mutable std::optional<std::string> infoProblem_;
  mutable std::optional<std::optional<PlistValue>> strings_;  // the chosen table, once looked up
};

}  // namespace bwk
