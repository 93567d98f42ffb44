// Acceptance of a runtime against the configured range, and opening runtime directories.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "launcher/launcher.h"
#include "test_support.h"

namespace bwk {
namespace {

using test::TempDir;
using test::writeFile;
using test::writePlist;

class RuntimeChecks : public ::testing::Test {
 protected:
  void SetUp() override {
    resetLaunchState();
    s_infoDictionary = PlistValue(PlistDict{});
    launcher = std::make_unique<Launcher>();
  }
  void TearDown() override { resetLaunchState(); }

  // A runtime bundle whose Info.plist holds these top-level entries.
  std::string makeBundle(const std::string& name, PlistDict info) {
    std::string dir = tmp / name;
    writePlist(dir + "/Contents/Info.plist", PlistValue(std::move(info)));
    return dir;
  }

  TempDir tmp;
  std::unique_ptr<Launcher> launcher;
};

PlistValue javaVM(const std::string& version) { return PlistValue(PlistDict{{"JVMVersion", version}}); }

TEST_F(RuntimeChecks, BundleVersionAgainstRange) {
  using S = std::optional<std::string>;
  struct Case {
    S min, max;
    bool allowBeta, plugin;
    S version, evar, info;
    const char* shortVersion;  // null: refused
    int major;
  } cases[] = {
      {"1.8", "1.8", false, false, "1.8.0_291", {}, {}, "1.8.0", 8},
      {"1.8", "1.8", false, false, "1.8.0_291\n", {}, {}, "1.8.0", 8},  // a version file's newline is kept
      {"1.8", "1.8", false, false, "11.0.2", {}, {}, nullptr, 0},
      {{}, {}, false, false, "17.0.2+8", {}, {}, "17.0.2", 17},
      {{}, {}, false, false, "11.0.12", {}, {}, "11.0.12", 11},
      {"17", "17", false, false, "17.0.15", {}, {}, "17.0.15", 17},
      {{}, "11", false, false, "17.0.15", {}, {}, nullptr, 0},
      {"21", {}, false, false, "17.0.15", {}, {}, nullptr, 0},
      {{}, {}, true, false, "9-ea", {}, {}, "9-ea", 9},
      {{}, {}, false, false, "9-ea", {}, {}, nullptr, 0},
      {{}, {}, false, false, "17.0.2", {}, "Java SE Release 17", nullptr, 0},
      {{}, {}, false, false, "17.0.2", "1.0-beta", {}, nullptr, 0},
      {{}, {}, true, false, "17.0.2", "1.0-beta", "Release", "17.0.2", 17},
      {{}, {}, true, true, {}, {}, {}, nullptr, 0},
      {{}, {}, false, false, "1", {}, {}, "1", 1},
      {{}, {}, false, false, "1.9", {}, {}, "1.9", 9},
      {{}, {}, false, false, "abc", {}, {}, "abc", 0},
      // The plug-in writes 1.8.291.10 for 1.8.0_291: only with the plug-in flag is it
      // tested as 1.8.0.291.
      {{}, "1.8.0.300", false, true, "1.8.291.10", {}, {}, "1.8.291.10", 8},
      {{}, "1.8.0.300", false, false, "1.8.291.10", {}, {}, nullptr, 0},
      {{}, "1.8.0.100", false, true, "1.8.0.291", {}, {}, nullptr, 0},
      {"1.7.0.80", "1.7.0.80", false, true, "1.7.80.15", {}, {}, "1.7.80.15", 7},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.version.value_or("(absent)"));
    launcher->javaVersion = "untouched";
    launcher->javaMajorVersion = -7;
    const char* result =
        launcher->checkBundleVersion(c.min, c.max, c.allowBeta, c.plugin, c.version, c.evar, c.info);
    if (!c.shortVersion) {
      EXPECT_EQ(result, nullptr);
      EXPECT_EQ(launcher->javaVersion, "untouched");
      EXPECT_EQ(launcher->javaMajorVersion, -7);
      continue;
    }
    ASSERT_NE(result, nullptr);
    EXPECT_STREQ(result, c.shortVersion);
    EXPECT_EQ(launcher->javaVersion, c.version);
    EXPECT_EQ(launcher->javaMajorVersion, c.major);
  }
}

TEST_F(RuntimeChecks, JavaVersionReadsTheBundle) {
  struct Case {
    const char* name;
    PlistDict info;
    bool plugin;
    const char* shortVersion;
  } cases[] = {
      {"jvm", {{"JavaVM", javaVM("17.0.2")}}, false, "17.0.2"},
      {"noJvmVersion", {{"JavaVM", PlistValue(PlistDict{})}, {"CFBundleVersion", "1.8.0"}}, false, nullptr},
      {"pluginFallback", {{"JavaVM", PlistValue(PlistDict{})}, {"CFBundleVersion", "1.8.0"}}, true, "1.8.0"},
      {"pluginPrefersJvm", {{"JavaVM", javaVM("11.0.1")}, {"CFBundleVersion", "1.8.0"}}, true, "11.0.1"},
      {"numberVersion", {{"JavaVM", PlistValue(PlistDict{{"JVMVersion", 17}})}}, false, nullptr},
      {"betaInfo", {{"JavaVM", javaVM("17.0.2")}, {"CFBundleGetInfoString", "Team build"}}, false, nullptr},
      {"betaEvar", {{"JavaVM", javaVM("17.0.2")}, {"EvarVersion", "17-rc"}}, false, nullptr},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    launcher->javaBundle = RuntimeBundle::open(makeBundle(c.name, c.info));
    ASSERT_TRUE(launcher->javaBundle);
    const char* result = launcher->checkJavaVersion(std::nullopt, std::nullopt, false, c.plugin);
    if (c.shortVersion) {
      ASSERT_NE(result, nullptr);
      EXPECT_STREQ(result, c.shortVersion);
    } else {
      EXPECT_EQ(result, nullptr);
    }
  }
  launcher->javaBundle.reset();
  EXPECT_EQ(launcher->checkJavaVersion(std::nullopt, std::nullopt, true, true), nullptr);
}

TEST_F(RuntimeChecks, JavaMinVersionComesFromTheConfiguration) {
  EXPECT_EQ(Launcher::getJavaMinVersion(), std::nullopt);
  s_infoDictionary = PlistValue(PlistDict{{"bwk.minVersion", "11.0.2"}});
  EXPECT_EQ(Launcher::getJavaMinVersion(), "11.0.2");
  s_infoDictionary = PlistValue(PlistDict{{"bwk.minVersion", 11}});
  EXPECT_EQ(Launcher::getJavaMinVersion(), std::nullopt);
}

// What opening a directory as a runtime gives: no bundle, or the version it reports.
std::optional<std::optional<std::string>> openedVersion(const std::string& dir) {
  std::shared_ptr<RuntimeBundle> bundle = RuntimeBundle::open(dir);
  if (!bundle) return std::nullopt;
  const PlistValue* vm = bundle->infoDictionary().find("JavaVM");
  return vm ? vm->string("JVMVersion") : std::nullopt;
}

TEST(RuntimeBundle, OpensDirectoriesOnly) {
  TempDir tmp;
  test::makeFakeRuntime(tmp / "home", "17.0.15");
  test::makeFakeRuntime(tmp / "bundle", "11.0.2", "bundle");
  writeFile(tmp / "malformed/Contents/Info.plist", "<plist><dict><key>JavaVM</key>");
  writeFile(tmp / "malformed/release", "JAVA_VERSION=\"17\"\n");
  writeFile(tmp / "bare/README", "");
  writeFile(tmp / "unquoted/release", "IMPLEMENTOR=x\r\nJAVA_VERSION=21.0.1\r\n");
  writeFile(tmp / "noversion/release", "IMPLEMENTOR=\"x\"\n");
  writeFile(tmp / "file", "");
  ASSERT_EQ(symlink((tmp / "missing").c_str(), (tmp / "broken").c_str()), 0);
  ASSERT_EQ(symlink((tmp / "home").c_str(), (tmp / "link").c_str()), 0);

  using V = std::optional<std::optional<std::string>>;
  struct Case {
    const char* name;
    V result;
  } cases[] = {
      {"home", V(std::optional<std::string>("17.0.15"))},
      {"bundle", V(std::optional<std::string>("11.0.2"))},
      {"link", V(std::optional<std::string>("17.0.15"))},
      {"unquoted", V(std::optional<std::string>("21.0.1"))},
      {"malformed", V(std::optional<std::string>())},  // a bundle, but nothing in it
      {"bare", V(std::optional<std::string>())},
      {"noversion", V(std::optional<std::string>())},
      {"file", V()},
      {"broken", V()},
      {"missing", V()},
  };
  for (const Case& c : cases) EXPECT_EQ(openedVersion(tmp / c.name), c.result) << c.name;
}

TEST(RuntimeBundle, HomeIsContentsHomeWhenPresent) {
  TempDir tmp;
  test::makeFakeRuntime(tmp / "bundle", "11.0.2", "bundle");
  test::makeFakeRuntime(tmp / "home", "17.0.15");
  EXPECT_EQ(RuntimeBundle::open(tmp / "bundle")->home(), tmp / "bundle/Contents/Home");
  EXPECT_EQ(RuntimeBundle::open(tmp / "home")->home(), tmp / "home");
  EXPECT_EQ(runtimeHome(tmp / "nowhere"), tmp / "nowhere");
}

}  // namespace
}  // namespace bwk
