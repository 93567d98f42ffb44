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
  // `detail`: what the system said, for the person who has to mend it (the loader's error
  // text); shown beside the message, never instead of it.
  PlatformException(std::string name, std::string reason, std::optional<std::string> detail = std::nullopt);

  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }
  // What "%@" of an exception shows: its reason, as the platform's description does.
  const std::string& description() const { return reason_; }
  // Where it was raised, one line per frame, for the system log.
  const std::vector<std::string>& callStackSymbols() const { return callStack_; }
  const std::optional<std::string>& detail() const { return detail_; }

 private:
  std::string name_;
  std::string reason_;
  std::optional<std::string> detail_;
  std::vector<std::string> callStack_;
};

// The installation of the bundled runtime was cancelled: by the user (Cancel, or closing the
// window), or by a termination signal. Not an error: nothing is shown.
class InstallationCancelled : public std::exception {
 public:
  InstallationCancelled() = default;
  explicit InstallationCancelled(int signal) : signal_(signal) {}
  const char* what() const noexcept override { return "cancelled"; }
  // The signal that ended the installation; absent when the user cancelled.
  const std::optional<int>& signal() const { return signal_; }

 private:
  std::optional<int> signal_;
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
