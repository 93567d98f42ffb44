// The header and message of an alert on their way to the process that shows it.
#include "platform/linux/notice_text.h"

#include "platform/linux/notice_process.h"

#include <gtest/gtest.h>

namespace bwk::platform {
namespace {

TEST(NoticeText, RoundTripKeepsEveryByteUpToTheLimitAndNamesTheProcess) {
  std::string allBytes;
  for (int c = 1; c < 256; ++c) allBytes += static_cast<char>(c);
  const std::vector<std::pair<NoticeText, NoticeText>> cases = {
      {{"Tool", "Java 11 or newer is needed."}, {"Tool", "Java 11 or newer is needed."}},
      {{std::nullopt, "-:"}, {std::nullopt, "-:"}},
      {{"", ""}, {"", ""}},
      {{"Grüße 日本 a=b:c", allBytes}, {"Grüße 日本 a=b:c", allBytes}},
      {{std::string(kNoticeTextLimit + 5, 'h'), std::string(kNoticeTextLimit * 3, 'm')},
       {std::string(kNoticeTextLimit, 'h'), std::string(kNoticeTextLimit, 'm')}},
  };
  for (const auto& [notice, back] : cases) {
    std::string encoded = encodeNotice(notice);
    EXPECT_EQ(encoded.find_first_not_of("0123456789abcdef:-"), std::string::npos) << encoded;
    EXPECT_EQ(decodeNotice(encoded), back) << encoded.substr(0, 40);
  }
  for (const std::string& value : std::vector<std::string>{"", "41", "41:4", "41:4G", "zz:41", "41:4A", "-:41:42",
                                                           "4:41", "-:" + std::string(kNoticeTextLimit * 2 + 2, '4')})
    EXPECT_FALSE(decodeNotice(value)) << value.substr(0, 20);
  EXPECT_TRUE(noticeProcessName({"Tool", "m"}) == "Tool" && noticeProcessName({"", "m"}) == "test_install");
  EXPECT_EQ(noticeProcessName({std::nullopt, "m"}), "test_install");
  const std::string euros = "\xE2\x82\xAC\xE2\x82\xAC";  // two 3-byte characters
  for (const auto& [name, cut] :
       std::vector<std::pair<std::string, std::string>>{{"0123456789abcdefg", "0123456789abcde"},
                                                        {"a" + euros + euros + euros, "a" + euros + euros},
                                                        {std::string(16, '\x80'), ""}})
    EXPECT_EQ(noticeThreadName(name), cut) << name;
}

}  // namespace
}  // namespace bwk::platform
