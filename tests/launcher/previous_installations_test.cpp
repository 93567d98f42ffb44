// Runtimes of earlier installations, found through the installation records.
#include <cstdlib>

#include "launch_fixture.h"

namespace bwk::test {
namespace {

class PreviousInstallations : public LaunchFixture {
 protected:
  void SetUp() override { env.set("XDG_CONFIG_HOME", tmp / "config"); }
  ScopedEnvironment env;

  void writeRecords(PlistDict records) {
    writePlist(tmp / "config/brackwood/com.brackwood.installations.plist",
               PlistValue(PlistDict{{"/com/brackwood/installations/", PlistValue(std::move(records))}}));
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

TEST_F(PreviousInstallations, RuntimesOfRecordedDirectories) {
  const std::string third = tmp / "c", v = "/.brackwood/jre/brackwood_jre_version", j = "/.brackwood/jre.bundle";
  const std::string plugIn = "/Tool.app/Contents/PlugIns/jre.bundle";
  struct Made {
    std::string path, text;
    bool runtimeBundle;  // else a file holding `text`; a bundle gets `text` as its version
  };
  struct Case {
    const char* name;
    std::vector<Made> made;
    std::string dirs;
    OptionalString expected;
    bool previousInstallation;
    bool bInSingleBundle = false;
  } cases[] = {
      // The loop goes on after a's runtime was accepted, but b is never opened.
      Case("a private runtime stops bundle checks", {{a + v, "1.8.0_291", false}, {b + j, "1.8.0_300", true}},
           a + ";" + b, a + "/.brackwood/jre", false),
      Case("the last private runtime decides", {{a + v, "1.8.0_291", false}}, b + ";" + a, a + "/.brackwood/jre",
           false),
      Case("an out-of-range private runtime replaces an accepted one",
           {{a + v, "1.8.0_291", false}, {b + v, "17.0.2", false}}, a + ";" + b, std::nullopt, false),
      Case("bundles in order until one is accepted",
           {{a + j, "17.0.2", true}, {b + plugIn, "1.8.0_291", true}, {third + j, "1.8.0_300", true}},
           ";" + a + ";" + b + ";" + third, b + plugIn, true, true),
      Case("a single bundle prefers Resources",
           {{b + "/Tool.app/Contents/Resources/jre.bundle", "1.8.0_1", true}, {b + plugIn, "1.8.0_2", true}}, b,
           b + "/Tool.app/Contents/Resources/jre.bundle", true, true),
      // Neither a nor b turned bundle checks off, so c's bundle is found.
      Case("unusable version files",
           {{a + v + "/x", "", false}, {b + v, std::string("1.8.0\xff", 6), false}, {third + j, "1.8.0_300", true}},
           a + ";" + b + ";" + third, third + j, true),
  };
  for (const Case& c : cases) {
    for (const std::string& dir : {a, b, third}) fs::removeItem(dir);
    for (const Made& m : c.made)
      m.runtimeBundle ? makeFakeRuntime(m.path, m.text, "bundle") : writeFile(m.path, m.text);
    PlistDict records{{"allinstdirs1234-5678", c.dirs}};
    if (c.bInSingleBundle) records["singleBundleName1234-5678_" + b] = "Tool.app";
    writeRecords(records);
    std::optional<ChosenRuntime> chosen = search();
    EXPECT_EQ(result, c.expected) << c.name;
    if (chosen) {
      EXPECT_EQ(chosen->shortVersion, "1.8.0") << c.name;
      EXPECT_EQ(chosen->previousInstallation, c.previousInstallation) << c.name;
    }
  }
}

TEST_F(PreviousInstallations, MissingPiecesFindNothing) {
  writeFile(a + "/.brackwood/jre/brackwood_jre_version", "1.8.0_291");
  struct Case {
    const char* name;
    bool writeFile;
    PlistDict records;
    PlistDict extra;
  } cases[] = {
      {"no records file", false, {}, {}},
      {"no application id", true, {{"allinstdirs1234-5678", a}}, {{"bwk.appId", 5}}},
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
