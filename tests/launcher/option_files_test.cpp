#include "launcher_fixture.h"

namespace bwk::test {
namespace {

class OptionFiles : public LauncherFixture {};

struct FileCase {
  const char* name;
  std::string contents;
  OptionalString classPathBefore;
  std::vector<std::string> options;
  OptionalString classPathAfter;
};

TEST_F(OptionFiles, LinesDirectivesAndClassPath) {
  auto launcher = bundleLaunch({});
  setenv("BWK_TEST_OPT", "from-env", 1);
  const std::vector<FileCase> cases = {
      {"lf", "-Xmx1g\n-Dx=1\n", std::nullopt, {"-Xmx1g", "-Dx=1"}, std::nullopt},
      {"crlf same as lf", "-Xmx1g\r\n-Dx=1\r\n", std::nullopt, {"-Xmx1g", "-Dx=1"}, std::nullopt},
      {"blank, comment and trimmed", "  \t \n  # c\n\t-Da=1  \n#-Db\n", std::nullopt, {"-Da=1"}, std::nullopt},
      {"hash inside an option", "-Dx=#1\n", std::nullopt, {"-Dx=#1"}, std::nullopt},
      {"never split at blanks", "-Xmx1g -Xms1g\n", std::nullopt, {"-Xmx1g -Xms1g"}, std::nullopt},
      {"variables replaced", "-Dv=${BWK_TEST_OPT}\n", std::nullopt, {"-Dv=from-env"}, std::nullopt},
      {"classpath replaces", "-classpath a.jar\n", std::string("old"), {}, std::string("a.jar")},
      {"classpath/p prepends", "-classpath/p a.jar\n", std::string("old"), {}, std::string("a.jar:old")},
      {"classpath/p without one", "-classpath/p lib/a.jar\n", std::nullopt, {}, std::string("lib/a.jar:(null)")},
      {"classpath/a appends", "-classpath/a b.jar\n", std::string("old"), {}, std::string("old:b.jar")},
      {"classpath/a without one is dropped", "-classpath/a lib/a.jar\n", std::nullopt, {}, std::nullopt},
      {"prefix needs its blank", "-classpath\n-classpathx y\n", std::nullopt, {"-classpath", "-classpathx y"}, std::nullopt},
      {"case matters", "-ClassPath x\n", std::nullopt, {"-ClassPath x"}, std::nullopt},
  };
  for (const FileCase& c : cases) {
    writeFile(tmp / "case.vmoptions", c.contents);
    std::vector<std::string> options;
    OptionalString classPath = launcher->readOptionsFile(tmp / "case.vmoptions", options, c.classPathBefore);
    EXPECT_EQ(options, c.options) << c.name;
    EXPECT_EQ(classPath, c.classPathAfter) << c.name;
  }
  unsetenv("BWK_TEST_OPT");
}

TEST_F(OptionFiles, UnreadableFilesContributeNothing) {
  auto launcher = bundleLaunch({});
  std::vector<std::string> options{"-keep"};
  EXPECT_EQ(launcher->readOptionsFile(tmp / "missing.vmoptions", options, std::string("cp")), std::string("cp"));
  EXPECT_EQ(launcher->readOptionsFile(std::nullopt, options, std::string("cp")), std::string("cp"));
  writeFile(tmp / "latin1.vmoptions", "-Dname=Gr\xfc\xdf" "e\n");
  EXPECT_EQ(launcher->readOptionsFile(tmp / "latin1.vmoptions", options, std::nullopt), std::nullopt);
  EXPECT_EQ(options, std::vector<std::string>{"-keep"});
}

TEST_F(OptionFiles, IncludesLandWhereTheDirectiveStands) {
  auto launcher = bundleLaunch({});
  writeFile(tmp / "conf/main.vmoptions",
            "-Dfirst\n-include-options sub/inner.vmoptions\n-include-options \"with blank.vmoptions\"\n"
            "-include-options \"half.vmoptions\n-Dlast\n");
  writeFile(tmp / "conf/sub/inner.vmoptions", "-Dinner\n-classpath/p inner.jar\n");
  writeFile(tmp / "conf/with blank.vmoptions", "-Dblank\n");
  writeFile(tmp / "conf/\"half.vmoptions", "-Dhalf-quoted-name-kept\n");
  std::vector<std::string> options;
  OptionalString classPath = launcher->readOptionsFile(tmp / "conf/main.vmoptions", options, std::string("base.jar"));
  EXPECT_EQ(options, (std::vector<std::string>{"-Dfirst", "-Dinner", "-Dblank", "-Dhalf-quoted-name-kept", "-Dlast"}));
  EXPECT_EQ(classPath, std::string("inner.jar:base.jar"));
}

TEST_F(OptionFiles, TildeIsReplacedAnywhereInTheFileName) {
  auto launcher = bundleLaunch({});
  std::string home = platform::homeDirectory();
  std::string dirName = "bwk-opt-" + std::to_string(getpid());
  writeFile(home + "/" + dirName + "/x/app.vmoptions", "-Dfrom-home\n-include-options rel.vmoptions\n");
  writeFile(home + "/" + dirName + "/x/rel.vmoptions", "-Drelative-to-home\n");
  std::vector<std::string> options;
  launcher->readOptionsFile("~/" + dirName + "/x/app.vmoptions", options, std::nullopt);
  std::vector<std::string> fromMiddle;
  launcher->readOptionsFile(home + "/" + dirName + "/x/../x/app.vmoptions", fromMiddle, std::nullopt);
  shell("rm -rf '" + home + "/" + dirName + "'");
  EXPECT_EQ(options, (std::vector<std::string>{"-Dfrom-home", "-Drelative-to-home"}));
  EXPECT_EQ(fromMiddle, options);
}

TEST_F(OptionFiles, PredefinedOptionsIncludeRelativeToTheLauncherDirectory) {
  auto launcher = bundleLaunch({});
  // Without bwk.baseDir the launcher directory is the bundle's Contents/Resources/app.
  writeFile(bundle + "/Contents/Resources/app/extra.vmoptions", "-Dincluded\n-classpath/a extra.jar\n");
  std::vector<std::string> options;
  OptionalString classPath = launcher->addPredefinedOptions(
      std::vector<std::string>{"-Da", "-include-options extra.vmoptions", "-classpath x", " -Dspaced "}, options,
      std::string("cp"));
  EXPECT_EQ(options, (std::vector<std::string>{"-Da", "-Dincluded", "-classpath x", " -Dspaced "}));
  EXPECT_EQ(classPath, std::string("cp:extra.jar"));
  EXPECT_EQ(launcher->addPredefinedOptions(std::nullopt, options, std::string("same")), std::string("same"));
}

}  // namespace
}  // namespace bwk::test
