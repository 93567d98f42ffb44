#pragma once
// The launcher's failures, one type each. They are thrown where a launch cannot go on and
// turned into a message and an exit status at the few places that end a start: the
// installation worker, launcher_main and the command-line mode of main.
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace bwk {

// A failure of the system or the runtime with a name and a reason, as the platform's
// exceptions carry them ("JavaLaunchError": the runtime library cannot be used). Shown as
// "fenmo.InternalError" with the reason; the name and the call stack go to the system log.
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

// The user cancelled the installation of the bundled runtime (Cancel, or closing the
// window). Not an error: nothing is shown.
class InstallationCancelled : public std::exception {
 public:
  const char* what() const noexcept override { return "cancelled"; }
};

// A failure that is reported to the user by a message of the bundle's strings, after which
// the start ends with status 1 ("NonWritablePackDir"; "fenmo.InternalError" with a detail).
class ReportedFailure : public std::runtime_error {
 public:
  explicit ReportedFailure(std::string messageKey, std::optional<std::string> info = std::nullopt)
      : std::runtime_error(messageKey), messageKey_(std::move(messageKey)), info_(std::move(info)) {}
  const std::string& messageKey() const { return messageKey_; }
  const std::optional<std::string>& info() const { return info_; }

 private:
  std::string messageKey_;
  std::optional<std::string> info_;
};

}  // namespace bwk
