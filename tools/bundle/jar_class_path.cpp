#include "jar_class_path.h"

#include <cstdlib>
#include <deque>
#include <set>

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"
#include "jar_manifest.h"
#include "zip_directory.h"

namespace bwk::bundle {

namespace {

// A URL path's %XX escapes, decoded as a file name.
std::string percentDecoded(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    int high = i + 2 < text.size() && text[i] == '%' ? text::hexDigitValue(text[i + 1]) : -1;
    int low = high >= 0 ? text::hexDigitValue(text[i + 2]) : -1;
    if (low < 0) {
      out += text[i];
      continue;
    }
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

// One Class-Path entry against the URL of the jar that lists it; empty when it is a URL of
// another kind, which the runtime skips.
std::string resolveEntry(const std::string& jar, std::string entry) {
  if (text::contains(entry, ":")) {
    if (!text::startsWith(entry, "file:")) return "";
    entry = entry.substr(5);
    if (text::startsWith(entry, "//")) {
      size_t pathStart = entry.find('/', 2);
      if (pathStart != 2) return "";  // a host other than the local one
      entry = entry.substr(2);
    }
  }
  entry = percentDecoded(entry);
  std::string resolved = path::isAbsolute(entry) && entry[0] == '/' ? entry : path::parent(jar) + "/" + entry;
  return path::standardize(resolved);
}

std::vector<std::string> words(const std::string& text) {
  std::vector<std::string> out;
  std::string word;
  for (char c : text + " ") {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f') {
      if (!word.empty()) out.push_back(word);
      word.clear();
    } else {
      word += c;
    }
  }
  return out;
}

}  // namespace

JarClassPath resolveJarClassPath(const std::vector<std::string>& jars) {
  JarClassPath result;
  struct Pending {
    ClassPathItem item;
    std::string url;  // the path the runtime opens and resolves against
  };
  std::deque<Pending> pending;
  for (const std::string& jar : jars) pending.push_back({{jar, false, ""}, fs::realPath(jar)});
  std::set<std::string> seen;
  while (!pending.empty()) {
    Pending next = std::move(pending.front());
    pending.pop_front();
    if (!seen.insert(next.url + (next.item.directory ? "/" : "")).second) continue;
    const std::string& listedBy = next.item.listedBy;
    std::string where = listedBy.empty() ? next.item.path : next.item.path + " (Class-Path of " + listedBy + ")";
    if (next.item.directory) {
      if (!fs::isDirectory(next.url))
        result.warnings.push_back(where + ": no such directory, left out as the runtime skips it");
      else
        result.items.push_back(next.item);
      continue;
    }
    std::string error;
    if (!fs::exists(next.url)) {
      result.warnings.push_back(where + ": no such file, left out as the runtime skips it");
      continue;
    }
    std::optional<JarManifest> manifest = JarManifest::read(next.url, &error);
    if (!manifest) {
      result.warnings.push_back(where + ": not a jar (" + error + "), left out as the runtime skips it");
      continue;
    }
    result.items.push_back(next.item);
    // The listed entries come next, before the rest, in their own order.
    std::vector<Pending> listed;
    for (const std::string& entry : words(manifest->value("Class-Path").value_or(""))) {
      std::string resolved = resolveEntry(next.url, entry);
      if (resolved.empty()) {
        result.warnings.push_back(entry + " (Class-Path of " + next.url +
                                  "): not a file URL, left out as the runtime skips it");
        continue;
      }
      listed.push_back({{resolved, text::endsWith(entry, "/"), next.url}, resolved});
    }
    pending.insert(pending.begin(), listed.begin(), listed.end());
  }
  return result;
}

}  // namespace bwk::bundle
