#pragma once
// How a notice's header and message travel to the process that shows it: one environment
// value, hex-encoded so that any text (newlines, "=", non-UTF-8 bytes) passes unchanged.
#include <optional>
#include <string>
#include <string_view>

namespace bwk::platform {

// The environment variable that asks a start of the launcher to show a notice.
inline constexpr const char* kNoticeVariable = "BWK_INTERNAL_NOTICE";

struct NoticeText {
  std::optional<std::string> header;
  std::string message;
  bool operator==(const NoticeText&) const = default;
};

// "<hex header>:<hex message>", or "-:<hex message>" without a header. Texts longer than
// kNoticeTextLimit bytes are cut: the environment has a size limit per entry.
inline constexpr size_t kNoticeTextLimit = 16384;
std::string encodeNotice(const NoticeText& notice);
// Absent for anything encodeNotice does not produce.
std::optional<NoticeText> decodeNotice(std::string_view encoded);

}  // namespace bwk::platform
