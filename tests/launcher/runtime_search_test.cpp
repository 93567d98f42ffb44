// The order in which the launcher picks its runtime: override, shipped runtime, the search sequence.
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

// An override in range beats the shipped runtime; else the shipped one is used whatever its version, if it has one.
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
