#include "jar_manifest.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "zip_directory.h"

namespace bwk::bundle {

namespace {

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace

JarManifest JarManifest::parse(std::string_view text) {
  std::vector<std::string> lines;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find_first_of("\r\n", at);
    std::string_view line = text.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at);
    if (line.empty()) break;  // the end of the main section
    if (line[0] == ' ' && !lines.empty())
      lines.back() += line.substr(1);
    else
      lines.emplace_back(line);
    if (end == std::string_view::npos) break;
    at = end + (text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n' ? 2 : 1);
  }
  JarManifest manifest;
  for (const std::string& line : lines) {
    size_t colon = line.find(": ");
    if (colon == std::string::npos || colon == 0) continue;
    // A repeated name replaces the earlier value, as the JDK's reader does.
    manifest.attributes_[lower(line.substr(0, colon))] = line.substr(colon + 2);
  }
  return manifest;
}

std::optional<JarManifest> JarManifest::read(const std::string& jar, std::string* error) {
  std::optional<std::optional<std::string>> content = zipEntryContent(jar, "META-INF/MANIFEST.MF", error);
  if (!content) return std::nullopt;
  return *content ? parse(**content) : JarManifest{};
}

std::optional<std::string> JarManifest::value(const std::string& name) const {
  auto found = attributes_.find(lower(name));
  if (found == attributes_.end()) return std::nullopt;
  return found->second;
}

}  // namespace bwk::bundle
