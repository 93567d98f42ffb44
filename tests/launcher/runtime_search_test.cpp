// The order in which the launcher picks its runtime: authorization restart, override,
// shipped and private runtimes, the search sequence, and the unpacking of fixed runtimes.
#include <cstdlib>

#include "base/fs.h"
#include "base/platform_exception.h"
#include "runtime_search_support.h"

namespace bwk {
namespace {

using test::makeFakeRuntime;
using test::writeFile;

class RuntimeSearch : public test::RuntimeSearchFixture {
 protected:
  std::string runtime(const std::string& name, const std::string& version, const std::string& layout = "bundle") {
    std::string dir = tmp / name;
    makeFakeRuntime(dir, version, layout);
    return dir;
  }
  std::string shipped(const std::string& location, const std::string& version) {
    std::string dir = bundle + "/Contents/" + location + "/jre.bundle";
    makeFakeRuntime(dir, version, "bundle");
    return dir;
  }
};

TEST_F(RuntimeSearch, AuthorizationRestartTakesOnlyTheGivenRuntime) {
  shipped("Resources", "11.0.2");
  std::string given = runtime("given", "17.0.2");
  platform::setProcessArguments({"/prog", "__bwk_auth_restart", given});
  auto launcher = launch({{"bwk.minVersion", "21"}});
  EXPECT_EQ(launcher->findJavaBundle(), given);
  EXPECT_STREQ(launchJavaVersion, "17.0.2");
  EXPECT_EQ(launcher->javaMajorVersion, 17);
}

TEST_F(RuntimeSearch, AuthorizationRestartFallsBackToThePrivateRuntime) {
  shipped("Resources", "11.0.2");
  test::writeFile(appRoot + "/.brackwood/jre/bin/java", "");
  platform::setProcessArguments({"/prog", "__bwk_auth_restart", tmp / "x/jre.bundle"});
  auto launcher = launch({});
  EXPECT_EQ(launcher->findJavaBundle(), appRoot + "/.brackwood/jre");
  EXPECT_STREQ(launchJavaVersion, "1.7.0");
  EXPECT_EQ(launcher->javaBundle, nullptr);
  EXPECT_EQ(launcher->javaVersion, std::nullopt);
  EXPECT_EQ(launcher->javaMajorVersion, -1);
}

TEST_F(RuntimeSearch, OverrideLastSourceWins) {
  struct Case {
    const char* name;
    bool plist, file, commandLine;
    const char* expected;
  } cases[] = {
      {"all three", true, true, true, "/c"},
      {"plist and file", true, true, false, "/b"},
      {"plist only", true, false, false, "/a"},
      {"none", false, false, false, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::removeItem(tmp / "Apps/Tool.vmoptions");
    if (c.file) writeFile(tmp / "Apps/Tool.vmoptions", "-Xmx1g\n-jvm=/b\n-Dx=1\n");
    platform::setProcessArguments(c.commandLine ? std::vector<std::string>{"/prog", "-J-jvm=/c", "arg"}
                                                : std::vector<std::string>{"/prog"});
    PlistDict javaVM;
    if (c.plist) javaVM["VMOptionArray"] = list({"-jvm=/a", "-Xss1m"});
    auto launcher = launch({{"bwk.allowPassthrough", true}, {"JavaVM", PlistValue(javaVM)}});
    EXPECT_EQ(launcher->findOverrideJvm(), c.expected ? OptionalString(c.expected) : std::nullopt);
  }
}

// An override in range beats the shipped runtime; out of range, the shipped one is used
// whatever its version.
TEST_F(RuntimeSearch, OverrideThenShippedRuntime) {
  std::string inResources = shipped("Resources", "11.0.2");
  std::string override17 = runtime("override", "17.0.2");
  writeFile(tmp / "Apps/Tool.vmoptions", "-jvm=" + override17 + "\n");
  for (auto [min, expected, version] : {std::tuple{"17", override17, "17.0.2"}, std::tuple{"21", inResources, "11.0.2"}}) {
    EXPECT_EQ(launch({{"bwk.minVersion", min}})->findJavaBundle(), expected) << min;
    EXPECT_STREQ(launchJavaVersion, version);
  }
}

TEST_F(RuntimeSearch, FixedLocationsInOrder) {
  struct Case {
    const char* name;
    bool installer, resources, plugins, privateBundle, privateHome;
    std::string expected;
  } cases[] = {
      {"installer first", true, true, true, true, true, tmp / "installer"},
      {"resources", false, true, true, true, true, bundle + "/Contents/Resources/jre.bundle"},
      {"plugins", false, false, true, true, true, bundle + "/Contents/PlugIns/jre.bundle"},
      {"private bundle", false, false, false, true, true, appRoot + "/.brackwood/jre.bundle"},
      {"private home", false, false, false, false, true, appRoot + "/.brackwood/jre"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const std::string& dir : {tmp / "installer", bundle + "/Contents/Resources", bundle + "/Contents/PlugIns",
                                   appRoot + "/.brackwood"})
      fs::removeItem(dir);
    if (c.installer) makeFakeRuntime(tmp / "installer", "11.0.1", "bundle");
    if (c.resources) shipped("Resources", "11.0.2");
    if (c.plugins) shipped("PlugIns", "11.0.3");
    if (c.privateBundle) makeFakeRuntime(appRoot + "/.brackwood/jre.bundle", "11.0.4", "bundle");
    if (c.privateHome) writeFile(appRoot + "/.brackwood/jre/release", "");
    auto launcher = launch({{"bwk.maxVersion", "1.8"}});
    if (c.installer) launcher->setInstallerJreBundle(tmp / "installer", tmp / "jre.tar.gz");
    EXPECT_EQ(launcher->findJavaBundle(), c.expected);
  }
}

TEST_F(RuntimeSearch, RefusedShippedRuntimeIsNotReplaced) {
  // A shipped runtime without a version is refused, and the search sequence is not tried.
  writeFile(bundle + "/Contents/Resources/jre.bundle/Contents/Info.plist", "<plist><dict>");
  std::string good = runtime("good", "17.0.2");
  auto launcher = launch({{"JavaVM", searchSequence({"R" + good})}});
  EXPECT_EQ(launcher->findJavaBundle(), std::nullopt);
  EXPECT_EQ(launcher->javaBundlePath, std::nullopt);
  EXPECT_EQ(launchJavaVersion, nullptr);
  ASSERT_NE(launcher->javaBundle, nullptr);
  EXPECT_EQ(launcher->javaBundle->path(), bundle + "/Contents/Resources/jre.bundle");
}

TEST_F(RuntimeSearch, SearchSequenceEntries) {
  std::string r11 = runtime("r11", "11.0.2");
  std::string r17 = runtime("r17", "17.0.2", "home");
  std::string r21 = runtime("r21", "21.0.1");
  setenv("BWK_TEST_RUNTIME", r17.c_str(), 1);
  setenv("BWK_TEST_DIR", tmp.path().c_str(), 1);
  unsetenv("BWK_TEST_UNSET");
  struct Case {
    const char* name;
    std::vector<std::string> entries;
    const char* min;
    OptionalString expected;
  } cases[] = {
      {"missing, empty and unknown entries are passed", {"R" + tmp / "missing", "", "Q" + r11, "R" + r11}, "", r11},
      {"first accepted wins", {"R" + r17, "R" + r21}, "", r17},
      {"range applies", {"R" + r11, "R" + r21, "R" + r17}, "17", r21},
      {"environment variable", {"EBWK_TEST_UNSET", "EBWK_TEST_RUNTIME", "R" + r11}, "", r17},
      {"variables in a directory", {"R${BWK_TEST_DIR}/r21"}, "", r21},
      {"nothing found", {"R" + r11, "EBWK_TEST_UNSET"}, "12", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PlistArray entries;
    for (const std::string& e : c.entries) entries.emplace_back(e);
    entries.emplace_back(int64_t{5});  // not a text: skipped
    auto launcher = launch({{"bwk.minVersion", c.min}, {"JavaVM", PlistValue(PlistDict{{"SearchSequence", PlistValue(entries)}})}});
    EXPECT_EQ(launcher->findJavaBundle(), c.expected);
    EXPECT_EQ(launcher->javaBundlePath, c.expected);
    EXPECT_EQ(launchJavaVersion != nullptr, c.expected.has_value());
  }
  unsetenv("BWK_TEST_RUNTIME");
  unsetenv("BWK_TEST_DIR");
}

TEST_F(RuntimeSearch, BetaRuntimesOnlyWhenAllowed) {
  std::string ea = runtime("ea", "22-ea");
  for (bool allow : {false, true}) {
    auto launcher = launch({{"bwk.allowBeta", allow}, {"JavaVM", searchSequence({"R" + ea})}});
    EXPECT_EQ(launcher->findJavaBundle().has_value(), allow);
  }
}

TEST_F(RuntimeSearch, EveryCallStartsClean) {
  std::string r17 = runtime("r17", "17.0.2");
  auto launcher = launch({{"JavaVM", searchSequence({"R" + r17})}});
  launcher->pluginUsed = true;
  launcher->previousJdkUsed = true;
  ASSERT_EQ(launcher->findJavaBundle(), r17);
  EXPECT_FALSE(launcher->pluginUsed);
  EXPECT_FALSE(launcher->previousJdkUsed);
  s_infoDictionary = PlistValue(PlistDict{{"bwk.minVersion", "18"}, {"JavaVM", searchSequence({"R" + r17})}});
  EXPECT_EQ(launcher->findJavaBundle(), std::nullopt);
  EXPECT_EQ(launcher->javaBundle, nullptr);
  EXPECT_EQ(launchJavaVersion, nullptr);
}

// --- unpacking of fixed runtimes ------------------------------------------------------------

class RuntimeUnpacking : public RuntimeSearch {
 protected:
  void SetUp() override {
    RuntimeSearch::SetUp();
    home = shipped("Resources", "17.0.2") + "/Contents/Home";
    writeFile(home + "/lib/a.jar.pack", "a");
  }
  std::string home;
  std::string log = tmp / "unpack.log";
};

TEST_F(RuntimeUnpacking, UnpacksTheJreFolderThenTheHome) {
  writeFile(home + "/jre/lib/b.jar.pack", "b");
  installUnpackTool(home, log, "mv \"$2\" \"$3\"");
  installUnpackTool(home + "/jre", log, "mv \"$2\" \"$3\"");
  auto launcher = launch({});
  EXPECT_EQ(launcher->findJavaBundle(), bundle + "/Contents/Resources/jre.bundle");
  EXPECT_EQ(test::readFile(log), "-r " + home + "/jre/lib/b.jar.pack " + home + "/jre/lib/b.jar\n" + "-r " + home +
                                     "/lib/a.jar.pack " + home + "/lib/a.jar\n");
  EXPECT_TRUE(fs::exists(home + "/lib/a.jar"));
}

TEST_F(RuntimeUnpacking, RefusedRuntimeIsStillUnpacked) {
  installUnpackTool(home, log, "mv \"$2\" \"$3\"");
  fs::removeItem(bundle + "/Contents/Resources/jre.bundle/Contents/Info.plist");
  writeFile(bundle + "/Contents/Resources/jre.bundle/Contents/Info.plist", "{}");
  auto launcher = launch({});
  EXPECT_EQ(launcher->findJavaBundle(), std::nullopt);
  EXPECT_TRUE(fs::exists(home + "/lib/a.jar"));
}

TEST_F(RuntimeUnpacking, ExistingTestDirectoryMeansNotWritable) {
  installUnpackTool(home, log, "exit 2");
  test::writeFile(home + "/_bwk_testdir/keep", "");
  auto launcher = launch({});
  EXPECT_EXIT(launcher->findJavaBundle(), ::testing::ExitedWithCode(1), "ERROR: NonWritablePackDir");
  EXPECT_TRUE(fs::exists(home + "/_bwk_testdir/keep"));
}

TEST_F(RuntimeUnpacking, RuntimesOfTheSearchSequenceAreNotUnpacked) {
  fs::removeItem(bundle + "/Contents/Resources");
  std::string found = runtime("found", "17.0.2");
  writeFile(found + "/Contents/Home/lib/a.jar.pack", "a");
  installUnpackTool(found + "/Contents/Home", log, "exit 2");
  auto launcher = launch({{"JavaVM", searchSequence({"R" + found})}});
  EXPECT_EQ(launcher->findJavaBundle(), found);
  EXPECT_FALSE(fs::exists(log));
}

TEST_F(RuntimeUnpacking, ReadOnlyRuntimeIsNotWritable) {
  // The runtime's directory is mounted read-only, so the tool cannot write the jar and the
  // test directory cannot be made.
  installUnpackTool(home, log, "mv \"$2\" \"$3\"");
  auto launcher = launch({});
  test::ChildOutcome outcome = test::inPrivateMounts({{home, home, true}}, [&] {
    launcher->findJavaBundle();
    return 0;
  });
  EXPECT_EQ(outcome.status, 1) << outcome.output;
  EXPECT_NE(outcome.output.find("ERROR: NonWritablePackDir"), std::string::npos) << outcome.output;
}

}  // namespace
}  // namespace bwk
