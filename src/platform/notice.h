#pragma once
// The process that shows a notice: displayNotice starts the launcher's own executable again
// to show the notice, so that it stays on screen after the launcher has ended.

namespace bwk::platform {

// When this process was started to show a notice, shows it until the user dismisses it
// and returns true: main then returns 0 at once, before anything else. False otherwise.
bool runNoticeIfRequested();

}  // namespace bwk::platform
