// Command-line launchers made by create --embed, used from a shell: started plainly, an
// executable carrying its configuration takes the command-line path; a service launcher
// reads its action from its first argument (the detached start is covered with the entry tests).
#include "base/fs.h"
#include "bundle_tool.h"

namespace bwk::test {
namespace {

TEST(EmbeddedLauncher, AShellSession) {
  if (!fs::exists("/usr/lib/jvm/java-17-openjdk-amd64/bin/jlink")) GTEST_SKIP() << "no OpenJDK 17 with jlink here";
  TempDir tmp;
  makeFakeRuntime(tmp / "jdk", "17.0.2+8");
  RunResult svc = bundleTool({"create", "--embed", "--name", "svc", "--main-class", "com.example.Service", "--jar",
                              helloJar(), "--service", "legacy", "--runtime", tmp / "jdk", "--output", tmp / "out"});
  ASSERT_EQ(svc.status, 0) << svc.err;
  RunResult hello = createHello(tmp / "out", {"--embed", "--runtime", jlinkStage() + "/Contents/Home"});
  ASSERT_EQ(hello.status, 0) << hello.err;

  RunResult session = run({"/bin/bash", "-c",
                           "cd " + tmp / "out/svc" + " && FAKE_JLI_RECORD=" + tmp / "status.txt" +
                               " ./svc status; echo \"status: $?\"; ./svc arg1; echo \"arg1: $?\"; "
                               "cd ../Hello && ./Hello arg1 arg2; echo \"Hello: $?\""},
                          launcherEnvironment());
  EXPECT_TRUE(text::contains(session.out, "status: 0\nUsage: svc {start|stop|run|run-redirect|status}\narg1: 1\n"))
      << session.out << session.err;
  EXPECT_TRUE(text::contains(session.out, "property fenmo.moduleName=" + tmp / "out/Hello/Hello\n")) << session.out;
  EXPECT_TRUE(text::contains(session.out, "property bwk.jreBundle=" + tmp / "out/Hello/.brackwood/jre.bundle\n"))
      << session.out;
  EXPECT_TRUE(text::contains(session.out, "arg[0] <arg1>\narg[1] <arg2>\nHello: 0\n")) << session.out;

  Recorded record = readRecord(tmp / "status.txt");
  ASSERT_GE(record.argv.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(record.argv.end() - 2, record.argv.end()),
            (std::vector<std::string>{"com.example.Service", "status"}));
  EXPECT_NE(std::find(record.argv.begin(), record.argv.end(), "-Dbwk.service=legacy"), record.argv.end());
}

}  // namespace
}  // namespace bwk::test
