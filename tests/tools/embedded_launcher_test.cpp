// A service launcher made by create --embed, used from a shell: it reads its action from its
// first argument (the detached start is covered with the entry tests).
#include "bundle_tool.h"

namespace bwk::test {
namespace {

TEST(EmbeddedLauncher, AServiceFromAShell) {
  TempDir tmp;
  makeFakeRuntime(tmp / "jdk", "17.0.2+8");
  RunResult svc = bundleTool({"create", "--embed", "--name", "svc", "--main-class", "com.example.Service", "--jar",
                              helloJar(), "--service", "legacy", "--runtime", tmp / "jdk", "--output", tmp / "out"});
  ASSERT_EQ(svc.status, 0) << svc.err;
  RunResult session = run({"/bin/bash", "-c",
                           "cd " + tmp / "out/svc" + " && FAKE_JLI_RECORD=" + tmp / "status.txt" +
                               " ./svc status; echo \"status: $?\"; ./svc arg1; echo \"arg1: $?\""},
                          launcherEnvironment());
  EXPECT_EQ(session.out, "status: 0\nUsage: svc {start|stop|run|run-redirect|status}\narg1: 1\n") << session.err;
  std::vector<std::string> argv = readRecord(tmp / "status.txt").argv;
  ASSERT_GE(argv.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(argv.end() - 2, argv.end()),
            (std::vector<std::string>{"com.example.Service", "status"}));
  EXPECT_NE(std::find(argv.begin(), argv.end(), "-Dbwk.service=legacy"), argv.end());
}

}  // namespace
}  // namespace bwk::test
