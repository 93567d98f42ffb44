// Faults around a start: temporary directories, include cycles, unpacking, signals, killed starts, failures.
#include <signal.h>

#include "e2e_support.h"
#include "platform/platform.h"

namespace bwk::test {
namespace {

class Reliability : public ::testing::Test {
 protected:
  void SetUp() override {
    shell("mkdir -p " + temp + " " + cwd);
    makeFakeRuntime(tmp / "jdk", "17.0.2");
  }
  // A bundle with a fake runtime as its archive; `unpack` is its unpack200 for one packed jar.
  std::string bundleWithArchive(const std::string& unpack = "") {
    std::string home = tmp / "stage/Contents/Home";
    makeFakeRuntime(home, "17.0.2");
    if (!unpack.empty()) {
      writeFile(home + "/lib/rt.jar.pack", "packed");
      writeFile(home + "/bin/unpack200", "#!/bin/sh\n" + unpack + "\n");
      shell("chmod +x " + home + "/bin/unpack200");
    }
    PlistDict javaVM{{"MainClass", "M"}, {"SearchSequence", stringArray({"R" + tmp / "jdk"})}};
    std::string app = makeBundle(tmp.path(), "Tool", PlistDict{{"CFBundleName", "Tool"}, {"JavaVM", javaVM}});
    shell("mkdir -p " + app + "/Contents/Resources/app && tar -czf " + app + "/Contents/Resources/app/jre.tar.gz -C " +
          tmp / "stage Contents");
    writeFile(app + "/Contents/Resources/en.lproj/Localizable.strings",
              "\"fenmo.InternalError\" = \"Internal error: %@\";\n");
    return app;
  }
  // The launcher's environment with our temporary directory, record file and language.
  std::vector<std::string> env(std::vector<std::string> extra = {}) {
    extra.insert(extra.begin(), {"TMPDIR=" + temp, "FAKE_JLI_RECORD=" + record, "LANG=en_US.UTF-8"});
    return launcherEnvironment(extra);
  }
  RunResult start(const std::string& app) { return run({app + "/Contents/MacOS/Tool"}, env(), cwd); }
  std::vector<std::string> left(const std::string& dir) {
    return fs::listDirectory(dir).value_or(std::vector<std::string>{"(unreadable)"});
  }

  TempDir tmp;
  std::string temp = tmp / "t", cwd = tmp / "cwd", record = tmp / "record.txt";
};

// TMPDIR a small or a noexec file system of its own, listed from inside its namespace.
TEST_F(Reliability, UnusableTemporaryFileSystemsAndIncludeCyclesEndWithAMessage) {
  // 20 MB of zeros: a small archive that does not fit into 8 MB.
  writeFile(tmp / "stage/Contents/Home/lib/modules", std::string(20000000, '\0'));
  std::string app = bundleWithArchive();
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"size=8m",
       {"WARNING: errors occurred while unpacking bundled JRE",
        "ERROR: Internal error: the bundled runtime could not be unpacked into " + temp,
        ": No space left on device\n"}},
      {"noexec,size=64m",
       {"ERROR: Internal error: Could not load JRE.\nERROR: " + temp,
        "libjli.so: failed to map segment from shared object"}},
  };
  for (const auto& [options, messages] : cases) {
    RunResult r = run({"/usr/bin/unshare", "-m", "/bin/sh", "-c",
                       std::string("mount -t tmpfs -o ") + options + " tmpfs " + temp + " && " + app +
                           "/Contents/MacOS/Tool; s=$?; ls -A " + temp + " > " + tmp / "listing" + "; exit $s"},
                      env());
    EXPECT_EQ(r.status, 1) << options;
    for (const std::string& message : messages) EXPECT_TRUE(text::contains(r.err, message)) << options << "\n" << r.err;
    EXPECT_FALSE(fs::exists(record)) << "nothing is launched";
    EXPECT_EQ(readFile(tmp / "listing"), "") << options;
  }
  writeFile(tmp / "Tool.vmoptions", "-Dx\n-include-options Tool.vmoptions\n");
  RunResult r = start(bundleWithArchive());
  EXPECT_TRUE(r.status == 1 && text::contains(r.err, "ERROR: Internal error: " + tmp / "Tool.vmoptions\n")) << r.err;
  EXPECT_TRUE(text::contains(r.err, "nested deeper than 32")) << r.err;
  EXPECT_TRUE(!fs::exists(record) && left(temp).empty());
}

// unpack200 failing on the runtime's one packed jar, or interrupted (the runtime cache tests unpack for real).
TEST_F(Reliability, UnpackingPackedJars) {
  const std::tuple<std::string, int, const char*, size_t> cases[] = {
      // unpack200, status, message, entries left
      {"kill -INT $PPID; mv \"$2\" \"$3\"", 128 + SIGINT, "", 0},
      {"exit 2", 1, "ERROR: Internal error: could not run unpack200\n", 1},  // this failure leaves the directory behind
  };
  for (const auto& [script, status, message, entries] : cases) {
    shell("rm -rf " + tmp / "Tool.app " + record + " " + temp + "/*");
    RunResult r = start(bundleWithArchive(script));
    EXPECT_TRUE(r.status == status && text::contains(r.err, message)) << script << "\n" << r.status << r.err;
    EXPECT_EQ(left(temp).size(), entries) << script;
    EXPECT_FALSE(fs::exists(record)) << "launched after " << script;
  }
  // A shipped runtime is unpacked in place: a failure in a writable bundle is an internal error.
  std::string app = bundleWithArchive("exit 2"), home = app + "/Contents/PlugIns/jre.bundle/Contents/Home";
  shell("cd " + app + "/Contents && rm Resources/app/* && mkdir PlugIns && mv ../../stage PlugIns/jre.bundle");
  RunResult r = start(app);
  EXPECT_TRUE(r.status == 1 && text::contains(r.err, "run unpack200") && !fs::exists(home + "/_bwk_testdir")) << r.err;
}

// An archive that stops coming (here a pipe whose writer stalls after a few bytes): a termination signal ends the start
// while the writer still waits, with the signal's status and without the temporary directory.
TEST_F(Reliability, SignalsEndAStartWaitingForItsArchive) {
  std::string app = bundleWithArchive();
  std::string archive = app + "/Contents/Resources/app/jre.tar.gz";
  ASSERT_EQ(shell("mv " + archive + " " + tmp / "real.tgz && mkfifo " + archive).status, 0);
  // $1 the archive's bytes, $2 the pipe, $3 the launcher, $4 the signal
  const char* script =
      "(head -c 600 \"$1\"; exec sleep 20) >\"$2\" 2>/dev/null & writer=$!\n\"$3\" & tool=$!\n"
      "sleep 1; kill -$4 $tool; wait $tool; echo $?\nkill -0 $writer && echo still-waiting; kill $writer";
  for (int signal : {SIGTERM, SIGHUP}) {
    RunResult r = run({"/bin/sh", "-c", script, "sh", tmp / "real.tgz", archive, app + "/Contents/MacOS/Tool",
                       std::to_string(signal)},
                      env(), cwd);
    EXPECT_EQ(r.out, std::to_string(128 + signal) + "\nstill-waiting\n") << r.err;
    EXPECT_EQ(left(temp), std::vector<std::string>{}) << signal;
  }
}

TEST_F(Reliability, CopiesOfEndedStartsAreRemovedOthersKept) {
  // A start killed while its runtime runs leaves its copy behind.
  std::string app = bundleWithArchive();
  RunResult killed = run({"/bin/sh", "-c", app + "/Contents/MacOS/Tool & sleep 1; kill -9 $!; wait"},
                         env({"FAKE_JLI_SLEEP_MS=10000"}));
  ASSERT_EQ(left(temp).size(), 1u) << killed.err;

  auto mark = [&](const std::string& dir, const std::string& text = "brackwood-launcher 999999 12\n") {
    shell("mkdir -p " + dir + "/jre.bundle/Contents && chmod 700 " + dir);
    writeFile(dir + "/.brackwood-owner", text);
  };
  std::string me = std::to_string(getpid()) + " " + std::to_string(*platform::processStartTime(getpid()));
  for (const std::string& dir : {temp + "/ended", temp + "/open-to-others", temp + "/other-user", tmp / "target"})
    mark(dir);
  mark(temp + "/reused-pid", "brackwood-launcher " + std::to_string(getpid()) + " 1\n");
  mark(temp + "/running", "brackwood-launcher " + me + "\n");
  mark(temp + "/foreign-tag", "other-tool 999999 12\n");
  mark(temp + "/pid-zero", "brackwood-launcher 0 12\n");
  shell("chmod 777 " + temp + "/open-to-others && chown -R nobody " + temp + "/other-user && mkdir -p " + temp +
        "/unmarked && ln -s " + tmp / "target " + temp + "/link");

  ASSERT_EQ(start(app).status, 0);
  std::vector<std::string> kept = left(temp);
  std::sort(kept.begin(), kept.end());
  EXPECT_EQ(kept, (std::vector<std::string>{"foreign-tag", "link", "open-to-others", "other-user", "pid-zero",
                                            "running", "unmarked"}));
  EXPECT_TRUE(fs::exists(tmp / "target/.brackwood-owner"));
}

TEST_F(Reliability, ConfigurationsThatFailSayWhy) {
  // name, the bundle's folder, its Info.plist, the message
  const std::tuple<const char*, std::string, std::optional<std::string>, std::string> cases[] = {
      {"broken tag", "Tool.app", "<plist><dict><key>JavaVM</key><dict></dic></dict></plist>",
       "Tool.app/Contents/Info.plist: XML property list: Start-end tags mismatch at line 1"},
      {"no Info.plist", "Tool.app", std::nullopt, "Tool.app/Contents/Info.plist: no such file"},
      {"no main class", "Tool.app", toXmlPlist(PlistValue(PlistDict{{"CFBundleName", "Tool"}})),
       "Tool.app/Contents/Info.plist: no \"MainClass\" in \"JavaVM\""},
      {"not a bundle folder", "Tool", toXmlPlist(PlistValue(PlistDict{})),
       "Tool/Contents/MacOS: not an application bundle"},
  };
  for (const auto& [name, folder, infoPlist, expected] : cases) {
    std::string app = tmp / folder;
    shell("rm -rf " + app + " && mkdir -p " + app + "/Contents/MacOS && cp " + BWK_LAUNCHER + " " + app +
          "/Contents/MacOS/Tool");
    if (infoPlist) writeFile(app + "/Contents/Info.plist", *infoPlist);
    // The system's runtime starts and says "Could not find or load main class (null)".
    RunResult r = start(app);
    EXPECT_TRUE(text::contains(r.err, "ERROR: " + tmp / expected)) << name << "\n" << r.err;
  }
}

}  // namespace
}  // namespace bwk::test
