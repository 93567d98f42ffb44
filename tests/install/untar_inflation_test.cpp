// When the archive is inflated into memory in one piece: the size announced by the gzip
// trailer decides, and anything implausible is left to the streaming reader.
#include <gtest/gtest.h>

#include <optional>

#include "install/inflated_tar_stream.h"

namespace bwk::test {
namespace {

struct SizeCase {
  const char* name;
  uint64_t fileSize;
  uint32_t trailerSize;
  std::optional<size_t> expected;
};

TEST(WholeBufferSize, TakesOnlyPlausibleSizesUpToTheLimit) {
  constexpr uint32_t kGiB = 1u << 30;
  const std::vector<SizeCase> cases = {
      {"runtime image", 24976869, 74813440, 74813440},
      {"stored, larger than the tar", 1000, 900, 900},
      {"empty tar stream", 20, 0, std::nullopt},
      {"the limit itself", 2000000, kGiB, kGiB},
      {"beyond the limit", 2000000, kGiB + 1, std::nullopt},
      {"a wrapped length just above the limit", 2000000, 0xffffffffu, std::nullopt},
      {"the most deflate makes of 1000 bytes", 1018, 1032000, 1032000},
      {"more than deflate makes of 1000 bytes", 1018, 1033032, std::nullopt},
      {"too short for a gzip header and trailer", 18, 1, std::nullopt},
      {"shortest gzip file", 19, 1, 1},
      {"the largest archive inflated whole", 28u << 20, 80000000, 80000000},
      {"a larger archive is streamed", (28u << 20) + 1, 80000000, std::nullopt},
  };
  for (const SizeCase& c : cases) EXPECT_EQ(wholeBufferSize(c.fileSize, c.trailerSize), c.expected) << c.name;
}

}  // namespace
}  // namespace bwk::test
