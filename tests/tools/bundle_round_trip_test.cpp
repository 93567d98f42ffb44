// create, then check, then the bundle started through a real JVM: without a runtime (the
// launcher searches), with the runtime as a directory in the bundle, as the archive unpacked
// at every start, and as a command-line launcher started from a shell in its folder.
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
    std::string folder, runtimeLines;
  };
  const std::string macOS = "/Hello.app/Contents/MacOS";
  const std::vector<Case> cases = {
      {"search", {"--min-version", "11"}, macOS, "property bwk.jreBundle=/usr/lib/jvm/"},
      {"bundle",
       {"--runtime", runtime},
       macOS,
       "property bwk.jreBundle=" + tmp / "bundle/Hello.app/Contents/Resources/jre.bundle\n"},
      {"archive",
       {"--runtime", runtime, "--runtime-as", "archive"},
       macOS,
       "property bwk.tarFile=" + tmp / "archive/Hello.app/Contents/Resources/app/jre.tar.gz\n"},
      {"embed",
       {"--embed", "--runtime", runtime},
       "/Hello",
       "property fenmo.moduleName=" + tmp / "embed/Hello/Hello\nproperty bwk.jreBundle=" +
           tmp / "embed/Hello/.brackwood/jre.bundle\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> words{"--java-option", "-Dhello.from=the tool", "--argument", "configured"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    RunResult created = createHello(tmp / c.name, words);
    ASSERT_EQ(created.status, 0) << c.name << ": " << created.err;
    std::string app = tmp / c.name + "/Hello.app";
    const std::string clean = app + ": no findings\n";  // a command-line launcher is no bundle to check
    EXPECT_EQ(c.name == "embed" ? clean : bundleTool({"check", app}).out, clean) << c.name;

    RunResult r = run({"./Hello", "from the command line"}, launcherEnvironment({"TMPDIR=" + tmp.path()}),
                      tmp / c.name + c.folder);
    EXPECT_EQ(r.status, 0) << c.name << ": " << r.err;
    EXPECT_TRUE(text::contains(r.out, "property hello.from=the tool\n")) << c.name << ": " << r.out;
    EXPECT_TRUE(text::contains(r.out, "arg[0] <configured>\narg[1] <from the command line>\n"))
        << c.name << ": " << r.out;
    EXPECT_TRUE(text::contains(r.out, c.runtimeLines)) << c.name << ": " << r.out;
  }
}

}  // namespace
}  // namespace bwk::test
