// The header and message of an alert on their way to the process that shows it.
#include "platform/linux/notice_text.h"

#include <gtest/gtest.h>

namespace bwk::platform {
namespace {

TEST(NoticeText, RoundTripKeepsEveryByte) {
  std::string allBytes;
  for (int c = 1; c < 256; ++c) allBytes += static_cast<char>(c);
  const std::vector<NoticeText> cases = {
      {"Tool", "Java 11 or newer is needed."},
      {std::nullopt, "message alone"},
      {"", ""},
      {"a=b:c", "line one\nline two\r\n\ttab %s %@ %n"},
      {"Grüße 日本", allBytes},
      {"-", "-:"},
  };
  for (const NoticeText& n : cases) {
    std::string encoded = encodeNotice(n);
    EXPECT_EQ(encoded.find_first_not_of("0123456789abcdef:-"), std::string::npos) << encoded;
    EXPECT_EQ(decodeNotice(encoded), n) << encoded;
  }
}

TEST(NoticeText, LongTextsAreCut) {
  NoticeText n{std::string(kNoticeTextLimit + 5, 'h'), std::string(kNoticeTextLimit * 3, 'm')};
  std::optional<NoticeText> back = decodeNotice(encodeNotice(n));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->header, std::string(kNoticeTextLimit, 'h'));
  EXPECT_EQ(back->message, std::string(kNoticeTextLimit, 'm'));
}

TEST(NoticeText, MalformedValuesAreRefused) {
  const std::vector<std::string> cases = {"", "41", "41:4", "41:4G", "zz:41", "41:4A", "-:41:42", "4:41",
                                          "-:" + std::string(kNoticeTextLimit * 2 + 2, '4')};
  for (const std::string& value : cases) EXPECT_FALSE(decodeNotice(value)) << value.substr(0, 20);
}

}  // namespace
}  // namespace bwk::platform
