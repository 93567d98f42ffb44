#pragma once
// What "check" reports: one finding per problem, each naming a file of the bundle and the
// key (or line) it is about, printed one line each, or as JSON for programs.
#include <optional>
#include <string>
#include <vector>

namespace bwk::bundle {

// A runtime the search would look at, and why it was refused.
struct RuntimeSeen {
  std::string path;
  std::optional<std::string> version;
  std::string refusal;
};

struct Finding {
  std::string file;  // relative to the bundle when inside it
  std::string key;   // a key path ("JavaVM.MainClass"), a message key or "line 3"; "" for the file as a whole
  std::string message;
  std::optional<std::string> suggestion;  // a known key that is close to an unknown one
  std::vector<RuntimeSeen> runtimes;
};

class Findings {
 public:
  explicit Findings(std::string bundle) : bundle_(std::move(bundle)) {}
  Finding& add(const std::string& file, const std::string& key, const std::string& message);
  // A path relative to the bundle when it lies inside it.
  std::string relative(const std::string& path) const;
  const std::vector<Finding>& all() const { return findings_; }
  const std::string& bundle() const { return bundle_; }

 private:
  std::string bundle_;
  std::vector<Finding> findings_;
};

// "file: key: message" lines and a closing count.
std::string humanReport(const Findings& findings);
std::string jsonReport(const Findings& findings);

}  // namespace bwk::bundle
