// Unpacking a runtime's packed jars with stand-ins for bin/unpack200 that log their runs.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "base/errors.h"
#include "base/strings.h"
#include "launcher/unpacker.h"
#include "test_support.h"

namespace bwk {
namespace {

using test::TempDir;
using test::writeFile;

class UnpackerTest : public ::testing::Test {
 protected:
  // Installs bin/unpack200 as a shell script: it logs its arguments, then runs `body`.
  void installTool(const std::string& body) {
    std::string tool = home + "/bin/unpack200";
    writeFile(tool, "#!/bin/sh\necho \"$@\" >> '" + log + "'\n" + body + "\n");
    ASSERT_EQ(chmod(tool.c_str(), 0755), 0);
  }
  // A well-behaved tool: writes the jar and, for "-r", removes the packed file.
  void installWorkingTool() { installTool("cp \"$2\" \"$3\" && rm \"$2\""); }

  std::vector<std::string> runs() const {
    std::vector<std::string> lines = text::split(test::readFile(log), "\n");
    if (!lines.empty() && lines.back().empty()) lines.pop_back();
    return lines;
  }
  void pack(const std::string& relative) { writeFile(home + "/" + relative, relative); }

  bool unpack() {
    ProgressCallback callback = [this](double percent, const char* status) {
      percents.push_back(percent);
      statuses += status ? 1 : 0;
    };
    return Unpacker::unpack(home, &callback);
  }

  TempDir tmp;
  std::string home = tmp / "jre";
  std::string log = tmp / "runs.log";
  std::vector<double> percents;
  int statuses = 0;
};

TEST_F(UnpackerTest, RunsLibBeforeLibExtAndReportsEveryFile) {
  installWorkingTool();
  for (const char* f : {"lib/a.jar.pack", "lib/b.jar.pack", "lib/c.jar.pack", "lib/ext/d.jar.pack"}) pack(f);
  pack("lib/Foo.JAR.PACK");
  pack("lib/e.jar");
  pack("lib/ext/f.pack");

  ASSERT_TRUE(unpack());
  std::vector<std::string> lines = runs();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[3], "-r " + home + "/lib/ext/d.jar.pack " + home + "/lib/ext/d.jar");
  std::vector<std::string> libRuns(lines.begin(), lines.begin() + 3);
  std::sort(libRuns.begin(), libRuns.end());
  for (int i = 0; i < 3; ++i) {
    std::string name = home + "/lib/" + std::string(1, static_cast<char>('a' + i));
    EXPECT_EQ(libRuns[static_cast<size_t>(i)], "-r " + name + ".jar.pack " + name + ".jar");
    EXPECT_EQ(test::readFile(name + ".jar"), "lib/" + std::string(1, static_cast<char>('a' + i)) + ".jar.pack");
  }
  EXPECT_EQ(percents, (std::vector<double>{25, 50, 75, 100}));
  EXPECT_EQ(statuses, 0);
  EXPECT_EQ(test::readFile(home + "/lib/Foo.JAR.PACK"), "lib/Foo.JAR.PACK");
}

TEST_F(UnpackerTest, VanishedFileIsNotRunButCounts) {
  // The first run removes the other packed file before its turn.
  installTool("rm -f '" + home + "/lib/ext/z.jar.pack'; cp \"$2\" \"$3\" && rm \"$2\"");
  pack("lib/a.jar.pack");
  pack("lib/ext/z.jar.pack");
  ASSERT_TRUE(unpack());
  EXPECT_EQ(runs().size(), 1u);
  EXPECT_EQ(percents, (std::vector<double>{50, 100}));
}

TEST_F(UnpackerTest, FailingRunStopsAtOnce) {
  // The second run fails; the third is never started.
  installTool("n=$(wc -l < '" + log + "'); [ \"$n\" -eq 2 ] && exit 3; cp \"$2\" \"$3\" && rm \"$2\"");
  for (const char* f : {"lib/a.jar.pack", "lib/b.jar.pack", "lib/c.jar.pack"}) pack(f);
  EXPECT_FALSE(unpack());
  std::vector<std::string> lines = runs();
  ASSERT_EQ(lines.size(), 2u);
  std::string firstPack = text::split(lines[0], " ")[1];
  EXPECT_TRUE(test::readFile(firstPack.substr(0, firstPack.size() - 5)).size() > 0);
  EXPECT_EQ(percents, (std::vector<double>{100.0 / 3}));
}

TEST_F(UnpackerTest, NothingToDoSucceedsWithoutReports) {
  // No tool at all, and nothing that needs one.
  pack("lib/rt.jar");
  EXPECT_TRUE(unpack());
  EXPECT_TRUE(percents.empty());
  EXPECT_TRUE(Unpacker::unpack(tmp / "nowhere", nullptr));
}

TEST_F(UnpackerTest, ToolThatCannotStartThrows) {
  pack("lib/a.jar.pack");
  EXPECT_THROW(unpack(), PlatformException);
  writeFile(home + "/bin/unpack200", "#!/bin/sh\nexit 0\n");  // not executable
  ASSERT_EQ(chmod((home + "/bin/unpack200").c_str(), 0644), 0);
  EXPECT_THROW(unpack(), PlatformException);
  EXPECT_TRUE(percents.empty());
}

TEST_F(UnpackerTest, ProgressMayAbort) {
  installWorkingTool();
  pack("lib/a.jar.pack");
  pack("lib/b.jar.pack");
  ProgressCallback cancel = [](double, const char*) { throw InstallationCancelled(); };
  EXPECT_THROW(Unpacker::unpack(home, &cancel), InstallationCancelled);
  EXPECT_EQ(runs().size(), 1u);
}

TEST(UnpackerFiles, CollectsByExactSuffix) {
  TempDir tmp;
  writeFile(tmp / "lib/x.jar.pack", "");
  writeFile(tmp / "lib/y.JAR.PACK", "");
  writeFile(tmp / "lib/z.jar.pack.bak", "");
  std::vector<std::string> files{"kept"};
  Unpacker::addPackedFiles(files, "lib", tmp.path());
  Unpacker::addPackedFiles(files, "missing", tmp.path());
  EXPECT_EQ(files, (std::vector<std::string>{"kept", "lib/x.jar.pack"}));
}

}  // namespace
}  // namespace bwk
