// Acceptance of a runtime against the configured range, and opening runtime directories.

#include "launcher/runtime_checks.h"
#include "test_support.h"

namespace bwk::test {
namespace {

PlistValue javaVM(const std::string& version) { return PlistValue(PlistDict{{"JVMVersion", version}}); }

// "short major" of an accepted version, "refused" otherwise.
std::string outcome(const std::optional<AcceptedVersion>& accepted) {
  return accepted ? accepted->shortVersion + " " + std::to_string(accepted->majorVersion) : "refused";
}

TEST(RuntimeChecks, BundleVersionAgainstRangeAndReadFromTheBundle) {
  using S = std::optional<std::string>;
  // min, max, allowBeta, plugin, version, EvarVersion, CFBundleGetInfoString, outcome
  const std::tuple<S, S, bool, bool, S, S, S, const char*> cases[] = {
      {"1.8", "1.8", false, false, "1.8.0_291", {}, {}, "1.8.0 8"},
      {"1.8", "1.8", false, false, "11.0.2", {}, {}, "refused"},
      {{}, {}, false, false, "17.0.2+8", {}, {}, "17.0.2 17"},
      {{}, "11", false, false, "17.0.15", {}, {}, "refused"},
      {{}, {}, true, false, "9-ea", {}, {}, "9-ea 9"},
      {{}, {}, false, false, "9-ea", {}, {}, "refused"},
      {{}, {}, false, false, "17.0.2", {}, "Java SE Release 17", "refused"},
      {{}, {}, false, false, "17.0.2", "1.0-beta", {}, "refused"},
      {{}, {}, true, false, "17.0.2", "1.0-beta", "Release", "17.0.2 17"},
      {{}, {}, true, true, {}, {}, {}, "refused"},
      {{}, {}, false, false, "abc", {}, {}, "abc 0"},
      {{}, {}, false, false, "1", {}, {}, "1 1"},  // the first number, 1 by itself
      // The plug-in writes 1.8.291.10 for 1.8.0_291: only with the plug-in flag is it tested as 1.8.0.291.
      {{}, "1.8.0.300", false, true, "1.8.291.10", {}, {}, "1.8.291.10 8"},
      {{}, "1.8.0.300", false, false, "1.8.291.10", {}, {}, "refused"},
      {{}, "1.8.0.100", false, true, "1.8.0.291", {}, {}, "refused"},
      {"1.7.0.80", "1.7.0.80", false, true, "1.7.80.15", {}, {}, "1.7.80.15 7"},
  };
  for (const auto& [min, max, allowBeta, plugin, version, evar, info, expected] : cases) {
    std::optional<AcceptedVersion> accepted = checkBundleVersion(min, max, allowBeta, plugin, version, evar, info);
    EXPECT_EQ(outcome(accepted), expected) << version.value_or("(absent)");
    EXPECT_EQ(accepted ? std::optional(accepted->version) : std::nullopt, accepted ? version : std::nullopt);
  }
  TempDir tmp;
  const std::tuple<const char*, PlistDict, bool, const char*> bundles[] = {
      // name, Info.plist, plugin, outcome
      {"jvm", {{"JavaVM", javaVM("17.0.2")}}, false, "17.0.2 17"},
      {"noJvmVersion", {{"JavaVM", PlistValue(PlistDict{})}, {"CFBundleVersion", "1.8.0"}}, false, "refused"},
      {"pluginFallback", {{"JavaVM", PlistValue(PlistDict{})}, {"CFBundleVersion", "1.8.0"}}, true, "1.8.0 8"},
      {"numberVersion", {{"JavaVM", PlistValue(PlistDict{{"JVMVersion", 17}})}}, false, "refused"},
      {"betaInfo", {{"JavaVM", javaVM("17.0.2")}, {"CFBundleGetInfoString", "Team build"}}, false, "refused"},
  };
  for (const auto& [name, info, plugin, expected] : bundles) {
    writePlist(tmp / name + "/Contents/Info.plist", PlistValue(info));
    std::shared_ptr<RuntimeBundle> runtime = RuntimeBundle::open(tmp / name);
    ASSERT_TRUE(runtime);
    EXPECT_EQ(outcome(checkJavaVersion(runtime.get(), std::nullopt, std::nullopt, false, plugin)), expected) << name;
  }
  EXPECT_EQ(outcome(checkJavaVersion(nullptr, std::nullopt, std::nullopt, true, true)), "refused");
  EXPECT_EQ(getJavaMinVersion(PlistValue(PlistDict{{"bwk.minVersion", "11.0.2"}})), "11.0.2");
  EXPECT_EQ(getJavaMinVersion(PlistValue(PlistDict{{"bwk.minVersion", 11}})), std::nullopt);
}

// What opening a directory as a runtime gives: "no bundle", or the version it reports and its home.
std::string opened(const std::string& dir) {
  std::shared_ptr<RuntimeBundle> bundle = RuntimeBundle::open(dir);
  if (!bundle) return "no bundle";
  const PlistValue* vm = bundle->infoDictionary().find("JavaVM");
  return (vm ? vm->string("JVMVersion") : std::nullopt).value_or("-") + " " + bundle->home().substr(dir.size());
}

TEST(RuntimeBundle, OpensDirectoriesOnly) {
  TempDir tmp;
  makeFakeRuntime(tmp / "home", "17.0.15");
  makeFakeRuntime(tmp / "bundle", "11.0.2", "bundle");
  writeFile(tmp / "malformed/Contents/Info.plist", "<plist><dict><key>JavaVM</key>");
  writeFile(tmp / "malformed/release", "JAVA_VERSION=\"17\"\n");
  writeFile(tmp / "bare/README", "");
  writeFile(tmp / "unquoted/release", "IMPLEMENTOR=x\r\nJAVA_VERSION=21.0.1\r\n");
  writeFile(tmp / "noversion/release", "IMPLEMENTOR=\"x\"\n");
  writeFile(tmp / "empty/release", "JAVA_VERSION=\"\"\n");
  writeFile(tmp / "file", "");
  ASSERT_EQ(symlink((tmp / "missing").c_str(), (tmp / "broken").c_str()), 0);
  ASSERT_EQ(symlink((tmp / "home").c_str(), (tmp / "link").c_str()), 0);
  const std::pair<const char*, const char*> cases[] = {
      {"home", "17.0.15 "},     {"bundle", "11.0.2 /Contents/Home"},
      {"link", "17.0.15 "},     {"unquoted", "21.0.1 "},
      {"malformed", "- "},  // a bundle, but nothing in it
      {"bare", "- "},           {"noversion", "- "},
      {"file", "no bundle"},    {"broken", "no bundle"},
      {"missing", "no bundle"}, {"empty", " "},
  };
  for (const auto& [name, expected] : cases) EXPECT_EQ(opened(tmp / name), expected) << name;
  EXPECT_EQ(runtimeHome(tmp / "nowhere"), tmp / "nowhere");
}

}  // namespace
}  // namespace bwk::test
