#include <unistd.h>

#include "launcher_fixture.h"

namespace bwk::test {
namespace {

class JavaParameters : public LauncherFixture {
 protected:
  struct Result {
    std::vector<std::string> options, args;
    OptionalString mainClass;
    bool firstThread = false;
  };
  Result build(Launcher& launcher) {
    Result r;
    launcher.readJavaParameters(r.options, r.mainClass, r.args, &r.firstThread);
    return r;
  }
  void TearDown() override {
    if (chdir("/") != 0) {}
    LauncherFixture::TearDown();
  }
};

// The full vector of a rich configuration is compared end to end (tests/e2e); here what it
// does not show: properties from the launch state, the working directory, repeated options
// kept, an unset variable dropped from the module path, and the main class taken literally.
TEST_F(JavaParameters, StateWorkingDirectoryAndLiteralValues) {
  writeFile(tmp / "Apps/Tool.vmoptions", "-Dsame=1\n");
  shell("mkdir -p " + bundle + "/Contents/Resources/app/work");
  PlistDict javaVM{{"WorkingDirectory", "work"},
                   {"VMOptionArray", strings({"-Dsame=1"})},
                   {"ModulePath", "mods:$BWK_T_UNSET_MP"},
                   {"MainClass", "com.example.${NOT_REPLACED}"},
                   {"StartOnMainThread", true}};
  auto launcher = bundleLaunch({{"JavaVM", PlistValue(javaVM)}});
  launcher->previousJdkUsed = true;
  launcher->tarFile = "/b/jre.tar.gz";
  Result r = build(*launcher);
  EXPECT_EQ(r.options, (std::vector<std::string>{"-Dfenmo.moduleName=" + bundle, "-Dsame=1", "-Dsame=1", "-p", "mods",
                                                 "-Dbwk.previousJdk=true", "-Dbwk.tarFile=/b/jre.tar.gz"}));
  EXPECT_EQ(r.mainClass, std::string("com.example.${NOT_REPLACED}"));
  EXPECT_TRUE(r.firstThread);
  char cwd[4096];
  ASSERT_TRUE(getcwd(cwd, sizeof cwd));
  EXPECT_EQ(std::string(cwd), bundle + "/Contents/Resources/app/work");
}

TEST_F(JavaParameters, VersionSpecificPatterns) {
  struct Case {
    const char* version;
    int major;
    PlistArray pairs;
    std::vector<std::string> expected;
  } cases[] = {
      {"17.0.2", 17, {"11-17", strings({"-DA"}), "*17.0.*", strings({"-DB"})}, {"-DA"}},
      {"17.0.2", 17, {"17", strings({"-Dbad"}), "*17*", strings({"-DB"})}, {"-DB"}},  // malformed skipped
      {"21.0.1", 21, {"11-17", strings({"-DA"}), "*17.0.*", strings({"-DB"})}, {}},
      {"1.8.0_291", 8, {"*1.8.0_2??", strings({"-Dlike"})}, {"-Dlike"}},
      {"1.8.0_291", 8, {"*1.8", strings({"-Dwhole"})}, {}},  // LIKE matches the whole text
      {"17.0.2", 17, {"*17.0.[2]", strings({"-Dbracket"})}, {}},  // no character classes
      {"17.0.2", 17, {"x-y", strings({"-Dzero"}), "0-17", strings({"-Dlater"})}, {"-Dlater"}},
      {"17.0.2", 17, {"1-2-3", strings({"-Dthree"}), "-17", strings({"-Dopen"})}, {"-Dopen"}},
      {"17.0.2", 17, {"11-17"}, {}},  // a single element is no pair
      {"17.0.2", 17, {"11-17", strings({"-DA"}), "*"}, {"-DA"}},
  };
  for (const Case& c : cases) {
    resetLaunchState();
    auto launcher = bundleLaunch({{"JavaVM", PlistValue(PlistDict{{"VersionSpecificVMOptions", PlistValue(c.pairs)}})}});
    launcher->javaVersion = c.version;
    launcher->javaMajorVersion = c.major;
    Result r = build(*launcher);
    std::vector<std::string> added(r.options.begin() + 1, r.options.end());
    EXPECT_EQ(added, c.expected) << c.version << " " << c.pairs.size();
  }
}

TEST_F(JavaParameters, CommandLineLauncherIdentityAndService) {
  s_guiLauncher = true;
  s_serviceMode = "legacy";
  s_infoDictionary = PlistValue(PlistDict{{"bwk.configFileId", "cfg-7"},
                                          {"JavaVM", PlistValue(PlistDict{{"ArgumentArray", strings({"configured"})}})}});
  s_launcherDirAndName = tmp / "bin/tool";
  s_launcherDirInApp = tmp / "bin";
  writeFile(tmp / "bin/tool.vmoptions", "-Dbeside.executable\n");
  writeFile(tmp / "bin/tool.app/Contents/vmoptions.txt", "-Dnot.read\n");
  platform::setProcessArguments({"/bin/tool", "start", "later"});
  Launcher launcher;
  char before[4096];
  ASSERT_TRUE(getcwd(before, sizeof before));
  Result r = build(launcher);
  EXPECT_EQ(r.options, (std::vector<std::string>{"-Dfenmo.moduleName=" + tmp / "bin/tool", "-Dbeside.executable",
                                                 "-Dbwk.configFileId=cfg-7", "-Dbwk.service=legacy"}));
  EXPECT_EQ(r.args, (std::vector<std::string>{"start", "configured", "later"}));
  char after[4096];
  ASSERT_TRUE(getcwd(after, sizeof after));
  EXPECT_EQ(std::string(before), std::string(after));  // no working directory: unchanged
  EXPECT_EQ(r.mainClass, std::nullopt);
}

TEST_F(JavaParameters, BundleLaunchWithoutWorkingDirectoryEntersTheBundle) {
  auto launcher = bundleLaunch({});
  Result r = build(*launcher);
  char cwd[4096];
  ASSERT_TRUE(getcwd(cwd, sizeof cwd));
  EXPECT_EQ(std::string(cwd), bundle);
  EXPECT_EQ(r.options, (std::vector<std::string>{"-Dfenmo.moduleName=" + bundle}));
}

TEST_F(JavaParameters, CommandLinePassThrough) {
  struct Case {
    bool passthrough;
    std::vector<std::string> words;
    std::vector<std::string> options, args;
  } cases[] = {
      {false, {"/p", "-J-Xmx2g", "x"}, {}, {"-J-Xmx2g", "x"}},
      {true, {"/p", "-J-Xmx2g", "x", "-J"}, {"-Xmx2g", ""}, {"x"}},
      {true, {"/p", "-psn_0_1", "-psn_2"}, {}, {"-psn_2"}},
      {true, {"/p", "-J-jvm=/x", "-J-Xdock:name=X"}, {}, {}},  // removed afterwards
      {false, {"/p"}, {}, {}},
  };
  for (const Case& c : cases) {
    resetLaunchState();
    platform::setProcessArguments(c.words);
    auto launcher = bundleLaunch({{"bwk.allowPassthrough", c.passthrough}});
    Result r = build(*launcher);
    EXPECT_EQ(std::vector<std::string>(r.options.begin() + 1, r.options.end()), c.options) << c.words[1 % c.words.size()];
    EXPECT_EQ(r.args, c.args);
  }
}

}  // namespace
}  // namespace bwk::test
