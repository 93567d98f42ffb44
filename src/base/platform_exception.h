#pragma once
// The one exception type thrown across layers: a name ("JavaLaunchError",
// "BrackwoodCancelled", ...) and a reason, like the platform exceptions of the
// macOS launcher.
#include <stdexcept>
#include <string>
#include <vector>

namespace bwk {

class PlatformException : public std::runtime_error {
 public:
  PlatformException(std::string name, std::string reason);

  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }
  // What "%@" of an exception shows: its reason, as the platform's description does.
  const std::string& description() const { return reason_; }
  // Where it was raised, one line per frame, for the system log.
  const std::vector<std::string>& callStackSymbols() const { return callStack_; }

 private:
  std::string name_;
  std::string reason_;
  std::vector<std::string> callStack_;
};

}  // namespace bwk
