#include "platform/linux/notice_text.h"

namespace bwk::platform {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

std::string toHex(std::string_view text) {
  text = text.substr(0, kNoticeTextLimit);
  std::string hex;
  hex.reserve(text.size() * 2);
  for (unsigned char c : text) {
    hex += kHexDigits[c >> 4];
    hex += kHexDigits[c & 0xf];
  }
  return hex;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::optional<std::string> fromHex(std::string_view hex) {
  if (hex.size() % 2 != 0 || hex.size() > kNoticeTextLimit * 2) return std::nullopt;
  std::string text;
  text.reserve(hex.size() / 2);
  for (size_t i = 0; i < hex.size(); i += 2) {
    int high = hexValue(hex[i]), low = hexValue(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    text += static_cast<char>(high << 4 | low);
  }
  return text;
}

}  // namespace

std::string encodeNotice(const NoticeText& notice) {
  return (notice.header ? toHex(*notice.header) : std::string("-")) + ":" + toHex(notice.message);
}

std::optional<NoticeText> decodeNotice(std::string_view encoded) {
  size_t colon = encoded.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view header = encoded.substr(0, colon);
  std::optional<std::string> message = fromHex(encoded.substr(colon + 1));
  if (!message) return std::nullopt;
  NoticeText notice{std::nullopt, std::move(*message)};
  if (header != "-") {
    notice.header = fromHex(header);
    if (!notice.header) return std::nullopt;
  }
  return notice;
}

}  // namespace bwk::platform
