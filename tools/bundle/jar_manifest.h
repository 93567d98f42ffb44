#pragma once
// The main section of a jar's META-INF/MANIFEST.MF, read as the JDK reads it: lines end in
// CR, LF or CR LF, a line starting with one space continues the one before, the first empty
// line ends the section, and attribute names are compared without regard to case.
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace bwk::bundle {

class JarManifest {
 public:
  static JarManifest parse(std::string_view text);
  // An empty manifest for a jar without one; absent, with the reason, for a jar that cannot
  // be read.
  static std::optional<JarManifest> read(const std::string& jar, std::string* error);

  std::optional<std::string> value(const std::string& name) const;

 private:
  std::map<std::string, std::string> attributes_;  // names in lower case
};

}  // namespace bwk::bundle
