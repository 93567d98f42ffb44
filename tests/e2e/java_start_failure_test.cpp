// Application mode with a real runtime on a private X server: a start that fails on the Java
// side ends with an alert holding the runtime's lines; an application that ran gets none.
#include <csignal>

#include "gui_support.h"
#include "platform/linux/notice_text.h"

namespace bwk::test {
namespace {

class JavaStartFailure : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!x.running()) GTEST_SKIP() << "no Xvfb here";
    if (!fs::exists(kJdk17 + "/lib/libjli.so")) GTEST_SKIP() << "no OpenJDK 17 here";
  }

  std::string bundle(const std::string& mainClass, bool progressWindow) {
    shell("rm -rf " + tmp / "Failing.app");
    return helloApp(tmp.path(), "Failing", kJdk17, {{"MainClass", mainClass}},
                    {{"bwk.initialProgress", progressWindow}});
  }

  // The alert's process: what it was asked to show, under which name it runs. Ended here.
  struct Alert {
    std::optional<platform::NoticeText> notice;
    std::string command, firstArgument, standardError;
  };
  std::optional<Alert> alert(double seconds) {
    std::string window = x.waitForWindow("^Failing$", seconds);
    if (window.empty()) return std::nullopt;
    Alert a;
    std::string pid = x.xdotool("getwindowpid " + window);
    for (const std::string& entry : text::split(readFile("/proc/" + pid + "/environ"), std::string(1, '\0')))
      if (text::startsWith(entry, std::string(platform::kNoticeVariable) + "="))
        a.notice = platform::decodeNotice(entry.substr(entry.find('=') + 1));
    a.command = readFile("/proc/" + pid + "/comm");
    a.firstArgument = readFile("/proc/" + pid + "/cmdline").c_str();  // up to the first NUL
    a.standardError = shell("readlink /proc/" + pid + "/fd/2").out;
    if (!pid.empty()) ::kill(std::stoi(pid), SIGTERM);
    return a;
  }

  Xvfb x;
  TempDir tmp;
};

TEST_F(JavaStartFailure, AlertHoldsTheRuntimesLinesOnlyForAFailedStart) {
  // name, main class, arguments, progress window, a line of the runtime's, lines of the alert in this order
  using Case =
      std::tuple<const char*, std::string, std::vector<std::string>, bool, std::string, std::vector<std::string>>;
  const Case cases[] = {
      Case("misspelt main class", "Helo", {}, true, "Error: Could not find or load main class Helo\n",
           {"Failing could not start: the Java runtime could not load or run its main class (exit status 1).",
            "\nError: Could not find or load main class Helo\nCaused by: java.lang.ClassNotFoundException: Helo\n",
            "BRACKWOOD_LOG=yes '" + tmp / "Failing.app/Contents/MacOS/Failing'"}),
      Case("main throws", "Hello", {"--throw=no settings"}, false, "java.lang.IllegalStateException: no settings\n",
           {"its main method ended with an exception (exit status 1)",
            "\nException in thread \"main\" java.lang.IllegalStateException: no settings\n"
            "Caused by: java.io.FileNotFoundException: hello.conf\n\tat Hello.main("}),
  };
  for (const auto& [name, mainClass, args, progressWindow, runtimeLine, lines] : cases) {
    RunResult r = startApp(bundle(mainClass, progressWindow), args, {"DISPLAY=" + x.display()});
    EXPECT_TRUE(r.status == 1 && text::contains(r.err, runtimeLine)) << name << ": standard error keeps it\n" << r.err;
    std::optional<Alert> a = alert(10);
    ASSERT_TRUE(a && a->notice) << name;
    EXPECT_EQ(a->notice->header, "Failing");
    size_t at = 0;
    for (const std::string& line : lines) {
      at = a->notice->message.find(line, at);
      EXPECT_NE(at, std::string::npos) << name << ": " << line << "\n" << a->notice->message;
    }
    EXPECT_EQ(a->command, "Failing\n") << "the process list shows the application's name";
    EXPECT_EQ(a->firstArgument, "Failing");
    EXPECT_EQ(a->standardError, "/dev/null\n") << "the alert's own messages reach no terminal";
  }
  // Everything reaches standard error in order, and an application that ran gets no alert, whatever its status.
  RunResult r = startApp(bundle("Hello", false), {"--stderr-megabytes=1", "--exit=3"}, {"DISPLAY=" + x.display()});
  ASSERT_EQ(r.status, 3) << r.err.substr(0, 2000);
  ASSERT_EQ(r.err.size(), 16384u * 64) << r.err.substr(0, 2000);
  for (size_t line = 0; line < 16384; line += 255)
    ASSERT_EQ(r.err.substr(line * 64, 8), std::string(8 - std::to_string(line).size(), '0') + std::to_string(line));
  EXPECT_FALSE(alert(2));
}

}  // namespace
}  // namespace bwk::test
