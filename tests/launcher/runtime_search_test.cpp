// The order in which the launcher picks its runtime: authorization restart, override,
// shipped and private runtimes, the search sequence, and the unpacking of fixed runtimes.
#include <cstdlib>

#include "launch_fixture.h"

namespace bwk::test {
namespace {

class RuntimeSearch : public LaunchFixture {
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
  // "path shortVersion major" of the runtime a search chooses.
  std::string found(const LaunchContext& context) {
    std::optional<ChosenRuntime> c = findJavaBundle(context, std::nullopt);
    return c ? c->path + " " + c->shortVersion + " " + std::to_string(c->majorVersion) : "none";
  }
};

TEST_F(RuntimeSearch, AuthorizationRestartTakesTheGivenRuntimeOrThePrivateOne) {
  shipped("Resources", "11.0.2");
  std::string given = runtime("given", "17.0.2");
  EXPECT_EQ(found(bundleLaunch({{"bwk.minVersion", "21"}}, {"/prog", "__bwk_auth_restart", given})),
            given + " 17.0.2 17");
  writeFile(appRoot + "/.brackwood/jre/bin/java", "");
  EXPECT_EQ(found(bundleLaunch({}, {"/prog", "__bwk_auth_restart", tmp / "x/jre.bundle"})),
            appRoot + "/.brackwood/jre 1.7.0 -1");  // used as it is: no version read
}

TEST_F(RuntimeSearch, OverrideLastSourceWins) {
  const std::tuple<const char*, bool, bool, bool, const char*> cases[] = {
      // in the plist, file, command line
      {"all three", true, true, true, "/c"},
      {"plist and file", true, true, false, "/b"},
      {"plist only", true, false, false, "/a"},
      {"none", false, false, false, nullptr},
  };
  for (const auto& [name, plist, file, commandLine, expected] : cases) {
    fs::removeItem(tmp / "Apps/Tool.vmoptions");
    if (file) writeFile(tmp / "Apps/Tool.vmoptions", "-Xmx1g\n-jvm=/b\n-Dx=1\n");
    PlistDict javaVM;
    if (plist) javaVM["VMOptionArray"] = stringArray({"-jvm=/a", "-Xss1m"});
    const LaunchContext& context = bundleLaunch(
        {{"bwk.allowPassthrough", true}, {"JavaVM", PlistValue(javaVM)}},
        commandLine ? std::vector<std::string>{"/prog", "-J-jvm=/c", "arg"} : std::vector<std::string>{"/prog"});
    EXPECT_EQ(findOverrideJvm(context), expected ? OptionalString(expected) : std::nullopt) << name;
  }
}

// An override in range beats the shipped runtime; out of range, the shipped one is used
// whatever its version, unless it has none.
TEST_F(RuntimeSearch, OverrideThenShippedRuntime) {
  // A shipped runtime without a version is refused, and the search sequence is not tried.
  writeFile(bundle + "/Contents/Resources/jre.bundle/Contents/Info.plist", "<plist><dict>");
  std::string good = runtime("good", "17.0.2");
  EXPECT_EQ(chosenPath(bundleLaunch({{"JavaVM", searchSequence({"R" + good})}})), std::nullopt);
  std::string inResources = shipped("Resources", "11.0.2-ea");  // a pre-release, started all the same
  std::string override17 = runtime("override", "17.0.2");
  writeFile(tmp / "Apps/Tool.vmoptions", "-jvm=" + override17 + "\n");
  EXPECT_EQ(found(bundleLaunch({{"bwk.minVersion", "17"}})), override17 + " 17.0.2 17");
  EXPECT_EQ(found(bundleLaunch({{"bwk.minVersion", "21"}})), inResources + " 11.0.2-ea 11");
}

// Each round leaves out the locations before the one it expects; the private home is always there.
TEST_F(RuntimeSearch, FixedLocationsInOrder) {
  const std::string expected[] = {tmp / "installer", bundle + "/Contents/Resources/jre.bundle",
                                  bundle + "/Contents/PlugIns/jre.bundle", appRoot + "/.brackwood/jre.bundle",
                                  appRoot + "/.brackwood/jre"};
  for (int first = 0; first < 5; ++first) {
    for (const std::string& dir :
         {tmp / "installer", bundle + "/Contents/Resources", bundle + "/Contents/PlugIns", appRoot + "/.brackwood"})
      fs::removeItem(dir);
    if (first <= 0) makeFakeRuntime(tmp / "installer", "11.0.1", "bundle");
    if (first <= 1) shipped("Resources", "11.0.2");
    if (first <= 2) shipped("PlugIns", "11.0.3");
    if (first <= 3) makeFakeRuntime(appRoot + "/.brackwood/jre.bundle", "11.0.4", "bundle");
    writeFile(appRoot + "/.brackwood/jre/release", "");
    const LaunchContext& context = bundleLaunch({{"bwk.maxVersion", "1.8"}});
    EXPECT_EQ(chosenPath(context, first == 0 ? OptionalString(tmp / "installer") : std::nullopt), expected[first])
        << first;
  }
}

TEST_F(RuntimeSearch, SearchSequenceEntries) {
  std::string r11 = runtime("r11", "11.0.2");
  std::string r17 = runtime("r17", "17.0.2", "home");
  std::string r21 = runtime("r21", "21.0.1");
  std::string ea = runtime("ea", "22-ea");
  ScopedEnvironment env{{"BWK_TEST_RUNTIME", r17}, {"BWK_TEST_DIR", tmp.path()}, {"BWK_TEST_UNSET", std::nullopt}};
  using Case = std::tuple<const char*, std::vector<std::string>, const char*, bool, OptionalString>;
  const Case cases[] = {
      // name, entries, bwk.minVersion, bwk.allowBeta, the runtime chosen
      Case("missing, empty and unknown entries are passed", {"R" + tmp / "missing", "", "Q" + r11, "R" + r11}, "",
           false, r11),
      {"first accepted wins", {"R" + r17, "R" + r21}, "", false, r17},
      {"range applies", {"R" + r11, "R" + r21, "R" + r17}, "17", false, r21},
      {"environment variable", {"EBWK_TEST_UNSET", "EBWK_TEST_RUNTIME", "R" + r11}, "", false, r17},
      {"variables in a directory", {"R${BWK_TEST_DIR}/r21"}, "", false, r21},
      {"nothing found", {"R" + r11, "EBWK_TEST_UNSET"}, "12", false, std::nullopt},
      {"beta refused", {"R" + ea}, "", false, std::nullopt},
      {"beta allowed", {"R" + ea}, "", true, ea},
  };
  for (const auto& [name, entries, min, beta, expected] : cases) {
    PlistArray sequence(entries.begin(), entries.end());
    sequence.emplace_back(int64_t{5});  // not a text: skipped
    const LaunchContext& context =
        bundleLaunch({{"bwk.minVersion", min},
                      {"bwk.allowBeta", beta},
                      {"JavaVM", PlistValue(PlistDict{{"SearchSequence", PlistValue(sequence)}})}});
    EXPECT_EQ(chosenPath(context), expected) << name;
  }
}

}  // namespace
}  // namespace bwk::test
