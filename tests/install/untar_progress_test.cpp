// Progress reports, and cancelling from the callback, on both inflation paths.

#include "base/errors.h"
#include "untar_fixture.h"

namespace bwk::test {
namespace {

using Call = std::pair<double, std::optional<std::string>>;

struct Recorder {
  std::vector<Call> calls;
  ProgressCallback callback = [this](double percent, const char* status) {
    calls.push_back({percent, status ? std::optional<std::string>(status) : std::nullopt});
  };
};

// The position against the expected length in single precision, as the progress bar is fed.
double percentAt(uint64_t position, int32_t length) {
  return static_cast<double>(static_cast<float>(position) / static_cast<float>(length) * 100.0f);
}

class ProgressTest : public UntarFixture, public ::testing::WithParamInterface<UnTar::Inflation> {
 protected:
  void SetUp() override {
    UntarFixture::SetUp();
    inflation = GetParam();
  }
};

INSTANTIATE_TEST_SUITE_P(Inflations, ProgressTest, ::testing::ValuesIn(kInflations),
                         [](const auto& test) { return inflationName(test.param); });

// Only those into `folder`: a thread left to finish may briefly hold one elsewhere.
auto descriptorsInto(const std::string& folder) {
  std::error_code gone;
  return std::count_if(std::filesystem::directory_iterator("/proc/self/fd"), {}, [&](const auto& fd) {
    return std::filesystem::read_symlink(fd.path(), gone).string().starts_with(folder + "/");
  });
}

// The destination first, a report before each file and each 32768-byte piece that moves it, 100 with "" last.
TEST_P(ProgressTest, ReportsStreamPositionsInSinglePrecisionAndCancelsFromTheCallback) {
  std::istringstream files(
      buildArchive("file('a', noise(100000)); file('empty'); dir('d'); file('d/b', noise(70000, 2)); link('l', 'a')\n"
                   "file('c', noise(40000, 3))"));
  const int32_t length = 123457;  // where single and double precision differ
  std::vector<Call> expected{{0.0, dest}};
  for (uint64_t offset, size; files >> offset >> size;) {
    expected.push_back({percentAt(offset, length), std::nullopt});
    for (uint64_t written = 0; written < size;) {
      written = std::min<uint64_t>(size, written + 32768);
      double p = percentAt(offset + written, length);
      if (p != expected.back().first) expected.push_back({p, std::nullopt});
    }
  }
  expected.push_back({100.0, ""});
  ASSERT_NE(percentAt(140000, length), 140000.0 / length * 100.0);

  Recorder recorder;
  Outcome outcome = extract(length, &recorder.callback);
  EXPECT_TRUE(outcome.complete && outcome.used == inflation);
  EXPECT_EQ(recorder.calls, expected);
  // Without a length only start and end; no end after a failure, nothing for a missing archive.
  const std::vector<Call> startAndEnd{{0.0, dest}, {100.0, ""}};
  buildArchive("file('a', noise(100000)); file('b', 'b')");
  for (int32_t none : {0, -5}) {
    Recorder plain;
    EXPECT_TRUE(extract(none, &plain.callback).complete);
    EXPECT_EQ(plain.calls, startAndEnd) << none;
  }

  buildArchive("file('a', 'complete'); GZ_DROP = 8");
  Recorder failing;
  EXPECT_FALSE(extract(1000, &failing.callback).complete);
  EXPECT_EQ(
      failing.calls,
      (std::vector<Call>{{0.0, dest}, {percentAt(512, 1000), std::nullopt}, {percentAt(520, 1000), std::nullopt}}));

  archive = root + "/missing.tar.gz";
  Recorder missing;
  outcome = extract(1000, &missing.callback);
  EXPECT_FALSE(outcome.complete);
  EXPECT_EQ(outcome.problems, std::vector<std::string>{"error reading JRE " + archive + ": No such file or directory"});
  EXPECT_TRUE(missing.calls.empty());
  // Cancelling from the callback at the start, before and inside a file: the caller gets it, descriptors close.
  buildArchive("file('a', noise(10)); file('big', noise(300000)); file('zeros', bytes(8000000))");
  for (int throwAt : {1, 2, 3, 5, 0}) {
    int calls = 0;
    ProgressCallback cancel = [&](double, const char*) {
      if (++calls == throwAt) throw InstallationCancelled();
    };
    try {
      EXPECT_TRUE(UnTar::untarWith(inflation, archive, dest, 100000, &cancel).complete);
      EXPECT_EQ(throwAt, 0) << "no exception at call " << throwAt;
    } catch (const InstallationCancelled&) {
      EXPECT_EQ(calls, throwAt);
    }
    EXPECT_EQ(descriptorsInto(root), 0) << throwAt;
  }
}

}  // namespace
}  // namespace bwk::test
