// create, then check, then the bundle started through a real JVM: without a runtime (the
// launcher searches), with the runtime as a directory in the bundle, and as the archive
// unpacked at every start.
#include "base/fs.h"
#include "bundle_tool.h"

namespace bwk::test {
namespace {

TEST(BundleRoundTrip, CreatedBundlesCheckCleanAndStart) {
  if (!fs::exists("/usr/lib/jvm/java-17-openjdk-amd64/bin/jlink")) GTEST_SKIP() << "no OpenJDK 17 with jlink here";
  ASSERT_TRUE(fs::exists(helloJar())) << "the demo program is built with the project";
  TempDir tmp;
  std::string runtime = jlinkStage() + "/Contents/Home";
  struct Case {
    std::string name;
    std::vector<std::string> words;
    std::string runtimeLine;
  };
  const std::vector<Case> cases = {
      {"search", {"--min-version", "11"}, "property bwk.jreBundle=/usr/lib/jvm/"},
      {"bundle",
       {"--runtime", runtime},
       "property bwk.jreBundle=" + tmp / "bundle/Hello.app/Contents/Resources/jre.bundle\n"},
      {"archive",
       {"--runtime", runtime, "--runtime-as", "archive"},
       "property bwk.tarFile=" + tmp / "archive/Hello.app/Contents/Resources/app/jre.tar.gz\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> words{"--java-option", "-Dhello.from=the tool", "--argument", "configured"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    RunResult created = createHello(tmp / c.name, words);
    ASSERT_EQ(created.status, 0) << c.name << ": " << created.err;
    std::string app = tmp / c.name + "/Hello.app";

    EXPECT_EQ(bundleTool({"check", app}).out, app + ": no findings\n") << c.name;

    RunResult r =
        run({app + "/Contents/MacOS/Hello", "from the command line"}, launcherEnvironment({"TMPDIR=" + tmp.path()}));
    EXPECT_EQ(r.status, 0) << c.name << ": " << r.err;
    EXPECT_TRUE(text::contains(r.out, "property hello.from=the tool\n")) << c.name << ": " << r.out;
    EXPECT_TRUE(text::contains(r.out, "arg[0] <configured>\narg[1] <from the command line>\n"))
        << c.name << ": " << r.out;
    EXPECT_TRUE(text::contains(r.out, c.runtimeLine)) << c.name << ": " << r.out;
  }
}

}  // namespace
}  // namespace bwk::test
