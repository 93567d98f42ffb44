#include "base/bundle.h"

#include <algorithm>
#include <mutex>

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/plist_reader.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// "de_DE.UTF-8@euro" -> "de_DE" then "de"; the C locale names no language.
void addLocaleLanguages(const std::string& locale, std::vector<std::string>& out) {
  std::string name = locale.substr(0, locale.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX") return;
  out.push_back(name);
  size_t separator = name.find_first_of("_-");
  if (separator != std::string::npos && separator > 0) out.push_back(name.substr(0, separator));
}

}  // namespace

Bundle::Bundle(std::string path) : path_(std::move(path)) {}

std::string Bundle::resourcePath() const { return path::append(path_, "Contents/Resources"); }

const PlistValue& Bundle::infoDictionary() const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!info_) {
    std::string file = path::append(path_, "Contents/Info.plist");
    std::string error;
    std::optional<PlistValue> info = readPropertyListFile(file, &error);
    if (info && !info->isDictionary()) {
      error = file + ": not a dictionary";
      info.reset();
    }
    if (!info) {
      BWK_DLOG("%s [Line %d] no Info dictionary: %@", error);
      infoProblem_ = error;
    }
    info_ = info ? std::move(*info) : PlistValue(PlistDict{});
  }
  return *info_;
}

std::optional<std::string> Bundle::infoDictionaryProblem() const {
  infoDictionary();
  std::lock_guard<std::mutex> lock(mutex_);
  return infoProblem_;
}

std::optional<std::string> Bundle::pathForResource(const std::string& name, const std::string& ext) const {
  std::string file = name;
  if (!ext.empty()) file += (ext[0] == '.' ? "" : ".") + ext;
  std::vector<std::string> folders{resourcePath()};
  for (const std::string& language : preferredLocalizations())
    folders.push_back(path::append(resourcePath(), language + ".lproj"));
  for (const std::string& folder : folders) {
    std::string candidate = path::append(folder, file);
    if (fs::exists(candidate)) return candidate;
  }
  return std::nullopt;
}

std::vector<std::string> Bundle::preferredLocalizations() const {
  std::vector<std::string> candidates;
  if (std::optional<std::string> list = platform::environmentValue("LANGUAGE")) {
    size_t start = 0;
    while (start <= list->size()) {
      size_t colon = list->find(':', start);
      if (colon == std::string::npos) colon = list->size();
      addLocaleLanguages(list->substr(start, colon - start), candidates);
      start = colon + 1;
    }
  }
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
    if (std::optional<std::string> locale = platform::environmentValue(variable))
      addLocaleLanguages(*locale, candidates);
  if (std::optional<std::string> region = infoDictionary().string("CFBundleDevelopmentRegion"))
    if (!region->empty()) candidates.push_back(*region);
  for (const char* fallback : {"en", "English", "Base"}) candidates.emplace_back(fallback);

  std::vector<std::string> ordered;
  for (std::string& c : candidates)
    if (std::find(ordered.begin(), ordered.end(), c) == ordered.end()) ordered.push_back(std::move(c));
  return ordered;
}

std::string Bundle::localizedString(const std::string& key, const std::optional<std::string>& value) const {
  std::vector<std::string> languages = preferredLocalizations();
  std::lock_guard<std::mutex> lock(mutex_);
  if (!strings_) {
    strings_.emplace();
    for (const std::string& language : languages) {
      std::string file = path::append(resourcePath(), language + ".lproj/Localizable.strings");
      if (!fs::exists(file)) continue;
      std::string error;
      std::optional<PlistValue> table = readPropertyListFile(file, &error);
      if (table && table->isDictionary()) {
        *strings_ = std::move(table);
        break;
      }
      BWK_DLOG("%s [Line %d] skipping %@: %@", file, table ? std::string("not a dictionary") : error);
    }
  }
  if (*strings_)
    if (std::optional<std::string> text = (**strings_).string(key)) return *text;
  if (value && !value->empty()) return *value;
  return key;
}

}  // namespace bwk
