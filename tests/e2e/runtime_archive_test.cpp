// Bundles that carry their runtime as Contents/Resources/app/jre.tar.gz: unpacked into a
// fresh temporary directory at every start, removed when the process ends.
#include "base/fs.h"
#include "e2e_support.h"

namespace bwk::test {
namespace {

const std::string kJdk17 = "/usr/lib/jvm/java-17-openjdk-amd64";

class RuntimeArchive : public ::testing::Test {
 protected:
  void SetUp() override { shell("mkdir -p " + tmp / "t"); }

  // A bundle whose only runtime is the archive made from `stage` (which holds Contents/Home).
  std::string bundleWithArchive(const std::string& stage, PlistDict javaVM) {
    javaVM["SearchSequence"] = PlistValue(PlistArray{});
    std::string app = makeBundle(tmp.path(), "Tool", PlistValue(PlistDict{{"CFBundleName", "Tool"}, {"JavaVM", PlistValue(javaVM)}}));
    EXPECT_EQ(shell("mkdir -p " + app + "/Contents/Resources/app && tar --sort=name -czf " + app +
                    "/Contents/Resources/app/jre.tar.gz -C " + stage + " Contents").status, 0);
    writeFile(app + "/Contents/Resources/en.lproj/Localizable.strings", "\"fenmo.InternalError\" = \"Internal error: %@\";\n");
    return app;
  }
  // A fake runtime with one packed jar and a bin/unpack200 running `script`.
  std::string bundleWithPackedRuntime(const std::string& script) {
    std::string home = tmp / "stage/Contents/Home";
    makeFakeRuntime(home, "17.0.2");
    writeFile(home + "/lib/rt.jar.pack", "packed");
    writeFile(home + "/bin/unpack200", "#!/bin/sh\n" + script + "\n");
    shell("chmod +x " + home + "/bin/unpack200");
    return bundleWithArchive(tmp / "stage", {{"MainClass", "M"}});
  }
  RunResult start(const std::string& app, std::vector<std::string> args, std::vector<std::string> env = {}) {
    std::vector<std::string> argv{app + "/Contents/MacOS/Tool"};
    argv.insert(argv.end(), args.begin(), args.end());
    env.push_back("TMPDIR=" + tmp / "t");
    env.push_back("LANG=en_US.UTF-8");
    env.push_back("FAKE_JLI_RECORD=" + tmp / "record.txt");
    return run(argv, launcherEnvironment(env));
  }
  std::vector<std::string> leftInTemp() { return fs::listDirectory(tmp / "t").value_or(std::vector<std::string>{"?"}); }

  TempDir tmp;
};

TEST_F(RuntimeArchive, RealRuntimeFromTheArchive) {
  if (!fs::exists(kJdk17 + "/bin/jlink")) GTEST_SKIP() << "no OpenJDK 17 with jlink here";
  std::string stage = jlinkStage();
  ASSERT_TRUE(fs::exists(stage + "/Contents/Home/lib/libjli.so"));
  std::string app = bundleWithArchive(stage, {{"MainClass", "Hello"}, {"ClassPath", "${launcher:sys.appRootDir}/lib/*"}});
  shell("mkdir -p " + app + "/Contents/Resources/app/lib && cp " + helloJar() + " " + app + "/Contents/Resources/app/lib/");
  for (int status : {0, 5}) {
    RunResult r = start(app, {"--exit=" + std::to_string(status)});
    EXPECT_EQ(r.status, status) << r.err;
    EXPECT_TRUE(text::contains(r.out, "property bwk.tarFile=" + app + "/Contents/Resources/app/jre.tar.gz\n")) << r.out;
    EXPECT_TRUE(text::contains(r.out, "property bwk.jreBundle=" + tmp / "t/")) << r.out;
    EXPECT_TRUE(text::contains(r.out, "/jre.bundle\n")) << r.out;
    EXPECT_TRUE(text::contains(r.out, "Hello from Java 17")) << r.out;
    EXPECT_EQ(leftInTemp(), std::vector<std::string>{}) << "the temporary directory is removed at exit";
  }
}

TEST_F(RuntimeArchive, PackedJarsAreUnpackedBeforeTheLaunch) {
  std::string app = bundleWithPackedRuntime("[ \"$1\" = -r ] && cp \"$2\" \"$3\" && rm \"$2\"");
  RunResult r = start(app, {"arg"}, {"FAKE_JLI_STATUS=4"});
  EXPECT_EQ(r.status, 4) << r.err;
  Recorded rec = readRecord(tmp / "record.txt");
  ASSERT_GE(rec.argv.size(), 4u);
  EXPECT_EQ(rec.argv[rec.argv.size() - 4], "-Dbwk.tarFile=" + app + "/Contents/Resources/app/jre.tar.gz");
  EXPECT_TRUE(text::startsWith(rec.argv[rec.argv.size() - 3], "-Dbwk.jreBundle=" + tmp / "t/"));
  EXPECT_EQ(leftInTemp(), std::vector<std::string>{});
}

TEST_F(RuntimeArchive, FailingUnpackerStopsTheStart) {
  std::string app = bundleWithPackedRuntime("exit 2");
  RunResult r = start(app, {});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(text::contains(r.err, "ERROR: Internal error: could not run unpack200\n")) << r.err;
  EXPECT_FALSE(fs::exists(tmp / "record.txt")) << "nothing is launched";
  EXPECT_EQ(leftInTemp().size(), 1u) << "this one failure leaves the directory behind";
}

TEST_F(RuntimeArchive, DamagedArchiveIsReportedAndCleanedUp) {
  std::string home = tmp / "stage/Contents/Home";
  makeFakeRuntime(home, "17.0.2");
  // Compressible data first, so that the cut falls inside the library that follows.
  writeFile(home + "/lib/aaa.bin", std::string(300000, 'x'));
  std::string app = bundleWithArchive(tmp / "stage", {{"MainClass", "M"}});
  std::string archive = app + "/Contents/Resources/app/jre.tar.gz";
  shell("head -c 2000 " + archive + " > " + tmp / "cut.gz && mv " + tmp / "cut.gz " + archive);
  RunResult r = start(app, {});
  EXPECT_TRUE(text::contains(r.err, "WARNING: errors occurred while unpacking bundled JRE")) << r.err;
  // The library cut short is not left behind to be loaded: a clean failure, not a crash.
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_FALSE(text::contains(r.err, "Sanitizer")) << r.err;
  EXPECT_EQ(leftInTemp(), std::vector<std::string>{}) << r.err;
}

}  // namespace
}  // namespace bwk::test
