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
  // Searches with "I" only, between 1.8 and 1.8.0.
  std::optional<ChosenRuntime> search(PlistDict extra = {}) {
    PlistDict info{{"bwk.appId", "1234-5678"},
                   {"bwk.minVersion", "1.8"},
                   {"bwk.maxVersion", "1.8.0"},
                   {"JavaVM", searchSequence({"I"})}};
    for (auto& [k, v] : extra) info[k] = v;
    std::optional<ChosenRuntime> chosen = findJavaBundle(bundleLaunch(std::move(info)), std::nullopt);
    result = chosen ? OptionalString(chosen->path) : std::nullopt;
    return chosen;
  }

  std::string a = tmp / "a", b = tmp / "b";
  OptionalString result;
};

TEST_F(PreviousInstallations, RuntimesOfRecordedDirectories) {
  writeFile(a + "/.brackwood/jre/brackwood_jre_version", "1.8.0_291");
  EXPECT_FALSE(search()) << "no records file";
  writeRecords({{"allinstdirs1234-5678", a}});
  EXPECT_FALSE(search({{"bwk.appId", 5}})) << "no application id";
  writeFile(tmp / "config/brackwood/com.brackwood.installations.plist", "<plist><dict><key>x");
  EXPECT_FALSE(search()) << "a records file that is not a property list";
  const std::string third = tmp / "c", v = "/.brackwood/jre/brackwood_jre_version", j = "/.brackwood/jre.bundle";
  const std::string plugIn = "/Tool.app/Contents/PlugIns/jre.bundle";
  // What is made: a path, a text, a runtime bundle (of the text's version) or else a file holding the text.
  using Made = std::vector<std::tuple<std::string, std::string, bool>>;
  // name, made, the recorded directories, the runtime chosen, from a previous installation, b a single bundle
  using Case = std::tuple<const char*, Made, std::string, OptionalString, bool, bool>;
  const Case cases[] = {
      // The loop goes on after a's runtime was accepted, but b is never opened.
      Case("a private runtime stops bundle checks", {{a + v, "1.8.0_291", false}, {b + j, "1.8.0_300", true}},
           a + ";" + b, a + "/.brackwood/jre", false, false),
      Case("the last private runtime decides", {{a + v, "1.8.0_291", false}}, b + ";" + a, a + "/.brackwood/jre", false,
           false),
      Case("an out-of-range private runtime replaces an accepted one, read as 1.8.291, not as the plug-in's 1.8.0_291",
           {{a + v, "1.8.0_291", false}, {b + v, "1.8.291.10", false}}, a + ";" + b, std::nullopt, false, false),
      Case("bundles in order until one is accepted",
           {{a + j, "17.0.2", true}, {b + plugIn, "1.8.0_291", true}, {third + j, "1.8.0_300", true}},
           ";" + a + ";" + b + ";" + third, b + plugIn, true, true),
      Case("a single bundle prefers Resources",
           {{b + "/Tool.app/Contents/Resources/jre.bundle", "1.8.0_1", true}, {b + plugIn, "1.8.0_2", true}}, b,
           b + "/Tool.app/Contents/Resources/jre.bundle", true, true),
      // Neither a nor b turned bundle checks off, so c's bundle is found.
      Case("unusable version files",
           {{a + v + "/x", "", false}, {b + v, std::string("1.8.0\xff", 6), false}, {third + j, "1.8.0_300", true}},
           a + ";" + b + ";" + third, third + j, true, false),
  };
  for (const auto& [name, made, dirs, expected, previous, bInSingleBundle] : cases) {
    for (const std::string& dir : {a, b, third}) fs::removeItem(dir);
    for (const auto& [path, text, runtimeBundle] : made)
      runtimeBundle ? makeFakeRuntime(path, text, "bundle") : writeFile(path, text);
    PlistDict records{{"allinstdirs1234-5678", dirs}};
    if (bInSingleBundle) records["singleBundleName1234-5678_" + b] = "Tool.app";
    writeRecords(records);
    std::optional<ChosenRuntime> chosen = search();
    EXPECT_EQ(result, expected) << name;
    if (chosen) {
      EXPECT_EQ(std::pair(chosen->shortVersion, chosen->previousInstallation),
                std::pair(std::string("1.8.0"), previous))
          << name;
    }
  }
}

}  // namespace
}  // namespace bwk::test
