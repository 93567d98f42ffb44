#pragma once
// The one exception type thrown across layers: a name ("JavaLaunchError",
// "BrackwoodCancelled", ...) and a reason, like the platform exceptions of the
// macOS launcher.
#include <stdexcept>
#include <string>

namespace bwk {

class PlatformException : public std::runtime_error {
 public:
  PlatformException(std::string name, std::string reason)
      : std::runtime_error(reason), name_(std::move(name)), reason_(std::move(reason)) {}

  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }
  // What "%@" of an exception shows: its reason, as the platform's description does.
  const std::string& description() const { return reason_; }

 private:
  std::string name_;
  std::string reason_;
};

}  // namespace bwk
