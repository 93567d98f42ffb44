// From a configuration to values: directory layouts, variables, option files, Java parameters, each as a table.
#include "base/errors.h"
#include "launch_fixture.h"
#include "launcher/java_parameters.h"
#include "launcher/option_files.h"
#include "launcher/variables.h"

namespace bwk::test {
namespace {

class Configuration : public LaunchFixture {
 protected:
  // A runtime as the search leaves it, for the builders that read it.
  ChosenRuntime runtime(const std::string& version = "17.0.2", int major = 17) {
    return ChosenRuntime{tmp / "jdk", nullptr, version, major, version, false, false};
  }
};

TEST_F(Configuration, DirectoryLayouts) {
  std::string apps = tmp / "Apps";
  ScopedEnvironment env{{"BWK_T_SUB", "sub"}};
  auto workIn = [](const char* dir) { return PlistValue(PlistDict{{"WorkingDirectory", dir}}); };
  // appRootDir, launcherDirInApp, mainBundlePath; the working directory (absent: the main bundle)
  using Case = std::tuple<const char*, PlistDict, std::string, std::string, std::string, OptionalString>;
  const Case cases[] = {
      Case("baseDir of another type, working directory beside the launcher",
           {{"bwk.baseDir", 3}, {"JavaVM", workIn("work/../w")}}, appRoot, appRoot, bundle, appRoot + "/w"),
      Case("launcherDir with a variable, absolute working directory",
           {{"bwk.launcherDir", "bin/${BWK_T_SUB}"}, {"JavaVM", workIn("/x//y/")}}, appRoot, appRoot + "/bin/sub",
           bundle, "/x/y"),
      Case("baseDir beside the bundle", {{"bwk.baseDir", "./x/../Tool/"}}, apps + "/Tool", apps, bundle, {}),
      Case("single bundle elsewhere", {{"bwk.baseDir", "Root/a/b/c"}, {"bwk.inSingleBundle", true}},
           apps + "/Root/a/b/c", apps, apps + "/Root", {}),
  };
  for (const auto& [name, info, root, launcherDir, mainBundle, work] : cases) {
    const LaunchContext& context = bundleLaunch(info);
    EXPECT_EQ(std::tuple(workingDirectory(context, runtime()), context.paths.appRootDir, context.paths.launcherDirInApp,
                         context.paths.mainBundlePath),
              std::tuple(work.value_or(mainBundle), root, launcherDir, mainBundle))
        << name;
  }

  // A command-line launcher that does not know its own path has no directories, and nothing
  // is read from or resolved against the current directory in their place.
  const LaunchContext& unknown = commandLineLaunch(
      {{"bwk.baseDir", "x"},
       {"JavaVM", PlistValue(PlistDict{{"ClassPath", "${launcher:sys.appRootDir}/*"},
                                       {"WorkingDirectory", "work"},
                                       {"VMOptionArray", stringArray({"-include-options o.vmoptions"})}})}},
      std::nullopt, {"/tool"});
  EXPECT_EQ(std::tuple(unknown.paths.appRootDir, unknown.paths.launcherDirInApp, workingDirectory(unknown, {})),
            std::tuple(std::nullopt, std::nullopt, std::nullopt));
  EXPECT_TRUE(optionFiles(unknown).empty());
  EXPECT_EQ(readJavaParameters(unknown, ChosenRuntime{}, {}).options,
            (std::vector<std::string>{"-Dfenmo.moduleName=(null)", "-Dbwk.configFileId=(null)"}));
}

TEST_F(Configuration, VariablesInOnePassAndArtifactPaths) {
  const LaunchContext& context = bundleLaunch({{"bwk.launcherDir", "${BWK_T_DIR}"}});
  ScopedEnvironment env{{"BWK_T_PLAIN", "plain"},
                        {"BWK_T_DIR", "resolved"},
                        {"BWK_T_HOLDS_LAUNCHER", "${launcher:sys.appRootDir}"},
                        {"BWK_T_CP", "/e/1.jar:/e/2.jar"},
                        {"BWK_T_UNSET", std::nullopt}};
  makeFakeRuntime(tmp / "rt.jdk", "17.0.2", "bundle");
  makeFakeRuntime(tmp / "plain", "17.0.2", "home");
  const std::tuple<OptionalString, OptionalString, OptionalString> cases[] = {
      // text, runtime, replaced
      {std::nullopt, std::nullopt, std::nullopt},
      {"${launcher:sys.appRootDir}/lib", {}, appRoot + "/lib"},
      {"${launcher:sys.mainBundle}", {}, bundle},
      // A launcher value holding an environment reference gets it replaced.
      {"${launcher:sys.launcherDirectory}", {}, appRoot + "/resolved"},
      {"a${launcher:sys.pathlistSeparator}b", {}, "a:b"},
      {"${launcher:sys.jvmHome}/bin", {}, "${launcher:sys.jvmHome}/bin"},  // no runtime chosen yet
      {"${launcher:sys.jvmHome}", tmp / "rt.jdk", tmp / "rt.jdk/Contents/Home"},
      {"${launcher:sys.jvmHome}", tmp / "plain", tmp / "plain"},
      {"${BWK_T_PLAIN}-${BWK_T_PLAIN}", {}, "plain-plain"},
      {"${bwk_t_plain}${NO_SUCH_VARIABLE_HERE}", {}, "${bwk_t_plain}${NO_SUCH_VARIABLE_HERE}"},
      // An environment value is inserted after the launcher variables: it keeps its reference.
      {"${BWK_T_HOLDS_LAUNCHER}", {}, "${launcher:sys.appRootDir}"},
  };
  for (const auto& [in, runtime, out] : cases)
    EXPECT_EQ(replaceVariables(in, VariableScope{context.paths, runtime}), out) << in.value_or("(absent)");
  for (const char* file : {"x.jar", "y.JAR", "z.zip", "readme.txt", "dir.jar/inner"})
    writeFile(tmp / "lib/" + file, "");
  const std::pair<OptionalString, OptionalString> paths[] = {
      {std::nullopt, std::nullopt},
      {"a.jar::b.jar", "a.jar::b.jar"},
      {"a.jar:$BWK_T_CP", "a.jar:/e/1.jar:/e/2.jar"},
      {"$BWK_T_UNSET:$HOME/lib", std::nullopt},
      {"*", "*"},
      {tmp / "missing/*", std::nullopt},
  };
  for (const auto& [in, out] : paths) EXPECT_EQ(resolveArtifactPath(in), out) << in.value_or("(absent)");
  // Listing order is the file system's: compare as sets.
  OptionalString listed = resolveArtifactPath(std::string("first.jar:" + tmp / "lib/*"));
  ASSERT_TRUE(listed);
  std::vector<std::string> entries = text::split(*listed, ":");
  std::sort(entries.begin() + 1, entries.end());
  EXPECT_EQ(entries,
            (std::vector<std::string>{"first.jar", tmp / "lib/dir.jar", tmp / "lib/x.jar", tmp / "lib/z.zip"}));
}

TEST_F(Configuration, OptionFileLinesIncludesAndClassPath) {
  VariableScope scope{bundleLaunch({}).paths, std::nullopt};
  ScopedEnvironment env{{"BWK_TEST_OPT", "from-env"}};
  // name, the file, the class path before, the options read, the class path after
  const std::tuple<const char*, std::string, OptionalString, std::vector<std::string>, OptionalString> cases[] = {
      {"crlf same as lf", "-Xmx1g\r\n-Dx=1\n", std::nullopt, {"-Xmx1g", "-Dx=1"}, std::nullopt},
      {"blank, comment and trimmed", "  \t \n  # c\n\t-Da=#1  \n", std::nullopt, {"-Da=#1"}, std::nullopt},
      {"never split at blanks", "-Xmx1g -Xms1g\n", std::nullopt, {"-Xmx1g -Xms1g"}, std::nullopt},
      {"variables replaced", "-Dv=${BWK_TEST_OPT}\n", std::nullopt, {"-Dv=from-env"}, std::nullopt},
      {"classpath replaces", "-classpath a.jar\n", std::string("old"), {}, std::string("a.jar")},
      {"classpath/p prepends", "-classpath/p a.jar\n", std::string("old"), {}, std::string("a.jar:old")},
      {"classpath/p without one", "-classpath/p lib/a.jar\n", std::nullopt, {}, std::string("lib/a.jar:(null)")},
      {"classpath/a appends", "-classpath/a b.jar\n", std::string("old"), {}, std::string("old:b.jar")},
      {"classpath/a without one is dropped", "-classpath/a lib/a.jar\n", std::nullopt, {}, std::nullopt},
      {"prefix needs its blank, case matters", "-classpath\n-ClassPath x\n", {}, {"-classpath", "-ClassPath x"}, {}},
      {"not UTF-8: nothing", "-Dname=Gr\xfc\xdf\x65\n", std::string("cp"), {}, std::string("cp")},
  };
  for (const auto& [name, contents, before, expected, after] : cases) {
    writeFile(tmp / "case.vmoptions", contents);
    std::vector<std::string> options;
    OptionalString classPath = readOptionsFile(tmp / "case.vmoptions", options, before, scope);
    EXPECT_EQ(std::pair(classPath, options), std::pair(after, expected)) << name;
  }
  std::vector<std::string> untouched;
  EXPECT_EQ(readOptionsFile(tmp / "missing.vmoptions", untouched, std::string("cp"), scope), std::string("cp"));
  EXPECT_EQ(readOptionsFile(std::nullopt, untouched, std::string("cp"), scope), std::string("cp"));
  EXPECT_TRUE(untouched.empty());
  writeFile(tmp / "conf/main.vmoptions",
            "-Dfirst\n-include-options sub/inner.vmoptions\n-include-options \"with blank.vmoptions\"\n"
            "-include-options \"half.vmoptions\n-Dlast\n");
  writeFile(tmp / "conf/sub/inner.vmoptions", "-Dinner\n-classpath/p inner.jar\n");
  writeFile(tmp / "conf/with blank.vmoptions", "-Dblank\n");
  writeFile(tmp / "conf/\"half.vmoptions", "-Dhalf-quoted-name-kept\n");
  std::vector<std::string> options;
  EXPECT_EQ(readOptionsFile(tmp / "conf/main.vmoptions", options, std::string("base.jar"), scope),
            std::string("inner.jar:base.jar"));
  EXPECT_EQ(options, (std::vector<std::string>{"-Dfirst", "-Dinner", "-Dblank", "-Dhalf-quoted-name-kept", "-Dlast"}));

  // A chain of 32 files including each other is read; one of 33 is an internal error.
  for (int files : {32, 33}) {
    for (int i = 0; i + 1 < files; ++i)
      writeFile(tmp / ("deep/" + std::to_string(i)), "-include-options " + std::to_string(i + 1) + "\n");
    writeFile(tmp / ("deep/" + std::to_string(files - 1)), "-Dbottom\n");
    std::vector<std::string> deep;
    try {
      readOptionsFile(tmp / "deep/0", deep, std::nullopt, scope);
      EXPECT_EQ(std::pair(files, deep), std::pair(32, std::vector<std::string>{"-Dbottom"}));
    } catch (const ReportedFailure&) {
      EXPECT_EQ(files, 33);
    }
  }

  // The configured list includes relative to the launcher directory and knows no directives.
  writeFile(appRoot + "/extra.vmoptions", "-Dincluded\n-classpath/a extra.jar\n");
  std::vector<std::string> predefined;
  EXPECT_EQ(addPredefinedOptions(
                std::vector<std::string>{"-Da", "-include-options extra.vmoptions", "-classpath x", " -Dspaced "},
                predefined, std::string("cp"), scope),
            std::string("cp:extra.jar"));
  EXPECT_EQ(predefined, (std::vector<std::string>{"-Da", "-Dincluded", "-classpath x", " -Dspaced "}));
}

TEST_F(Configuration, VersionSpecificPatterns) {
  const std::tuple<const char*, int, PlistArray, std::vector<std::string>> cases[] = {
      {"17.0.2", 17, {"11-17", stringArray({"-DA"}), "*17.0.*", stringArray({"-DB"})}, {"-DA"}},
      {"11.0.2", 11, {"11-17", stringArray({"-DA"}), "*11.0.*", stringArray({"-DB"})}, {"-DA"}},
      {"17.0.2", 17, {"17", stringArray({"-Dbad"}), "*17*", stringArray({"-DB"})}, {"-DB"}},  // malformed skipped
      {"21.0.1", 21, {"11-17", stringArray({"-DA"}), "*17.0.*", stringArray({"-DB"})}, {}},
      {"1.8.0_291", 8, {"*1.8.0_2??", stringArray({"-Dlike"}), "*1.8", stringArray({"-Dwhole"})}, {"-Dlike"}},
      {"17.0.2",
       17,
       {"*17.0.[2]", stringArray({"-Dbracket"}), "x-y", stringArray({"-Dzero"}), "-17", stringArray({"-Dopen"})},
       {"-Dopen"}},
      {"17.0.2", 17, {"1-2-3", stringArray({"-Dthree"}), "11-17"}, {}},  // a single element is no pair
  };
  for (const auto& [version, major, pairs, expected] : cases) {
    const LaunchContext& context =
        bundleLaunch({{"JavaVM", PlistValue(PlistDict{{"VersionSpecificVMOptions", PlistValue(pairs)}})}});
    std::vector<std::string> all = readJavaParameters(context, runtime(version, major), {}).options;
    EXPECT_EQ(std::vector<std::string>(all.begin() + 1, all.end()), expected) << version << " " << pairs.size();
  }
}

TEST_F(Configuration, CommandLineLauncherIdentityServiceAndPassThrough) {
  writeFile(tmp / "bin/tool.vmoptions", "-Dbeside.executable\n");
  writeFile(tmp / "bin/tool.app/Contents/vmoptions.txt", "-Dnot.read\n");
  const LaunchContext& context =
      commandLineLaunch({{"bwk.configFileId", "cfg-7"},
                         {"bwk.service", "legacy"},
                         {"JavaVM", PlistValue(PlistDict{{"ArgumentArray", stringArray({"configured"})}})}},
                        tmp / "bin/tool", {"/bin/tool", "start", "later"});
  EXPECT_EQ(context.paths.mainBundlePath, std::nullopt);
  EXPECT_EQ(context.paths.launcherDirInApp, tmp / "bin/tool.app/Contents/Resources/app");
  EXPECT_TRUE(context.serviceMode == "legacy" && !workingDirectory(context, runtime()));
  JavaParameters p = readJavaParameters(context, runtime(), {});
  EXPECT_EQ(p.options, (std::vector<std::string>{"-Dfenmo.moduleName=" + tmp / "bin/tool", "-Dbeside.executable",
                                                 "-Dbwk.configFileId=cfg-7", "-Dbwk.service=legacy"}));
  EXPECT_EQ(p.args, (std::vector<std::string>{"start", "configured", "later"}));
  EXPECT_EQ(p.mainClass, std::nullopt);
  using Words = std::vector<std::string>;
  const std::tuple<std::optional<bool>, Words, Words, Words> cases[] = {
      // passthrough, command line, options, args
      {std::nullopt, {"/p", "-J-Xmx2g", "x"}, {}, {"-J-Xmx2g", "x"}},  // off unless configured
      {false, {"/p", "-J-Xmx2g", "x"}, {}, {"-J-Xmx2g", "x"}},
      {true, {"/p", "-J-Xmx2g", "x", "-J"}, {"-Xmx2g", ""}, {"x"}},
      {true, {"/p", "-psn_0_1", "-psn_2"}, {}, {"-psn_2"}},
  };
  for (const auto& [passthrough, words, options, args] : cases) {
    PlistDict info;
    if (passthrough) info["bwk.allowPassthrough"] = *passthrough;
    JavaParameters q = readJavaParameters(bundleLaunch(info, words), runtime(), {});
    EXPECT_EQ(std::pair(Words(q.options.begin() + 1, q.options.end()), q.args), std::pair(options, args)) << words[1];
  }
  // The command line's arguments follow the configured ones, the first too.
  PlistDict configured{{"JavaVM", PlistValue(PlistDict{{"ArgumentArray", stringArray({"cfg"})}})}};
  EXPECT_EQ(readJavaParameters(bundleLaunch(configured, {"/p", "x"}), runtime(), {}).args,
            (std::vector<std::string>{"cfg", "x"}));
}

}  // namespace
}  // namespace bwk::test
