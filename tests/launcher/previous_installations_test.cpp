// Runtimes of earlier installations, found through the installation records.
#include <cstdlib>

#include "base/fs.h"
#include "launch_fixture.h"

namespace bwk::test {
namespace {

class PreviousInstallations : public LaunchFixture {
 protected:
  void SetUp() override { setenv("XDG_CONFIG_HOME", (tmp / "config").c_str(), 1); }
  void TearDown() override { unsetenv("XDG_CONFIG_HOME"); }

  void writeRecords(PlistDict records) {
    writePlist(tmp / "config/brackwood/com.brackwood.installations.plist",
                     PlistValue(PlistDict{{"/com/brackwood/installations/", PlistValue(std::move(records))}}));
  }
  // A private plain runtime with a version file.
  void privateRuntime(const std::string& dir, const std::string& version) {
    writeFile(dir + "/.brackwood/jre/brackwood_jre_version", version);
  }
  // Searches with "I" only, between 1.8 and 1.8.
  std::optional<ChosenRuntime> search(PlistDict extra = {}) {
    PlistDict info{{"bwk.appId", "1234-5678"},
                   {"bwk.minVersion", "1.8"},
                   {"bwk.maxVersion", "1.8"},
                   {"JavaVM", searchSequence({"I"})}};
    for (auto& [k, v] : extra) info[k] = v;
    std::optional<ChosenRuntime> chosen = findJavaBundle(bundleLaunch(std::move(info)), std::nullopt);
    result = chosen ? OptionalString(chosen->path) : std::nullopt;
    return chosen;
  }

  std::string a = tmp / "a";
  std::string b = tmp / "b";
  OptionalString result;
};

TEST_F(PreviousInstallations, PrivateRuntimeStopsBundleChecks) {
  privateRuntime(a, "1.8.0_291");
  makeFakeRuntime(b + "/.brackwood/jre.bundle", "1.8.0_300", "bundle");
  writeRecords({{"allinstdirs1234-5678", a + ";" + b}});
  std::optional<ChosenRuntime> chosen = search();
  // The loop goes on after a's runtime was accepted, but b is never opened and a's runtime
  // stays the result.
  ASSERT_TRUE(chosen);
  EXPECT_EQ(chosen->path, a + "/.brackwood/jre");
  EXPECT_EQ(chosen->shortVersion, "1.8.0");
  EXPECT_EQ(chosen->version, "1.8.0_291");
  EXPECT_EQ(chosen->bundle, nullptr);
  EXPECT_FALSE(chosen->previousInstallation);
}

// The last private runtime decides: b's is out of range and replaces a's accepted one with
// none, whichever order the records give.
TEST_F(PreviousInstallations, LastPrivateRuntimeDecides) {
  privateRuntime(a, "1.8.0_291");
  writeRecords({{"allinstdirs1234-5678", b + ";" + a}});
  EXPECT_FALSE(search()->previousInstallation);
  EXPECT_EQ(result, a + "/.brackwood/jre");
  privateRuntime(b, "17.0.2");
  writeRecords({{"allinstdirs1234-5678", a + ";" + b}});
  EXPECT_EQ(search(), std::nullopt);
}

TEST_F(PreviousInstallations, BundlesInOrderUntilOneIsAccepted) {
  makeFakeRuntime(a + "/.brackwood/jre.bundle", "17.0.2", "bundle");  // out of range
  makeFakeRuntime(b + "/Tool.app/Contents/PlugIns/jre.bundle", "1.8.0_291", "bundle");
  std::string c = tmp / "c";
  makeFakeRuntime(c + "/.brackwood/jre.bundle", "1.8.0_300", "bundle");
  writeRecords({{"allinstdirs1234-5678", ";" + a + ";" + b + ";" + c}, {"singleBundleName1234-5678_" + b, "Tool.app"}});
  std::optional<ChosenRuntime> chosen = search();
  EXPECT_EQ(result, b + "/Tool.app/Contents/PlugIns/jre.bundle");
  ASSERT_TRUE(chosen);
  EXPECT_EQ(chosen->shortVersion, "1.8.0");
  EXPECT_TRUE(chosen->previousInstallation);
  EXPECT_NE(chosen->bundle, nullptr);
}

TEST_F(PreviousInstallations, SingleBundlePrefersResources) {
  makeFakeRuntime(a + "/Tool.app/Contents/Resources/jre.bundle", "1.8.0_1", "bundle");
  makeFakeRuntime(a + "/Tool.app/Contents/PlugIns/jre.bundle", "1.8.0_2", "bundle");
  writeRecords({{"allinstdirs1234-5678", a}, {"singleBundleName1234-5678_" + a, "Tool.app"}});
  EXPECT_EQ(search()->version, "1.8.0_1");
  EXPECT_EQ(result, a + "/Tool.app/Contents/Resources/jre.bundle");
}

TEST_F(PreviousInstallations, UnusableVersionFileFallsBackToTheBundlePath) {
  writeFile(a + "/.brackwood/jre/brackwood_jre_version/x", "");  // a directory
  writeFile(b + "/.brackwood/jre/brackwood_jre_version", std::string("1.8.0\xff", 6));  // not UTF-8
  std::string c = tmp / "c";
  makeFakeRuntime(c + "/.brackwood/jre.bundle", "1.8.0_300", "bundle");
  writeRecords({{"allinstdirs1234-5678", a + ";" + b + ";" + c}});
  // Neither a nor b turned bundle checks off, so c's bundle is found.
  EXPECT_TRUE(search()->previousInstallation);
  EXPECT_EQ(result, c + "/.brackwood/jre.bundle");
}

TEST_F(PreviousInstallations, MissingPiecesFindNothing) {
  privateRuntime(a, "1.8.0_291");
  struct Case {
    const char* name;
    bool writeFile;
    PlistDict records;
    PlistDict extra;
  } cases[] = {
      {"no records file", false, {}, {}},
      {"no application id", true, {{"allinstdirs1234-5678", a}}, {{"bwk.appId", 5}}},
      {"other application", true, {{"allinstdirs9999", a}}, {}},
      {"directories of another type", true, {{"allinstdirs1234-5678", PlistValue(PlistArray{a})}}, {}},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::removeItem(tmp / "config");
    if (c.writeFile) writeRecords(c.records);
    search(c.extra);
    EXPECT_EQ(result, std::nullopt);
  }
  // A records file that is not a property list.
  writeFile(tmp / "config/brackwood/com.brackwood.installations.plist", "<plist><dict><key>x");
  search();
  EXPECT_EQ(result, std::nullopt);
}

}  // namespace
}  // namespace bwk::test
