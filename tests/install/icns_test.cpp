// Choosing the window's icon image from an .icns container.
#include "base/icns.h"

#include <gtest/gtest.h>

#include "icon_files.h"

namespace bwk::test {
namespace {

const std::string kSmall = solidPng(16, 0, 255, 0);
const std::string kLarge = solidPng(128, 255, 0, 255);
// A PNG header claiming 1024 pixels square, with little data behind it.
std::string claimedPng(uint32_t side) {
  std::string png = solidPng(1, 0, 0, 0);
  for (int i = 0; i < 2; ++i)
    for (int b = 0; b < 4; ++b) png[16 + 4 * i + b] = static_cast<char>(side >> (24 - 8 * b));
  return png;
}

struct Case {
  const char* name;
  std::string container;
  std::string expected;
};

TEST(Icns, LargestPngChunkIsChosen) {
  const std::string big = claimedPng(1024);
  std::string declaredShort = icnsContainer({{"ic07", kSmall}, {"ic08", kLarge}});
  declaredShort[7] = static_cast<char>(8 + 8 + kSmall.size());  // total length covers the first chunk only
  std::string truncated = icnsContainer({{"ic07", kSmall}, {"ic10", kLarge}});
  truncated.resize(truncated.size() - 10);
  // A chunk whose length field is 0, followed by a larger image that must not be reached.
  std::string zeroLength = icnsContainer({{"ic07", kSmall}, {"ic08", ""}, {"ic09", kLarge}});
  size_t second = 8 + 8 + kSmall.size();
  zeroLength.replace(second + 4, 4, std::string(4, '\0'));

  const std::vector<Case> cases = {
      {"one png", icnsContainer({{"ic07", kSmall}}), kSmall},
      {"by pixels, not by position", icnsContainer({{"ic10", kLarge}, {"icp4", kSmall}}), kLarge},
      {"by pixels, not by bytes", icnsContainer({{"ic07", kLarge}, {"ic14", big}}), big},
      {"retina and small types count", icnsContainer({{"icp6", kSmall}, {"ic12", kLarge}}), kLarge},
      {"other types are no png slots", icnsContainer({{"it32", kLarge}, {"TOC ", kLarge}, {"icp4", kSmall}}), kSmall},
      {"slot without png signature", icnsContainer({{"ic09", std::string(300, 'j')}, {"ic07", kSmall}}), kSmall},
      {"no png at all", icnsContainer({{"is32", std::string(100, 'x')}}), ""},
      {"declared length limits the walk", declaredShort, kSmall},
      {"chunk past the end stops", truncated, kSmall},
      {"chunk shorter than its header stops", zeroLength, kSmall},
      {"not an icns file", kLarge, ""},
      {"empty", "", ""},
      {"header only", "icns", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(icns::largestPng(c.container), c.expected) << c.name;
}

TEST(Icns, EveryPrefixOfAContainerIsSafe) {
  std::string container = icnsContainer({{"ic07", kSmall}, {"ic08", kLarge}, {"icp5", kSmall}});
  for (size_t n = 0; n <= container.size(); ++n) {
    std::string png = icns::largestPng(std::string_view(container).substr(0, n));
    EXPECT_TRUE(png.empty() || png == kSmall || png == kLarge) << n;
  }
}

}  // namespace
}  // namespace bwk::test
