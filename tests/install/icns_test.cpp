// Choosing the window's icon image from an .icns container.
#include "base/icns.h"

#include <gtest/gtest.h>

#include "icon_files.h"

namespace bwk::test {
namespace {

TEST(Icns, LargestPngChunkIsChosen) {
  const std::string small = solidPng(16, 0, 255, 0), large = solidPng(128, 255, 0, 255);
  auto claiming = [](uint32_t width, uint32_t height) {  // a one-pixel image whose header says otherwise
    return solidPng(1, 0, 0, 0).replace(16, 8, be32(width) + be32(height));
  };
  std::string declaredShort = icnsContainer({{"ic07", small}, {"ic08", large}});
  declaredShort[7] = static_cast<char>(8 + 8 + small.size());  // the total length covers the first chunk only
  std::string truncated = icnsContainer({{"ic07", small}, {"ic10", large}});
  truncated.resize(truncated.size() - 10);
  std::string zeroLength = icnsContainer({{"ic07", small}, {"ic08", ""}, {"ic09", large}});
  zeroLength.replace(8 + 8 + small.size() + 4, 4, std::string(4, '\0'));

  const std::vector<std::pair<std::string, std::string>> cases = {
      {icnsContainer({{"ic10", large}, {"icp4", small}}), large},  // by pixels, not by position
      {icnsContainer({{"ic07", large}, {"ic14", claiming(1 << 24, 1)}, {"ic13", claiming(0xffffff, 2)}}),
       claiming(0xffffff, 2)},  // nor by bytes
      {icnsContainer(
           {{"ic07", claiming(0xffffff, 1)}, {"ic08", claiming(1 << 24, 1)}, {"ic09", claiming(0x1000001, 1)}}),
       claiming(0x1000001, 1)},  // every byte of a dimension counts
      {icnsContainer({{"ic07", small}, {"ic08", large.substr(0, 24)}}), large.substr(0, 24)},  // up to the height
      {icnsContainer({{"icp6", ""}, {"ic12", large}}), large},                                 // past an empty chunk
      {icnsContainer({{"ic08", large}, {"ic13", solidPng(128, 0, 0, 255)}}), large},           // the first of equals
      {icnsContainer({{"it32", large}, {"TOC ", large}, {"icp4", small}}), small},             // no PNG slots
      {icnsContainer({{"ic09", std::string(300, 'j')}, {"ic07", small}}), small},              // no PNG signature
      {declaredShort, small},
      {truncated, small},
      {zeroLength, small},
      {large, ""},
      {"icns", ""},
  };
  for (const auto& [container, expected] : cases) EXPECT_EQ(icns::largestPng(container), expected) << container.size();
  // Every prefix of a container is read safely (the sanitizer build watches).
  std::string container = icnsContainer({{"ic07", small}, {"ic08", large}, {"icp5", small}});
  for (size_t n = 0; n <= container.size(); ++n) {
    std::string png = icns::largestPng(std::string_view(container).substr(0, n));
    EXPECT_TRUE(png.empty() || png == small || png == large) << n;
  }
}

}  // namespace
}  // namespace bwk::test
