// Progress reports of the extraction: their values and order, and a callback that throws to
// cancel, which must leave no descriptor, stream or memory mapping behind; each with the
// archive inflated in one piece and streamed.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "base/errors.h"
#include "install/untar.h"
#include "untar_fixture.h"

namespace bwk::test {
namespace {

struct Call {
  double percent;
  std::optional<std::string> status;
  bool operator==(const Call&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Call& c) {
  return os << '(' << c.percent << ", " << (c.status ? '"' + *c.status + '"' : "null") << ')';
}

struct Recorder {
  std::vector<Call> calls;
  ProgressCallback callback = [this](double percent, const char* status) {
    calls.push_back({percent, status ? std::optional<std::string>(status) : std::nullopt});
  };
};

// Position as a percentage of the expected length, the way the progress bar is fed.
double singlePrecisionPercent(uint64_t position, int32_t length) {
  return static_cast<double>(static_cast<float>(position) / static_cast<float>(length) * 100.0f);
}

size_t openDescriptors() {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++n;
  return n;
}

// The address space of this process, and whether `path` is mapped into it.
struct Mappings {
  uint64_t bytes = 0;
  bool maps(const std::string& path) const { return text.find(path) != std::string::npos; }
  std::string text;
};

Mappings mappings() {
  Mappings m;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    uint64_t start = 0, end = 0;
    char dash = 0;
    std::istringstream(line) >> std::hex >> start >> dash >> end;
    m.bytes += end - start;
    m.text += line + "\n";
  }
  return m;
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

// One call at the start with the destination, one before every regular file, one after
// every 32768-byte piece that moves the value, and 100 with "" at the end. The values are
// not clamped: the expected length here is smaller than the archive.
TEST_P(ProgressTest, ReportsStreamPositionsInSinglePrecision) {
  std::string layout = buildArchive(
      "file('a', noise(100000)); file('empty'); dir('d'); file('d/b', noise(70000, 2)); link('l', 'a')\n"
      "file('c', noise(40000, 3))");
  const int32_t length = 123457;

  std::vector<Call> expected{{0.0, dest}};
  bool singleDiffersFromDouble = false;
  std::istringstream files(layout);
  for (uint64_t offset, size; files >> offset >> size;) {
    expected.push_back({singlePrecisionPercent(offset, length), std::nullopt});
    double last = 0.0;
    for (uint64_t written = 0; written < size;) {
      written = std::min<uint64_t>(size, written + 32768);
      double p = singlePrecisionPercent(offset + written, length);
      singleDiffersFromDouble |= p != static_cast<double>(offset + written) / length * 100.0;
      if (p != last) expected.push_back({p, std::nullopt});
      last = p;
    }
  }
  expected.push_back({100.0, ""});
  ASSERT_TRUE(singleDiffersFromDouble) << "pick a length where single and double precision differ";
  ASSERT_GT(expected[expected.size() - 2].percent, 100.0);

  Recorder recorder;
  Outcome outcome = extract(length, &recorder.callback);
  EXPECT_TRUE(outcome.ok);
  EXPECT_EQ(outcome.used, inflation);
  EXPECT_EQ(outcome.messages, std::vector<std::string>{});
  EXPECT_EQ(recorder.calls, expected);
}

TEST_P(ProgressTest, WithoutAnExpectedLengthOnlyStartAndEndAreReported) {
  buildArchive("file('a', noise(100000)); file('b', 'b')");
  for (int32_t length : {0, -5}) {
    Recorder recorder;
    EXPECT_TRUE(extract(length, &recorder.callback).ok);
    EXPECT_EQ(recorder.calls, (std::vector<Call>{{0.0, dest}, {100.0, ""}})) << length;
  }
}

TEST_P(ProgressTest, NoFinalReportWhenExtractionFails) {
  buildArchive("file('a', 'complete'); GZ_DROP = 8");
  Recorder recorder;
  EXPECT_FALSE(extract(1000, &recorder.callback).ok);
  ASSERT_FALSE(recorder.calls.empty());
  EXPECT_EQ(recorder.calls.front(), (Call{0.0, dest}));
  EXPECT_NE(recorder.calls.back().status, std::optional<std::string>(""));
}

TEST_P(ProgressTest, AnEmptyCallbackCountsAsNone) {
  buildArchive("file('a', noise(50000))");
  ProgressCallback none;
  EXPECT_TRUE(extract(1000, &none).ok);
  EXPECT_TRUE(extract(1000, nullptr).ok);
}

// Cancelling throws out of the callback: at the start, before a file, inside a file. The
// exception reaches the caller unchanged and every descriptor opened on the way is closed
// (the leak checker of the sanitizer build also sees a gzip stream left open), and neither
// the archive nor its inflated bytes stay mapped. The same holds after a whole extraction.
TEST_P(ProgressTest, AnExceptionFromTheCallbackPropagatesAndReleasesEverything) {
  // About 8 MB of tar stream: an inflated copy left behind would show in the address space.
  buildArchive("file('a', noise(10)); file('big', noise(300000)); file('zeros', bytes(8000000))");
  const uint64_t inflated = 8000000;
  for (int throwAt : {1, 2, 3, 5, 0}) {
    size_t before = openDescriptors();
    Mappings mappedBefore = mappings();
    int calls = 0;
    ProgressCallback cancel = [&](double, const char*) {
      if (++calls == throwAt) throw InstallationCancelled();
    };
    StderrCapture capture(scripts.path() + "/stderr");
    try {
      EXPECT_TRUE(UnTar::untarWith(inflation, archive, dest, 100000, &cancel));
      EXPECT_EQ(throwAt, 0) << "no exception at call " << throwAt;
    } catch (const InstallationCancelled&) {
    }
    EXPECT_EQ(capture.messages(), std::vector<std::string>{}) << throwAt;
    if (throwAt) {
      EXPECT_EQ(calls, throwAt);
    }
    EXPECT_EQ(openDescriptors(), before) << throwAt;
    Mappings mappedAfter = mappings();
    EXPECT_FALSE(mappedAfter.maps(archive)) << throwAt;
    EXPECT_LT(mappedAfter.bytes, mappedBefore.bytes + inflated / 2) << throwAt;
  }
}

}  // namespace
}  // namespace bwk::test
