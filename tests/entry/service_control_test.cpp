// Service control of a command-line launcher: the actions each mode accepts, the usage
// lines, and the legacy start that detaches before the runtime starts. Each case runs the
// command-line path in a child process, since a launch would start a runtime (here a fake
// one that records the vector it is given).
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "base/log.h"
#include "base/strings.h"
#include "entry/entry.h"
#include "platform/platform.h"
#include "../e2e/e2e_support.h"
#include "test_support.h"

namespace bwk::test {
namespace {

struct Outcome {
  int status = -1;
  std::string out, err;
};

class ServiceControl : public ::testing::Test {
 protected:
  void SetUp() override { makeFakeRuntime(tmp / "jdk", "17.0.2+8"); }

  PlistValue configuration(const std::optional<std::string>& mode) {
    PlistDict javaVM{{"MainClass", "com.example.Service"},
                     {"ArgumentArray", PlistValue(PlistArray{"configured"})},
                     {"SearchSequence", PlistValue(PlistArray{"R" + tmp / "jdk"})}};
    PlistDict config{{"CFBundleName", "Service"}, {"JavaVM", PlistValue(javaVM)}};
    if (mode) config["bwk.service"] = *mode;
    return PlistValue(config);
  }

  // Runs the command-line path with the process arguments "<dir>/mytool" and `words`.
  // `beforeLaunch` runs in the child just before it. After the path returns, the process
  // that returned writes its status, process, session and descriptors to "state".
  Outcome runCli(const PlistValue& config, const std::vector<std::string>& words, void (*beforeLaunch)() = nullptr) {
    std::string out = tmp / "out", err = tmp / "err", state = tmp / "state";
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
      int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(o, 1);
      dup2(e, 2);
      close(o);
      close(e);
      setenv("FAKE_JLI_RECORD", (tmp / "record").c_str(), 1);
      setenv("FAKE_JLI_STATUS", "7", 1);
      unsetenv("BRACKWOOD_LOG");
      std::vector<std::string> arguments{"/opt/tools/mytool"};
      arguments.insert(arguments.end(), words.begin(), words.end());
      if (beforeLaunch) beforeLaunch();
      const Bundle bundle(tmp.path());
      int status = launch_cli(config, bundle, arguments);
      std::fflush(nullptr);
      char cwd[4096] = "";
      char links[3][256] = {};
      for (int fd = 0; fd < 3; ++fd) {
        std::string link = "/proc/self/fd/" + std::to_string(fd);
        ssize_t n = readlink(link.c_str(), links[fd], sizeof links[fd] - 1);
        if (n < 0) links[fd][0] = '\0';
      }
      int s = open(state.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (s >= 0) {
        dprintf(s, "status=%d\npid=%d\nsession-leader=%d\ncwd=%s\nfd0=%s\nfd1=%s\nfd2=%s\n", status, getpid(),
                getsid(0) == getpid() ? 1 : 0, getcwd(cwd, sizeof cwd) ? cwd : "?", links[0], links[1], links[2]);
        close(s);
      } else {
        dprintf(2, "returned %d\n", status);
      }
      _exit(status);
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    childPid = pid;
    return Outcome{WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus), readFile(out), readFile(err)};
  }

  // Waits for a file to hold `text` (the detached service writes it later).
  bool waitFor(const std::string& file, const std::string& text) {
    for (int i = 0; i < 200; ++i) {
      if (text::contains(readFile(file), text)) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

  std::vector<std::string> recordedArguments() { return readRecord(tmp / "record").argv; }

  TempDir tmp;
  pid_t childPid = 0;
};

const std::string kLegacyUsage = "Usage: mytool {start|stop|run|run-redirect|status}\n";
const std::string kUsage = "Usage: mytool {start|stop|run|run-redirect}\n";

TEST_F(ServiceControl, ActionsOfEachMode) {
  struct Case {
    std::string mode;
    std::vector<std::string> words;
    bool launches;
    std::string printed;
  };
  std::vector<Case> cases = {
      {"legacy", {"stop"}, true, "Shutting down mytool\n"}, {"legacy", {"start-launchd"}, true, ""},
      {"legacy", {"status"}, true, ""}, {"legacy", {"run"}, true, ""}, {"legacy", {"run-redirect", "extra"}, true, ""},
      {"legacy", {"Stop"}, false, kLegacyUsage}, {"legacy", {"restart"}, false, kLegacyUsage},
      {"legacy", {}, false, kLegacyUsage}, {"legacy", {"__bwk_auth_restart", tmp / "jdk"}, false, kLegacyUsage},
      {"launchd", {"start"}, true, ""}, {"launchd", {"stop"}, true, ""}, {"launchd", {"start-launchd"}, true, ""},
      {"launchd", {"run"}, true, ""}, {"launchd", {"run-redirect"}, true, ""}, {"launchd", {"status"}, false, kUsage},
      {"Legacy", {"status"}, false, kUsage}, {"", {"RUN"}, false, kUsage}, {"launchd", {}, false, kUsage},
  };
  for (const Case& c : cases) {
    std::string label = c.mode + " " + text::join(c.words, " ");
    std::filesystem::remove(tmp / "record");
    Outcome o = runCli(configuration(c.mode), c.words);
    EXPECT_EQ(o.out, c.printed) << label;
    if (c.launches) {
      EXPECT_EQ(o.status, 7) << label << o.err;  // the runtime's status
      std::vector<std::string> argv = recordedArguments();
      ASSERT_GE(argv.size(), 3u) << label;
      // The action leads the application's arguments; the mode is a system property.
      auto main = std::find(argv.begin(), argv.end(), "com.example.Service");
      ASSERT_NE(main, argv.end()) << label;
      EXPECT_EQ(*(main + 1), c.words[0]) << label;
      EXPECT_EQ(*(main + 2), "configured") << label;
      EXPECT_NE(std::find(argv.begin(), main, "-Dbwk.service=" + c.mode), main) << label;
    } else {
      EXPECT_EQ(o.status, 1) << label;
      EXPECT_FALSE(std::filesystem::exists(tmp / "record")) << label;
    }
  }
}

TEST_F(ServiceControl, ServiceModeMustBeAString) {
  PlistDict config = *configuration(std::nullopt).asDictionary();
  config["bwk.service"] = 1;
  Outcome o = runCli(PlistValue(config), {"status"});
  EXPECT_EQ(o.status, 7) << o.err;
  EXPECT_EQ(o.out, "");
  std::vector<std::string> argv = recordedArguments();
  ASSERT_FALSE(argv.empty());
  // No service mode: the word is an ordinary argument after the configured ones.
  EXPECT_EQ(argv.back(), "status");
  EXPECT_EQ(std::find_if(argv.begin(), argv.end(), [](const std::string& a) { return text::startsWith(a, "-Dbwk.service"); }),
            argv.end());
}

TEST_F(ServiceControl, LegacyStartDetachesAndThenLaunches) {
  Outcome o = runCli(configuration("legacy"), {"start"});
  // The process that was started ends with 0 as soon as the service exists.
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out, "Starting mytool\n");
  ASSERT_TRUE(waitFor(tmp / "state", "fd2=")) << readFile(tmp / "err");
  std::string state = readFile(tmp / "state");
  EXPECT_TRUE(text::contains(state, "status=7\n")) << state;
  EXPECT_FALSE(text::contains(state, "pid=" + std::to_string(childPid) + "\n")) << state;
  EXPECT_TRUE(text::contains(state, "session-leader=1\n")) << state;
  EXPECT_TRUE(text::contains(state, "cwd=/\n")) << state;
  EXPECT_TRUE(text::contains(state, "fd0=/dev/null\nfd1=/dev/null\nfd2=/dev/null\n")) << state;

  std::vector<std::string> argv = recordedArguments();
  auto main = std::find(argv.begin(), argv.end(), "com.example.Service");
  ASSERT_NE(main, argv.end());
  EXPECT_EQ(*(main + 1), "start");
  EXPECT_NE(std::find(argv.begin(), main, "-Dbwk.service=legacy"), main);
  EXPECT_NE(std::find(argv.begin(), main, "-Dbwk.jreBundle=" + tmp / "jdk"), main);
}

TEST_F(ServiceControl, DetachingThatFailsIsReportedAndLaunchesNothing) {
  // No descriptor left for /dev/null once 0, 1 and 2 are taken.
  Outcome o = runCli(configuration("legacy"), {"start"}, [] {
    for (int fd = 3; fd < 1024; ++fd) close(fd);
    struct rlimit limit{3, 3};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  EXPECT_EQ(o.status, 0);
  ASSERT_TRUE(waitFor(tmp / "err", "returned 1\n")) << readFile(tmp / "err");
  EXPECT_TRUE(text::contains(readFile(tmp / "err"), "daemon: Too many open files\n")) << readFile(tmp / "err");
  EXPECT_FALSE(std::filesystem::exists(tmp / "record"));
}

}  // namespace
}  // namespace bwk::test
