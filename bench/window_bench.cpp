// Cost of the window front end: time from start to the progress window being mapped on an
// X server, and the whole run of a launch (a recording stand-in runtime) with the window,
// without a display, and where the display or GTK cannot be used.
#include <X11/Xlib.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_util.h"

using namespace bwk::bench;
using Clock = std::chrono::steady_clock;

extern char** environ;

namespace {

// Xvfb on a free display; its name, or "" when it does not start.
std::string startXvfb(pid_t& pid) {
  int fds[2];
  if (pipe(fds) != 0) return "";
  pid = startProcess({"/usr/bin/Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "800x600x24", "-nolisten", "tcp"});
  close(fds[1]);
  std::string number;
  char c;
  pollfd p{fds[0], POLLIN, 0};
  while (poll(&p, 1, 10000) > 0 && read(fds[0], &c, 1) == 1 && c != '\n') number += c;
  close(fds[0]);
  return number.empty() ? "" : ":" + number;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& changes) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    std::string entry = *e, name = entry.substr(0, entry.find('='));
    bool changed = name == "BRACKWOOD_LOG";
    for (const std::string& c : changes) changed |= c.substr(0, c.find('=')) == name;
    if (!changed) env.push_back(entry);
  }
  for (const std::string& c : changes)
    if (c.find('=') != std::string::npos) env.push_back(c);
  return env;
}

// Seconds from the start to the first top-level window mapped, and to the process's end.
bool timeWindow(Display* x, const std::string& executable, const std::vector<std::string>& env, double& toMap, double& toExit) {
  while (XPending(x)) {
    XEvent ignored;
    XNextEvent(x, &ignored);
  }
  Clock::time_point start = Clock::now();
  pid_t pid = startProcess({executable}, "", env);
  if (pid < 0) return false;
  toMap = -1;
  int fd = ConnectionNumber(x);
  while (toMap < 0 && std::chrono::duration<double>(Clock::now() - start).count() < 10) {
    if (!XPending(x)) {
      pollfd p{fd, POLLIN, 0};
      poll(&p, 1, 50);
      continue;
    }
    XEvent event;
    XNextEvent(x, &event);
    if (event.type == MapNotify && !event.xmap.override_redirect)
      toMap = std::chrono::duration<double>(Clock::now() - start).count();
  }
  int status = 0;
  waitpid(pid, &status, 0);
  toExit = std::chrono::duration<double>(Clock::now() - start).count();
  return toMap >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 7;
}

}  // namespace

int main(int argc, char** argv) {
  std::string launcher = argc > 1 ? argv[1] : "build/bin/brackwood-launcher";
  std::string fakeJli = argc > 2 ? argv[2] : "build/fake_jli/libjli.so";
  int runs = argc > 3 ? std::atoi(argv[3]) : 20;

  std::string dir = tempDirectory("bwk-window");
  std::string app = dir + "/Bench.app";
  std::string info = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleName</key><string>Bench</string>"
                     "<key>JavaVM</key><dict><key>MainClass</key><string>Main</string>"
                     "<key>SearchSequence</key><array><string>R" + dir + "/jdk</string></array></dict></dict></plist>";
  if (shell("mkdir -p '" + app + "/Contents/MacOS' '" + dir + "/jdk/lib' '" + dir + "/nogtk' && cp '" + launcher + "' '" + app +
            "/Contents/MacOS/Bench' && printf '%s' '" + info + "' > '" + app + "/Contents/Info.plist' && cp '" + fakeJli + "' '" +
            dir + "/jdk/lib/libjli.so' && cp '" + fakeJli + "' '" + dir + "/nogtk/libgtk-3.so.0' && echo 'JAVA_VERSION=\"17.0.2\"' > '" +
            dir + "/jdk/release'") != 0) {
    std::fprintf(stderr, "cannot make the bundle\n");
    return 1;
  }
  std::string executable = app + "/Contents/MacOS/Bench";

  pid_t xvfb = -1;
  std::string display = startXvfb(xvfb);
  Display* x = display.empty() ? nullptr : XOpenDisplay(display.c_str());
  if (!x) {
    std::fprintf(stderr, "no X server (Xvfb) to measure on\n");
    return 1;
  }
  XSelectInput(x, DefaultRootWindow(x), SubstructureNotifyMask);

  std::vector<std::string> withWindow = environmentWith({"DISPLAY=" + display, "FAKE_JLI_STATUS=7"});
  std::vector<double> mapTimes, windowRuns;
  for (int i = 0; i < runs + 2; ++i) {
    double toMap = 0, toExit = 0;
    if (!timeWindow(x, executable, withWindow, toMap, toExit)) {
      std::fprintf(stderr, "the window did not appear or the launch failed\n");
      return 1;
    }
    if (i >= 2) {  // the first runs warm the caches (fonts, GTK's modules)
      mapTimes.push_back(toMap);
      windowRuns.push_back(toExit);
    }
  }

  struct Variant {
    const char* name;
    std::vector<std::string> changes;
  };
  const std::vector<Variant> variants = {
      {"no display (command-line mode)", {"DISPLAY", "WAYLAND_DISPLAY"}},
      {"display cannot be opened", {"DISPLAY=:4242"}},
      {"GTK unusable", {"DISPLAY=" + display, "LD_LIBRARY_PATH=" + dir + "/nogtk"}},
  };
  std::printf("window front end, %d runs each (median)\n", runs);
  std::printf("  %-42s %7.1f ms\n", "start to window mapped", median(mapTimes) * 1000);
  std::printf("  %-42s %7.1f ms\n", "whole run, window path", median(windowRuns) * 1000);
  for (const Variant& v : variants) {
    std::vector<std::string> env = environmentWith(v.changes);
    env.push_back("FAKE_JLI_STATUS=7");
    std::vector<double> times;
    for (int i = 0; i < runs + 2; ++i) {
      Sample s = runMeasured({executable}, "", env);
      if (s.status != 7) {
        std::fprintf(stderr, "%s: status %d\n", v.name, s.status);
        return 1;
      }
      if (i >= 2) times.push_back(s.seconds);
    }
    std::printf("  %-42s %7.1f ms\n", (std::string("whole run, ") + v.name).c_str(), median(times) * 1000);
  }
  XCloseDisplay(x);
  kill(xvfb, SIGTERM);
  waitpid(xvfb, nullptr, 0);
  shell("rm -rf '" + dir + "'");
  return 0;
}
