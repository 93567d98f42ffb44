#include <algorithm>

#include "base/strings.h"
#include "launcher_fixture.h"

namespace bwk::test {
namespace {

class Variables : public LauncherFixture {};

TEST_F(Variables, ReplacementTableAndOrder) {
  auto launcher = bundleLaunch({});
  setenv("BWK_T_PLAIN", "plain", 1);
  setenv("BWK_T_HOLDS_LAUNCHER", "${launcher:sys.appRootDir}", 1);
  setenv("HOME", "/somewhere/else", 1);
  std::string root = bundle + "/Contents/Resources/app";
  std::string tmpDir = platform::temporaryDirectory();
  struct Case {
    OptionalString in;
    OptionalString out;
  } cases[] = {
      {std::nullopt, std::nullopt},
      {"", ""},
      {"${launcher:sys.appRootDir}/lib", root + "/lib"},
      {"${launcher:sys.mainBundle}", bundle},
      {"${launcher:sys.launcherDirectory}", root},
      {"a${launcher:sys.pathlistSeparator}b", "a:b"},
      {"${launcher:sys.userHome}", platform::homeDirectory()},
      {"${launcher:sys.tempDir}x", tmpDir + "x"},
      {"${launcher:sys.jvmHome}/bin", "${launcher:sys.jvmHome}/bin"},  // no runtime chosen yet
      {"${BWK_T_PLAIN}-${BWK_T_PLAIN}", "plain-plain"},
      {"${HOME}/x", "/somewhere/else/x"},
      {"${bwk_t_plain}", "${bwk_t_plain}"},  // names are case-sensitive
      {"${NO_SUCH_VARIABLE_HERE}", "${NO_SUCH_VARIABLE_HERE}"},
      // An environment value is inserted after the launcher variables: it keeps its reference.
      {"${BWK_T_HOLDS_LAUNCHER}", "${launcher:sys.appRootDir}"},
  };
  for (const Case& c : cases) EXPECT_EQ(launcher->replaceVariables(c.in), c.out) << c.in.value_or("(absent)");
  unsetenv("BWK_T_PLAIN");
  unsetenv("BWK_T_HOLDS_LAUNCHER");
}

TEST_F(Variables, LauncherValueHoldingAnEnvironmentReferenceGetsItReplaced) {
  setenv("BWK_T_DIR", "resolved", 1);
  auto launcher = bundleLaunch({{"bwk.launcherDir", "${BWK_T_DIR}"}});
  EXPECT_EQ(launcher->replaceVariables(std::string("${launcher:sys.launcherDirectory}")),
            bundle + "/Contents/Resources/app/resolved");
  s_launcherDirInApp = "/x/${BWK_T_DIR}";
  EXPECT_EQ(launcher->replaceVariables(std::string("${launcher:sys.launcherDirectory}")), std::string("/x/resolved"));
  unsetenv("BWK_T_DIR");
}

TEST_F(Variables, JvmHomePrefersTheNestedJre) {
  auto launcher = bundleLaunch({});
  makeFakeRuntime(tmp / "rt.jdk", "17.0.2", "bundle");
  launcher->javaBundlePath = tmp / "rt.jdk";
  EXPECT_EQ(launcher->replaceVariables(std::string("${launcher:sys.jvmHome}")), tmp / "rt.jdk/Contents/Home");
  shell("mkdir -p " + tmp / "rt.jdk/Contents/Home/jre");
  EXPECT_EQ(launcher->replaceVariables(std::string("${launcher:sys.jvmHome}")), tmp / "rt.jdk/Contents/Home/jre");
  makeFakeRuntime(tmp / "plain", "17.0.2", "home");
  launcher->javaBundlePath = tmp / "plain";
  EXPECT_EQ(launcher->replaceVariables(std::string("${launcher:sys.jvmHome}")), tmp / "plain");
}

TEST_F(Variables, ArtifactPaths) {
  auto launcher = bundleLaunch({});
  writeFile(tmp / "lib/x.jar", "");
  writeFile(tmp / "lib/y.JAR", "");
  writeFile(tmp / "lib/z.zip", "");
  writeFile(tmp / "lib/readme.txt", "");
  shell("mkdir -p " + tmp / "lib/dir.jar");
  setenv("BWK_T_CP", "/e/1.jar:/e/2.jar", 1);
  unsetenv("BWK_T_UNSET");

  EXPECT_EQ(launcher->resolveArtifactPath(std::nullopt), std::nullopt);
  EXPECT_EQ(launcher->resolveArtifactPath(std::string("a.jar::b.jar")), std::string("a.jar::b.jar"));
  EXPECT_EQ(launcher->resolveArtifactPath(std::string("a.jar:$BWK_T_CP")), std::string("a.jar:/e/1.jar:/e/2.jar"));
  EXPECT_EQ(launcher->resolveArtifactPath(std::string("$BWK_T_UNSET:$HOME/lib")), std::nullopt);
  EXPECT_EQ(launcher->resolveArtifactPath(std::string("*")), std::string("*"));
  EXPECT_EQ(launcher->resolveArtifactPath(std::string(tmp / "missing/*")), std::nullopt);

  // Listing order is the file system's: compare as sets, and check nothing else came in.
  OptionalString listed = launcher->resolveArtifactPath(std::string("first.jar:" + tmp / "lib/*"));
  ASSERT_TRUE(listed);
  std::vector<std::string> entries = text::split(*listed, ":");
  std::sort(entries.begin() + 1, entries.end());
  EXPECT_EQ(entries, (std::vector<std::string>{"first.jar", tmp / "lib/dir.jar", tmp / "lib/x.jar", tmp / "lib/z.zip"}));
  unsetenv("BWK_T_CP");
}

}  // namespace
}  // namespace bwk::test
