// Workspace relaunch through the real launcher: the bundle's executable is started as a
// process of its own, and the launcher lives exactly as long as it, passing termination
// signals on.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "../e2e/e2e_support.h"
#include "base/strings.h"
#include "test_support.h"

extern char** environ;

namespace bwk::test {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

class WorkspaceRelaunch : public ::testing::Test {
 protected:
  // Tool.app whose executable "app" is a script: it writes its process id and arguments,
  // runs for `seconds`, and on a signal writes its name, lingers 0.6 s and exits.
  void makeApp(double seconds, PlistDict info = {{"CFBundleExecutable", "app"}}) {
    bundle = makeBundle(tmp.path(), "Tool", PlistValue(info));
    writeFile(bundle + "/Contents/MacOS/app",
              "#!/bin/sh\n"
              "printf '%s\\n' \"$#\" \"$@\" > '" + tmp / "args" + "'\n"
              "for s in TERM INT HUP; do trap \"echo $s >> '" + tmp / "signals" + "'; kill \\$!; sleep 0.6; exit 3\" $s; done\n"
              "echo $$ > '" + tmp / "pid.tmp" + "' && mv '" + tmp / "pid.tmp" + "' '" + tmp / "pid" + "'\n"
              "sleep " + std::to_string(seconds) + " & wait $!\n");
    std::filesystem::permissions(bundle + "/Contents/MacOS/app", std::filesystem::perms(0755));
  }

  // Starts the launcher with its output in files; returns its process id.
  pid_t startLauncher(const std::vector<std::string>& words, const std::vector<std::string>& env = {"BRACKWOOD_LOG=yes"}) {
    std::vector<std::string> argv{bundle + "/Contents/MacOS/Tool"};
    argv.insert(argv.end(), words.begin(), words.end());
    std::vector<std::string> environment;
    for (char** e = environ; *e; ++e) {
      std::string entry = *e;
      if (!text::startsWith(entry, "BRACKWOOD_LOG=") && !text::startsWith(entry, "DISPLAY=") &&
          !text::startsWith(entry, "WAYLAND_DISPLAY="))
        environment.push_back(entry);
    }
    environment.insert(environment.end(), env.begin(), env.end());
    std::vector<char*> cargv, cenv;
    for (std::string& a : argv) cargv.push_back(a.data());
    cargv.push_back(nullptr);
    for (std::string& e : environment) cenv.push_back(e.data());
    cenv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, (tmp / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, (tmp / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, cargv[0], &actions, nullptr, cargv.data(), cenv.data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(rc, 0);
    return pid;
  }

  // The application's process id once it runs, 0 after 10 s without.
  pid_t waitForApp() {
    for (int i = 0; i < 1000; ++i) {
      std::string text = readFile(tmp / "pid");
      if (!text.empty()) return std::stoi(text);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
  }

  int waitStatus(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  bool exited(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, WNOHANG) == pid;
  }

  // Field 6 of /proc/<pid>/stat.
  long sessionOf(pid_t pid) {
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    std::vector<std::string> fields = text::split(stat.substr(stat.rfind(')') + 2), " ");
    return std::stol(fields.at(3));
  }

  TempDir tmp;
  std::string bundle;
};

TEST_F(WorkspaceRelaunch, LivesAsLongAsTheApplication) {
  // The hidden marker is given no arguments: the application gets none.
  for (const std::string marker : {"__bwk_workspace_open", "__bwk_workspace_open_hidden"}) {
    const bool withArguments = marker == "__bwk_workspace_open";
    std::filesystem::remove(tmp / "pid");
    makeApp(1.5);
    pid_t launcher = withArguments ? startLauncher({marker, "one", "two words"}) : startLauncher({marker});
    pid_t app = waitForApp();
    Clock::time_point appStarted = Clock::now();
    ASSERT_NE(app, 0) << readFile(tmp / "err");
    // A process of its own, in a session it leads.
    EXPECT_EQ(sessionOf(app), app);

    EXPECT_EQ(waitStatus(launcher), 0) << readFile(tmp / "err");
    double lived = secondsSince(appStarted);
    EXPECT_GE(lived, 1.4) << marker;
    EXPECT_LE(lived, 2.0) << marker;
    EXPECT_EQ(readFile(tmp / "args"), withArguments ? "2\none\ntwo words\n" : "0\n");

    std::string log = readFile(tmp / "err");
    EXPECT_TRUE(text::contains(log, "] workspace open with args ")) << log;
    EXPECT_TRUE(text::contains(log, "] process identifier: " + std::to_string(app) + "\n")) << log;
    EXPECT_TRUE(text::contains(log, "] open completed: (null) ")) << log;
  }
}

TEST_F(WorkspaceRelaunch, TerminationSignalsReachTheApplication) {
  for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
    std::filesystem::remove(tmp / "pid");
    std::filesystem::remove(tmp / "signals");
    makeApp(30);
    pid_t launcher = startLauncher({"__bwk_workspace_open"});
    pid_t app = waitForApp();
    ASSERT_NE(app, 0) << readFile(tmp / "err");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the identifier is known by now
    Clock::time_point sent = Clock::now();
    ASSERT_EQ(kill(launcher, sig), 0);
    // The launcher outlives the signal while the application lingers.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(exited(launcher)) << strsignal(sig);
    EXPECT_EQ(waitStatus(launcher), 0) << strsignal(sig);
    double lived = secondsSince(sent);
    EXPECT_GE(lived, 0.55) << strsignal(sig);
    EXPECT_LE(lived, 1.1) << strsignal(sig);
    std::string names = readFile(tmp / "signals");
    EXPECT_EQ(names, std::string(sig == SIGTERM ? "TERM" : sig == SIGINT ? "INT" : "HUP") + "\n");
    EXPECT_NE(kill(app, 0), 0) << "the application has ended";
  }
}

TEST_F(WorkspaceRelaunch, AStartThatFailsGivesStatusOne) {
  struct Case {
    const char* name;
    std::string executable;
    bool exists;
  };
  for (const Case& c : {Case{"missing", "nothing-here", false}, Case{"not executable", "plain", true}}) {
    makeApp(0, {{"CFBundleExecutable", c.executable}});
    if (c.exists) writeFile(bundle + "/Contents/MacOS/" + c.executable, "#!/bin/sh\n");
    Clock::time_point started = Clock::now();
    pid_t launcher = startLauncher({"__bwk_workspace_open", "x"});
    EXPECT_EQ(waitStatus(launcher), 1) << c.name;
    EXPECT_LE(secondsSince(started), 5.0);
    std::string log = readFile(tmp / "err");
    EXPECT_TRUE(text::contains(log, "] Launch failed: ")) << log;
    EXPECT_FALSE(text::contains(log, "process identifier")) << log;
  }
}

TEST_F(WorkspaceRelaunch, WithoutAnExecutableNameTheLauncherStartsItself) {
  makeFakeRuntime(tmp / "jdk", "17.0.2+8");
  PlistDict javaVM{{"MainClass", "com.example.Main"}, {"SearchSequence", PlistValue(PlistArray{"R" + tmp / "jdk"})}};
  makeApp(0, {{"CFBundleName", "Tool"}, {"JavaVM", PlistValue(javaVM)}});
  pid_t launcher = startLauncher({"__bwk_workspace_open", "-q", "hello"},
                                 {"FAKE_JLI_RECORD=" + tmp / "record", launcherEnvironment().back()});
  EXPECT_EQ(waitStatus(launcher), 0) << readFile(tmp / "err");
  Recorded record = readRecord(tmp / "record");
  ASSERT_FALSE(record.argv.empty()) << readFile(tmp / "err");
  EXPECT_EQ(record.argv.front(), bundle + "/Contents/MacOS/Tool");
  EXPECT_EQ(record.argv.back(), "hello");
}

}  // namespace
}  // namespace bwk::test
