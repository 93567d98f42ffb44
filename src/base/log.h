#pragma once
// The two channels: the debug log (off unless BRACKWOOD_LOG is exactly "yes", decided
// once per process) and the system log, which always writes. Both write one line on
// standard error: "YYYY-MM-DD HH:MM:SS.mmm <process>[<pid>:<tid>] <message>".
//
// Call sites write the message format as it stands, beginning with "%s [Line %d] "; the
// macros pass the calling function's signature and the source line for those two.
#include <string>
#include <string_view>
#include <vector>

#include "base/format.h"

namespace bwk::log {

// Whether the debug log is on: BRACKWOOD_LOG read at the first call, then never again.
bool debugEnabled();
void writeSystemLog(const std::string& message);
// Forgets the decision, so that the next call reads BRACKWOOD_LOG again (tests only).
void resetDebugDecision();

}  // namespace bwk::log

#define BWK_DLOG(fmt, ...)                                                                                      \
  do {                                                                                                          \
    if (::bwk::log::debugEnabled())                                                                             \
      ::bwk::log::writeSystemLog(::bwk::format(fmt, __PRETTY_FUNCTION__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)); \
  } while (0)

#define BWK_SYSLOG(fmt, ...) \
  ::bwk::log::writeSystemLog(::bwk::format(fmt, __PRETTY_FUNCTION__, __LINE__ __VA_OPT__(, ) __VA_ARGS__))
