#include "launcher_fixture.h"

namespace bwk::test {
namespace {

class LauncherInit : public LauncherFixture {};

TEST_F(LauncherInit, DirectoryLayouts) {
  struct Case {
    const char* name;
    PlistDict info;
    std::string root, launcherDir, mainBundle;
  };
  std::string apps = tmp / "Apps";
  std::string inApp = bundle + "/Contents/Resources/app";
  setenv("BWK_T_SUB", "sub", 1);
  const std::vector<Case> cases = {
      {"default", {}, inApp, inApp, bundle},
      {"launcherDir with a variable", {{"bwk.launcherDir", "bin/${BWK_T_SUB}"}}, inApp, inApp + "/bin/sub", bundle},
      {"baseDir beside the bundle", {{"bwk.baseDir", "Tool"}}, apps + "/Tool", apps, bundle},
      {"baseDir with dots", {{"bwk.baseDir", "./x/../Tool/"}}, apps + "/Tool", apps, bundle},
      {"single bundle", {{"bwk.baseDir", "Tool.app/Contents/Resources/app"}, {"bwk.inSingleBundle", true}},
       inApp, apps, bundle},
      {"single bundle elsewhere", {{"bwk.baseDir", "Root/a/b/c"}, {"bwk.inSingleBundle", true}},
       apps + "/Root/a/b/c", apps, apps + "/Root"},
      {"single bundle flag alone", {{"bwk.inSingleBundle", true}}, inApp, inApp, bundle},
      {"baseDir of another type", {{"bwk.baseDir", 3}}, inApp, inApp, bundle},
  };
  for (const Case& c : cases) {
    resetLaunchState();
    auto launcher = bundleLaunch(c.info);
    EXPECT_EQ(s_appRootDir, c.root) << c.name;
    EXPECT_EQ(s_launcherDirInApp, c.launcherDir) << c.name;
    EXPECT_EQ(s_mainBundlePath, c.mainBundle) << c.name;
    EXPECT_EQ(launcher->javaMajorVersion, -1);
    EXPECT_EQ(launcher->argc, 0);
  }
  unsetenv("BWK_T_SUB");
}

TEST_F(LauncherInit, MessagesAndTheirInserts) {
  // The test executable is no bundle: every key is its own text.
  EXPECT_EQ(Launcher::getMessage("Plain"), std::string("Plain"));
  EXPECT_EQ(Launcher::getMessage("Need %@ for %@", std::string("17"), std::string("Tool")), std::string("Need 17 for Tool"));
  EXPECT_EQ(Launcher::getMessage("One %@", std::string("x")), std::string("One x"));
  EXPECT_EQ(Launcher::getMessage("Raw %@", std::nullopt, std::string("second")), std::string("Raw %@"));
}

TEST_F(LauncherInit, ErrorsGoToStandardErrorInCommandLineMode) {
  g_cli = true;
  testing::internal::CaptureStderr();
  Launcher::displayError("AppleJavaMinVersionError %@ %@", std::nullopt, std::string("Tool"));
  Launcher::displayError("fenmo.InternalError: %@", std::string("could not run unpack200"));
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "ERROR: AppleJavaMinVersionError %@ %@\nERROR: fenmo.InternalError: could not run unpack200\n");
}

}  // namespace
}  // namespace bwk::test
