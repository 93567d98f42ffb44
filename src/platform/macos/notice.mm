// Alerts on macOS: the system's user notice, which does not wait for the user.
#include <CoreFoundation/CoreFoundation.h>

#include "platform/notice.h"
#include "platform/platform.h"

namespace bwk::platform {

namespace {

CFStringRef copyText(const std::string& text) {
  return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                 static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
}

}  // namespace

bool displayNotice(const std::optional<std::string>& header, const std::string& message) {
  CFStringRef headerText = header ? copyText(*header) : nullptr;
  CFStringRef messageText = copyText(message);
  // Stop alert level, no time-out, the system's OK button.
  CFUserNotificationDisplayNotice(0, kCFUserNotificationStopAlertLevel, nullptr, nullptr, nullptr, headerText,
                                  messageText, nullptr);
  if (headerText) CFRelease(headerText);
  if (messageText) CFRelease(messageText);
  return true;
}

// The system shows notices itself; no process of ours is ever started for one.
bool runNoticeIfRequested() { return false; }

}  // namespace bwk::platform
