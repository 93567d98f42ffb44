#pragma once
// A start that failed on the Java side, told from the end of what the process wrote on
// standard error: the runtime's own start-failure lines, and the exit status. Application
// mode shows the result as an alert, since nobody sees standard error there.
#include <optional>
#include <string>
#include <string_view>

namespace bwk {

struct ProcessEnd {
  // The last bytes written on standard error, and whether earlier ones were dropped (the
  // first line is then cut and is not read).
  std::string_view errorTail;
  bool tailCut = false;
  // The exit status; absent where the system does not tell it.
  std::optional<int> status;
};

// The alert's text when `end` is a failed start: one sentence on what failed, the telling
// lines of the runtime (at most kStartFailureLines: the failure line, the exception and its
// causes, the lines just before, then stack frames), and how to see more. Absent for an
// application that ran, a zero status, and a user's SIGINT, SIGTERM or SIGHUP.
inline constexpr size_t kStartFailureLines = 20;
std::optional<std::string> startFailureAlert(const ProcessEnd& end, const std::optional<std::string>& applicationName,
                                             const std::optional<std::string>& executablePath);

}  // namespace bwk
