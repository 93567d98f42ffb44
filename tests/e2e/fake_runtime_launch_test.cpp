// The launcher executable started in a bundle whose runtime is a recording stand-in for the
// runtime's launcher library: the argument vector is compared entry by entry.
#include "e2e_support.h"

namespace bwk::test {
namespace {

class FakeRuntimeLaunch : public ::testing::Test {
 protected:
  void SetUp() override { makeFakeRuntime(tmp / "jdk", "17.0.2+8"); }
  RunResult start(const std::string& app, const std::vector<std::string>& args, std::vector<std::string> env = {}) {
    env.push_back("FAKE_JLI_RECORD=" + record);
    return startApp(app, args, env);
  }
  std::string plainBundle(PlistDict info = {}) {
    info["JavaVM"] = PlistValue(PlistDict{{"MainClass", "M"}, {"SearchSequence", stringArray({"R" + tmp / "jdk"})}});
    return makeBundle(tmp.path(), "Tool", PlistValue(info));
  }
  TempDir tmp;
  std::string record = tmp / "record.txt";
};

TEST_F(FakeRuntimeLaunch, RichConfigurationGivesTheVectorInOrder) {
  std::string apps = tmp / "Apps";
  std::string app = apps + "/Tool.app";
  std::string root = app + "/Contents/Resources/app";
  writeFile(root + "/lib/a.jar", "");
  writeFile(root + "/conf/base.vmoptions", "-Dbase.include\n-include-options nested.vmoptions\n");
  writeFile(root + "/conf/nested.vmoptions", "-Dnested.include\n-classpath/a nested.jar\n");
  writeFile(app + "/Contents/vmoptions.txt",
            "# inside the bundle\n-Dtxt=1\r\n-include-options ../txt-extra.vmoptions\n");
  writeFile(app + "/txt-extra.vmoptions", "-Dtxt.extra\n-jvm=/removed/by/the/launcher\n");
  writeFile(apps + "/Tool.vmoptions", "-Dbeside=1\n-Xdock:icon=x.icns\n-classpath/p first.jar\n");
  shell("mkdir -p '" + root + "/work'");
  PlistDict javaVM{
      {"WorkingDirectory", "work"},
      {"ClassPath", "${launcher:sys.appRootDir}/lib/*"},
      {"VMOptionArray", stringArray({"-Xmx64m", "-include-options conf/base.vmoptions", "-XstartOnFirstThread"})},
      {"VersionSpecificVMOptions",
       PlistValue(PlistArray{"*17.0.2*", stringArray({"-Dspecific=17"}), "9-21", stringArray({"-Dnot.chosen"})})},
      {"SplashFile", "${launcher:sys.appRootDir}/splash.png"},
      {"ModulePath", "${launcher:sys.appRootDir}/mods"},
      {"ArgumentArray", stringArray({"configured", "${launcher:sys.pathlistSeparator}"})},
      {"MainClass", "com.example.Main"},
      {"StartOnMainThread", true},
      {"SearchSequence", stringArray({"R" + tmp / "missing", "", "X", "R" + tmp / "jdk"})},
  };
  std::string bundlePath = makeBundle(apps, "Tool",
                                      PlistValue(PlistDict{{"CFBundleName", "Tool"},
                                                           {"CFBundleIconFile", "Tool.icns"},
                                                           {"bwk.allowPassthrough", true},
                                                           {"bwk.minVersion", "11"},
                                                           {"JavaVM", PlistValue(javaVM)}}));
  RunResult r = start(bundlePath, {"-psn_0_42", "-J-Dpassed=1", "-J-jvm=/cl", "plain arg", "Grüße"});
  ASSERT_EQ(r.status, 0) << r.err;
  Recorded rec = readRecord(record);
  EXPECT_EQ(std::pair(rec.fullVersion, rec.dotVersion), std::pair(std::string("17.0.2"), std::string("17.0.2")));
  EXPECT_EQ(rec.flags, "java java 0 0 0 0 0 0 -1 -1 -1 1") << "no argument file: nothing expanded";
  // One entry a line.
  EXPECT_EQ(text::join(rec.argv, "\n"),
            bundlePath + "/Contents/MacOS/Tool\n-Dfenmo.moduleName=" + app +
                "\n-Xmx64m\n-Dbase.include\n-Dnested.include\n-Dspecific=17\n-Dtxt=1\n-Dtxt.extra\n"
                "-Dbeside=1\n-splash:" +
                root + "/splash.png\n-Djava.class.path=first.jar:" + root + "/lib/a.jar:nested.jar\n-p\n" + root +
                "/mods\n-Dpassed=1\n-Dbwk.jreBundle=" + tmp / "jdk" +
                "\ncom.example.Main\nconfigured\n:\nplain arg\nGrüße");
}

// The shortest configuration; an argument file is the runtime's to expand (when its library can),
// the exit status is the runtime's. Then no runtime in range.
TEST_F(FakeRuntimeLaunch, MinimalVectorArgumentFileStatusAndNoRuntimeInRange) {
  writeFile(tmp / "args.txt", "-Dfrom.file\nfile-arg\n");
  std::string bundlePath = plainBundle();
  RunResult r = start(bundlePath, {"@" + tmp / "args.txt", "last"}, {"FAKE_JLI_STATUS=3"});
  EXPECT_EQ(r.status, 3) << r.err;
  Recorded rec = readRecord(record);
  EXPECT_EQ(rec.argv,
            (std::vector<std::string>{bundlePath + "/Contents/MacOS/Tool", "-Dfenmo.moduleName=" + bundlePath,
                                      "-Dbwk.jreBundle=" + tmp / "jdk", "M", "-Dfrom.file", "file-arg", "last"}));
  EXPECT_EQ(rec.flags, "java java 0 0 0 0 0 0 1 0 1 1") << "expanded as the runtime's own launcher does";
  // A library without argument files (before release 9) gets the argument as it is.
  shell(std::string("cp " BWK_FAKE_JLI_WITHOUT_ARGUMENT_FILES " ") + tmp / "jdk/lib/libjli.so");
  std::filesystem::remove(record);
  ASSERT_EQ(start(bundlePath, {"@" + tmp / "args.txt"}).status, 0);
  rec = readRecord(record);
  EXPECT_TRUE(rec.argv.back() == "@" + tmp / "args.txt" && rec.flags == "java java 0 0 0 0 0 0 -1 -1 -1 1");
  std::filesystem::remove(record);  // a notice asked for is no launch, also one that cannot be shown or read
  for (const char* notice : {"BWK_INTERNAL_NOTICE=-:78", "BWK_INTERNAL_NOTICE=zz"})
    EXPECT_EQ(start(bundlePath, {}, {notice, "DISPLAY"}).status, 0);
  // No runtime in range: the message names the version and the application; nothing is launched.
  plainBundle({{"CFBundleName", "Tool"}, {"bwk.minVersion", "99"}});
  writeFile(bundlePath + "/Contents/Resources/en.lproj/Localizable.strings",
            "\"AppleJavaMinVersionError\" = \"Needs Java %@ for %@.\";");
  r = start(bundlePath, {}, {"LANG=en_US.UTF-8", "LANGUAGE", "LC_ALL", "LC_MESSAGES"});
  EXPECT_TRUE(r.status == 1 && text::contains(r.err, "ERROR: Needs Java 99 for Tool.\n")) << r.err;
  EXPECT_FALSE(fs::exists(record));
}

}  // namespace
}  // namespace bwk::test
