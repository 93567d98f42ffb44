// Workspace relaunch through the real launcher: the bundle's executable is started as a
// process of its own, and the launcher lives as long as it, passing termination signals on.
#include <signal.h>

#include "../e2e/e2e_support.h"

namespace bwk::test {
namespace {

class WorkspaceRelaunch : public ::testing::Test {
 protected:
  // Tool.app whose executable "app" is a script: it writes its process id and arguments,
  // runs for `seconds`, and on a signal writes its name, lingers 0.6 s and exits.
  void makeApp(int seconds, PlistDict info = {{"CFBundleExecutable", "app"}}, const std::string& folder = "") {
    std::filesystem::remove(tmp / "pid");
    std::filesystem::remove(tmp / "signals");
    std::filesystem::create_directories(tmp / folder);
    bundle = makeBundle(tmp / folder, "Tool", PlistValue(info));
    writeFile(bundle + "/Contents/MacOS/app", "#!/bin/sh\nprintf '%s\\n' \"$#\" \"$@\" > " + tmp / "args" +
                                                  "\nfor s in TERM INT HUP; do trap \"echo $s >> " + tmp / "signals" +
                                                  "; kill \\$!; sleep 0.6; exit 3\" $s; done\necho $$ > " +
                                                  tmp / "pid.tmp" + " && mv " + tmp / "pid.tmp" + " " + tmp / "pid" +
                                                  "\nsleep " + std::to_string(seconds) + " & wait $!\n");
    std::filesystem::permissions(bundle + "/Contents/MacOS/app", std::filesystem::perms(0755));
  }

  // The bundle's launcher with these words, its debug log on and no display.
  std::unique_ptr<Background> startLauncher(std::vector<std::string> words) {
    words.insert(words.begin(), bundle + "/Contents/MacOS/Tool");
    return std::make_unique<Background>(words,
                                        std::vector<std::string>{"DISPLAY", "WAYLAND_DISPLAY", "BRACKWOOD_LOG=yes"});
  }

  // The application's process id once it runs, 0 after 10 s without.
  pid_t waitForApp() {
    for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10)))
      if (std::string text = readFile(tmp / "pid"); !text.empty()) return std::stoi(text);
    return 0;
  }

  TempDir tmp;
  std::string bundle;
};

// The hidden marker is given no arguments; a signal to the launcher reaches the application,
// and the launcher ends only after it. A start that fails gives 1.
TEST_F(WorkspaceRelaunch, LivesAsLongAsTheApplicationThatStarted) {
  // the words, the signal (0: the application ends by itself), the arguments and signals it saw, its folder
  const std::tuple<std::vector<std::string>, int, std::string, std::string, std::string> cases[] = {
      {{"__bwk_workspace_open", "one", "two words"}, 0, "2\none\ntwo words\n", "", ""},
      {{"__bwk_workspace_open_hidden"}, 0, "0\n", "", ""},
      {{"__bwk_workspace_open"}, SIGTERM, "0\n", "TERM\n", ""},
      {{"__bwk_workspace_open"}, SIGINT, "0\n", "INT\n", ""},
      {{"__bwk_workspace_open"}, SIGHUP, "0\n", "HUP\n", ""},
      // Not UTF-8 (an old archive's file name, a Latin-1 command line): the same bytes arrive.
      {{"__bwk_workspace_open", "caf\xe9"}, 0, "1\ncaf\xe9\n", "", "r\xe9sum\xe9"},
  };
  for (const auto& [words, signal, args, signals, folder] : cases) {
    const std::string label = words.front() + " " + std::to_string(signal);
    makeApp(signal ? 30 : 1, {{"CFBundleExecutable", "app"}}, folder);
    std::unique_ptr<Background> launcher = startLauncher(words);
    pid_t app = waitForApp();
    ASSERT_NE(app, 0) << launcher->finish(1).err;
    std::string stat = readFile("/proc/" + std::to_string(app) + "/stat");
    EXPECT_EQ(text::split(stat.substr(stat.rfind(')') + 2), " ").at(3), std::to_string(app)) << "a session it leads";
    if (signal) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the identifier is known by now
      ASSERT_EQ(kill(launcher->pid(), signal), 0);
    }
    RunResult ended = launcher->finish(0);
    EXPECT_EQ(ended.status, 0) << label << ended.err;
    EXPECT_NE(kill(app, 0), 0) << label << ": the application has ended";
    EXPECT_EQ(readFile(tmp / "args"), args) << label;
    EXPECT_EQ(readFile(tmp / "signals"), signals) << label;
  }
  makeApp(0, {{"CFBundleExecutable", "nothing-here"}});
  RunResult failed = startLauncher({"__bwk_workspace_open", "x"})->finish(0);
  EXPECT_TRUE(failed.status == 1 && text::contains(failed.err, "] Launch failed: ")) << failed.err;
  EXPECT_FALSE(text::contains(failed.err, "process identifier")) << failed.err;
}

}  // namespace
}  // namespace bwk::test
