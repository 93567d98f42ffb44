// Unpacking a runtime's packed jars with stand-ins for bin/unpack200 that log their runs.

#include "launcher/unpacker.h"
#include "base/errors.h"
#include "test_support.h"

namespace bwk::test {
namespace {

class UnpackerTest : public ::testing::Test {
 protected:
  // bin/unpack200 as a script that logs its arguments, then runs `body`.
  void installTool(const std::string& body = "cp \"$2\" \"$3\" && rm \"$2\"", mode_t mode = 0755) {
    writeFile(home + "/bin/unpack200", "#!/bin/sh\necho \"$@\" >> " + log + "\n" + body + "\n");
    ASSERT_EQ(chmod((home + "/bin/unpack200").c_str(), mode), 0);
  }
  void pack(std::initializer_list<const char*> files) {
    for (const char* f : files) writeFile(home + "/" + f, f);
  }
  std::vector<std::string> runs() const {
    std::vector<std::string> lines = text::split(readFile(log), "\n");
    lines.pop_back();  // after the last newline
    return lines;
  }
  bool unpack() {
    ProgressCallback callback = [this](double percent, const char* status) {
      percents.push_back(percent);
      EXPECT_EQ(status, nullptr);
    };
    return Unpacker::unpack(home, &callback);
  }

  TempDir tmp;
  std::string home = tmp / "jre", log = tmp / "runs.log";
  std::vector<double> percents;
};

// A file gone before its turn is not run but counts; a failing run stops at once; a tool that
// cannot start throws, and so may the progress callback, to cancel.
TEST_F(UnpackerTest, VanishedFilesFailuresAndCancelling) {
  installTool("rm -f " + home + "/lib/ext/z.jar.pack; [ $(wc -l < " + log +
              ") -eq 3 ] && exit 3; cp \"$2\" \"$3\" && rm \"$2\"");
  pack({"lib/a.jar.pack", "lib/ext/z.jar.pack"});
  ASSERT_TRUE(unpack());
  EXPECT_EQ(std::pair(runs().size(), percents), std::pair(size_t{1}, std::vector<double>{50, 100}));
  percents.clear();
  pack({"lib/a.jar.pack", "lib/b.jar.pack", "lib/c.jar.pack"});
  EXPECT_TRUE(!unpack() && runs().size() == 3u && percents == std::vector<double>{100.0 / 3});

  percents.clear();
  std::filesystem::remove(home + "/bin/unpack200");
  EXPECT_THROW(unpack(), PlatformException);  // no tool
  installTool("exit 0", 0644);
  EXPECT_THROW(unpack(), PlatformException);  // not executable
  EXPECT_TRUE(percents.empty());
  installTool();
  ProgressCallback cancel = [](double, const char*) { throw InstallationCancelled(); };
  EXPECT_THROW(Unpacker::unpack(home, &cancel), InstallationCancelled);
  EXPECT_EQ(runs().size(), 4u);
}

}  // namespace
}  // namespace bwk::test
