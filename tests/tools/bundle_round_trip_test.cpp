// create, check, then a start through a real JVM with arguments the runtime gets unchanged (an argument file among
// them is the runtime's to expand): with no runtime (searched for), with one in the bundle (a path with a blank), as
// the archive unpacked at every start (gone at exit, however it ends), and as a command-line launcher in its folder.
#include "../install/icon_files.h"
#include "bundle_tool.h"

namespace bwk::test {
namespace {

TEST(BundleRoundTrip, CreatedBundlesCheckCleanAndStart) {
  if (!fs::exists(kJdk17 + "/bin/jlink")) GTEST_SKIP() << "no OpenJDK 17 with jlink here";
  TempDir tmp;
  std::string runtime = jlinkStage() + "/Contents/Home";
  const std::string macOS = "/Hello.app/Contents/MacOS";
  writeFile(tmp / "more.args", "from-file\n\"quoted in file\"\n");  // one argument a line, quotes removed
  shell("mkdir -p " + tmp / "t");
  writeFile(tmp / "icon.png", solidPng(32, 0, 0, 255));
  // name, words for create, the folder it is started in, lines that show the runtime it started
  using Case = std::tuple<std::string, std::vector<std::string>, std::string, std::vector<std::string>>;
  const Case cases[] = {
      Case("search", {"--min-version", "11", "--icon", tmp / "icon.png", "--allow-passthrough"}, macOS,
           {"property bwk.jreBundle=/usr/lib/jvm/", "option -Dpassed\n"}),
      Case("a bundle", {"--runtime", runtime, "--force"}, macOS,  // nothing to replace
           {"property bwk.jreBundle=" + tmp / "a bundle/Hello.app/Contents/Resources/jre.bundle\n"}),
      Case("archive", {"--runtime", runtime, "--runtime-as", "archive"}, macOS,
           {"property bwk.jreBundle=" + tmp / "t/",
            "/jre.bundle\nproperty bwk.tarFile=" + tmp / "archive/Hello.app/Contents/Resources/app/jre.tar.gz\n"}),
      Case("embed", {"--embed", "--runtime", runtime}, "/Hello",
           {"property fenmo.moduleName=" + tmp / "embed/Hello/Hello\nproperty bwk.jreBundle=" +
            tmp / "embed/Hello/.brackwood/jre.bundle\n"}),
  };
  for (const auto& [name, more, folder, runtimeLines] : cases) {
    std::vector<std::string> words{"--java-option",         "-Xss2m",     "--java-option",
                                   "-Dhello.from=the tool", "--argument", "configured"};
    words.insert(words.end(), more.begin(), more.end());
    RunResult created = createHello(tmp / name, words);
    ASSERT_EQ(created.status, 0) << name << ": " << created.err;
    std::string app = tmp / name + "/Hello.app";
    const std::string clean = app + ": no findings\n";  // a command-line launcher is no bundle to check
    EXPECT_EQ(name == "embed" ? clean : bundleTool({"check", app}).out, clean) << name;

    RunResult r = run(
        {"./Hello", "a b  c", "it's \"quoted\"", "Grüße 日本", "", "@" + tmp / "more.args", "--exit=5", "-J-Dpassed"},
        launcherEnvironment({"TMPDIR=" + tmp / "t"}), tmp / name + folder);
    EXPECT_EQ(r.status, 5) << name << ": " << r.err;
    std::vector<std::string> lines{
        "property hello.from=the tool\n",
        "arg[0] <configured>\narg[1] <a b  c>\narg[2] <it's \"quoted\">\narg[3] <Grüße 日本>\n"
        "arg[4] <>\narg[5] <from-file>\narg[6] <quoted in file>\n"};
    lines.insert(lines.end(), runtimeLines.begin(), runtimeLines.end());
    for (const std::string& line : lines) EXPECT_TRUE(text::contains(r.out, line)) << name << ": " << r.out;
    EXPECT_EQ(fs::listDirectory(tmp / "t"), std::vector<std::string>{}) << name << ": the temporary directory stays";
  }
}

}  // namespace
}  // namespace bwk::test
