// Service control of a command-line launcher: the actions each mode accepts, the usage lines, and the legacy start
// that detaches before the runtime starts. Each case runs in a child, with a fake runtime recording its vector.
#include <fcntl.h>
#include <sys/wait.h>

#include "../e2e/e2e_support.h"
#include "entry/entry.h"

namespace bwk::test {
namespace {

class ServiceControl : public ::testing::Test {
 protected:
  void SetUp() override { makeFakeRuntime(tmp / "jdk", "17.0.2+8"); }

  PlistValue configuration(const PlistValue& mode) {
    PlistDict javaVM{{"MainClass", "com.example.Service"},
                     {"ArgumentArray", PlistValue(PlistArray{"configured"})},
                     {"SearchSequence", PlistValue(PlistArray{"R" + tmp / "jdk"})}};
    return PlistValue(PlistDict{{"CFBundleName", "Service"}, {"bwk.service", mode}, {"JavaVM", javaVM}});
  }

  // Runs the command-line path as "/opt/tools/mytool `words`" in a child, output in tmp/out and tmp/err. The process
  // that returns from the path writes its status, process, session, directory and descriptors to tmp/state.
  int runCli(const PlistValue& config, const std::vector<std::string>& words, bool withoutStderr = false) {
    std::fflush(nullptr);
    childPid = fork();
    if (childPid == 0) {
      if (!freopen((tmp / "out").c_str(), "w", stdout) || !freopen((tmp / "err").c_str(), "w", stderr)) _exit(99);
      if (withoutStderr) close(2);
      setenv("FAKE_JLI_RECORD", (tmp / "record").c_str(), 1);
      setenv("FAKE_JLI_STATUS", "7", 1);
      unsetenv("BRACKWOOD_LOG");
      std::vector<std::string> arguments{"/opt/tools/mytool"};
      arguments.insert(arguments.end(), words.begin(), words.end());
      int status = launch_cli(config, Bundle(tmp.path()), arguments);
      std::fflush(nullptr);
      char cwd[4096] = "", links[3][256] = {};
      for (int fd = 0; fd < 3; ++fd)
        if (readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), links[fd], 255) < 0) links[fd][0] = '\0';
      int s = open((tmp / "state").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dprintf(s, "status=%d\npid=%d\nsession-leader=%d\ncwd=%s\nfd0=%s\nfd1=%s\nfd2=%s\n", status, getpid(),
              getsid(0) == getpid(), getcwd(cwd, sizeof cwd) ? cwd : "?", links[0], links[1], links[2]);
      _exit(status);
    }
    int wstatus = 0;
    waitpid(childPid, &wstatus, 0);
    return WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
  }

  TempDir tmp;
  pid_t childPid = 0;
};

const std::string kLegacyUsage = "Usage: mytool {start|stop|run|run-redirect|status}\n";
const std::string kUsage = "Usage: mytool {start|stop|run|run-redirect}\n";

// A launch puts the action before the configured arguments and the mode among the options;
// a mode that is not a string is none, and the word an ordinary argument.
TEST_F(ServiceControl, ActionsOfEachMode) {
  const std::tuple<PlistValue, std::vector<std::string>, bool, std::string> cases[] = {
      // mode, words, launches
      {"legacy", {"stop"}, true, "Shutting down mytool\n"},
      {"legacy", {"run-redirect", "extra"}, true, ""},
      {"legacy", {"Stop"}, false, kLegacyUsage},
      {"legacy", {"__bwk_auth_restart", tmp / "jdk"}, false, kLegacyUsage},
      {"launchd", {"start-launchd"}, true, ""},
      {"launchd", {"status"}, false, kUsage},
      {"Legacy", {"status"}, false, kUsage},
      {1, {"status"}, true, ""},
  };
  for (const auto& [value, words, launches, printed] : cases) {
    const std::string* mode = value.asString();
    std::string label = (mode ? *mode : "1") + " " + text::join(words, " ");
    std::filesystem::remove(tmp / "record");
    int status = runCli(configuration(value), words);
    EXPECT_EQ(readFile(tmp / "out"), printed) << label;
    EXPECT_EQ(status, launches ? 7 : 1) << label << readFile(tmp / "err");  // 7: the runtime's status
    EXPECT_EQ(std::filesystem::exists(tmp / "record"), launches) << label;
    if (!launches) continue;
    std::vector<std::string> argv = readRecord(tmp / "record").argv;
    auto main = std::find(argv.begin(), argv.end(), "com.example.Service");
    ASSERT_LE(main + 3, argv.end()) << label;
    std::vector<std::string> expected{words[0], "configured"};
    if (!mode) std::swap(expected[0], expected[1]);
    EXPECT_EQ(std::vector(main + 1, main + 3), expected) << label;
    auto option =
        std::find_if(argv.begin(), main, [](const std::string& a) { return text::startsWith(a, "-Dbwk.service"); });
    EXPECT_EQ(option == main ? "none" : *option, mode ? "-Dbwk.service=" + *mode : "none") << label;
  }
}

TEST_F(ServiceControl, LegacyStartDetachesAndThenLaunches) {
  // The process that was started ends with 0 as soon as the service exists, also one started without stderr.
  for (bool withoutStderr : {false, true}) {
    shell("rm -f " + tmp / "state " + tmp / "record");
    EXPECT_EQ(runCli(configuration("legacy"), {"start"}, withoutStderr), 0) << readFile(tmp / "err");
    EXPECT_EQ(readFile(tmp / "out"), "Starting mytool\n");
    for (int i = 0; i < 200 && !text::contains(readFile(tmp / "state"), "fd2="); ++i) sleepMs(50);  // written later
    std::string state = readFile(tmp / "state");
    EXPECT_TRUE(text::contains(state, "status=7\n")) << state;
    EXPECT_FALSE(text::contains(state, "pid=" + std::to_string(childPid) + "\n")) << state;
    EXPECT_TRUE(text::contains(state, "session-leader=1\ncwd=/\nfd0=/dev/null\nfd1=/dev/null\nfd2=/dev/null\n"))
        << state;
    std::vector<std::string> argv = readRecord(tmp / "record").argv;
    auto main = std::find(argv.begin(), argv.end(), "com.example.Service");
    EXPECT_TRUE(main != argv.end() && *(main + 1) == "start") << text::join(argv, " ");
  }
}

}  // namespace
}  // namespace bwk::test
