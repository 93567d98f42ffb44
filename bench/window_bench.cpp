// What a graphical session costs, on a private X server.
//
// 1. A bundle without a runtime archive started through the launcher, with
//    "bwk.initialProgress" false (no window, no GTK) and with it left out (the window is shown
//    until the launch), against the runtime's own bin/java
//    with the same options: a real JVM runs Hello, interleaved run by run, median of the
//    per-round ratios and peak RSS.
// 2. The progress window's cost: a bundle with a small runtime archive (a recording stand-in
//    runtime) started with the window and with "bwk.initialProgress" false, interleaved: the
//    whole run, the time until the window is mapped, peak RSS.
// 3. The same bundle where no window can be had: no display, a display that cannot be
//    opened, GTK unusable.
//
// Usage: window_bench [launcher] [fake libjli] [hello.jar] [jdk] [rounds]
#include <X11/Xlib.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bench_util.h"

using namespace bwk::bench;
using Clock = std::chrono::steady_clock;

namespace {

std::string plist(const std::string& body) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleName</key><string>Bench</string>" + body +
         "</dict></plist>";
}
const std::string kHidden = "<key>bwk.initialProgress</key><false/>";

// One run with the X server watched: seconds from the start to the first top-level window
// mapped (-1 when none was), to the process's end, and its peak RSS.
struct WatchedRun {
  double toMap = -1;
  Sample sample;
};
WatchedRun watchedRun(Display* x, const std::string& executable, const std::vector<std::string>& env) {
  while (XPending(x)) {
    XEvent ignored;
    XNextEvent(x, &ignored);
  }
  WatchedRun run;
  Clock::time_point start = Clock::now();
  pid_t pid = startProcess({executable}, "", env);
  if (pid < 0) return run;
  int fd = ConnectionNumber(x);
  int status = 0;
  struct rusage usage {};
  for (;;) {
    pid_t done = wait4(pid, &status, WNOHANG, &usage);
    while (run.toMap < 0 && XPending(x)) {
      XEvent event;
      XNextEvent(x, &event);
      if (event.type == MapNotify && !event.xmap.override_redirect)
        run.toMap = std::chrono::duration<double>(Clock::now() - start).count();
    }
    if (done == pid) break;
    pollfd p{fd, POLLIN, 0};
    poll(&p, 1, 1);
  }
  run.sample.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  run.sample.maxRssKb = usage.ru_maxrss;
  run.sample.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

double ms(double seconds) { return seconds * 1e3; }
double mb(long kb) { return static_cast<double>(kb) / 1024.0; }

// Medians of a contestant's runs.
struct Runs {
  std::vector<double> seconds, toMap;
  long maxRssKb = 0;
  void add(const Sample& s, double mapped = -1) {
    seconds.push_back(s.seconds);
    if (mapped >= 0) toMap.push_back(mapped);
    maxRssKb = std::max(maxRssKb, s.maxRssKb);
  }
};
std::vector<double> ratios(const Runs& a, const Runs& b) {
  std::vector<double> r;
  for (size_t i = 0; i < a.seconds.size() && i < b.seconds.size(); ++i) r.push_back(a.seconds[i] / b.seconds[i]);
  return r;
}

// The bundles every round starts, laid out in `dir`.
struct Bundles {
  std::string helloHidden, helloDefault;  // Hello on the real runtime, nothing to unpack
  std::vector<std::string> viaJava;       // the same start through bin/java
  std::string shown, hidden;              // a stand-in runtime packed as the bundle's archive
};

std::optional<Bundles> makeBundles(const std::string& dir, const std::string& launcher, const std::string& fakeJli,
                                   const std::string& jar, const std::string& jdk) {
  Bundles b;
  std::string javaVM = "<key>JavaVM</key><dict><key>MainClass</key><string>Hello</string><key>ClassPath</key><string>" +
                       jar + "</string><key>SearchSequence</key><array><string>R" + jdk + "</string></array></dict>";
  b.helloHidden = makeBundle(dir, "HelloHidden", launcher, plist(kHidden + javaVM));
  b.helloDefault = makeBundle(dir, "HelloDefault", launcher, plist(javaVM));
  b.viaJava = {jdk + "/bin/java", "-Dfenmo.moduleName=" + dir + "/HelloHidden.app", "-Djava.class.path=" + jar,
               "-Dbwk.jreBundle=" + jdk, "Hello"};
  std::string fakeVM = "<key>JavaVM</key><dict><key>MainClass</key><string>Main</string></dict>";
  b.shown = makeBundle(dir, "Shown", launcher, plist(fakeVM));
  b.hidden = makeBundle(dir, "Hidden", launcher, plist(kHidden + fakeVM));
  if (shell(
          "set -e; cd '" + dir + "'; mkdir -p rt/Contents/Home/lib nogtk; cp '" + fakeJli +
          "' rt/Contents/Home/lib/libjli.so; echo 'JAVA_VERSION=\"17.0.2\"' > rt/Contents/Home/release; "
          "tar -C rt -czf jre.tar.gz Contents; for b in Shown Hidden; do cp jre.tar.gz $b.app/Contents/Resources/app/; done; "
          "cp '" +
          fakeJli + "' nogtk/libgtk-3.so.0") != 0) {
    std::fprintf(stderr, "cannot pack the stand-in runtime\n");
    return std::nullopt;
  }
  return b;
}

struct Contestants {
  Runs java, viaHidden, viaDefault, windowShown, windowHidden;
};

// Two rounds first warm the page cache, the class-data archive, fonts and GTK's modules.
// Each round starts with another contestant, so that none always follows the same one.
std::optional<Contestants> measureRounds(Display* x, const Bundles& b, const std::vector<std::string>& graphical,
                                         int rounds) {
  Contestants c;
  for (int round = -2; round < rounds; ++round) {
    Sample j, h, d;
    WatchedRun s, n;
    std::vector<std::function<void()>> turns = {
        [&] { j = runMeasured(b.viaJava, "", graphical); },
        [&] { h = runMeasured({b.helloHidden}, "", graphical); },
        [&] { d = runMeasured({b.helloDefault}, "", graphical); },
        [&] { s = watchedRun(x, b.shown, graphical); },
        [&] { n = watchedRun(x, b.hidden, graphical); },
    };
    for (size_t i = 0; i < turns.size(); ++i) turns[(i + static_cast<size_t>(round + 2)) % turns.size()]();
    if (j.status != 0 || h.status != 0 || d.status != 0 || s.sample.status != 7 || n.sample.status != 7 ||
        s.toMap < 0 || n.toMap >= 0) {
      std::fprintf(stderr, "a run failed: java %d, launcher %d and %d, window %d (mapped %s), hidden %d (mapped %s)\n",
                   j.status, h.status, d.status, s.sample.status, s.toMap < 0 ? "no" : "yes", n.sample.status,
                   n.toMap < 0 ? "no" : "yes");
      return std::nullopt;
    }
    if (round < 0) continue;
    c.java.add(j);
    c.viaHidden.add(h);
    c.viaDefault.add(d);
    c.windowShown.add(s.sample, s.toMap);
    c.windowHidden.add(n.sample);
  }
  return c;
}

void printContestants(const Contestants& c, const std::string& jdk, int rounds) {
  std::printf("graphical session on a private Xvfb, %d interleaved rounds (medians)\n", rounds);
  std::printf("bundle without a runtime archive, Hello on %s:\n", jdk.c_str());
  std::printf("  %-44s %7.1f ms  peak RSS %6.1f MB\n", "bin/java", ms(median(c.java.seconds)), mb(c.java.maxRssKb));
  for (auto [name, runs] : {std::pair<const char*, const Runs*>{"launcher, bwk.initialProgress false", &c.viaHidden},
                            {"launcher, window shown (key left out)", &c.viaDefault}})
    std::printf("  %-44s %7.1f ms  peak RSS %6.1f MB  ratio to bin/java %.3f\n", name, ms(median(runs->seconds)),
                mb(runs->maxRssKb), median(ratios(*runs, c.java)));
  std::vector<double> extra;
  for (size_t i = 0; i < c.windowShown.seconds.size(); ++i)
    extra.push_back(c.windowShown.seconds[i] - c.windowHidden.seconds[i]);
  std::printf("the progress window's cost (a small runtime archive, stand-in runtime):\n");
  std::printf("  %-44s %7.1f ms  peak RSS %6.1f MB\n", "whole run, bwk.initialProgress false",
              ms(median(c.windowHidden.seconds)), mb(c.windowHidden.maxRssKb));
  std::printf("  %-44s %7.1f ms  peak RSS %6.1f MB  window mapped after %.1f ms\n", "whole run, window shown",
              ms(median(c.windowShown.seconds)), mb(c.windowShown.maxRssKb), ms(median(c.windowShown.toMap)));
  std::printf("  %-44s %7.1f ms  (per-round ratio %.3f)\n", "window's cost, median per round", ms(median(extra)),
              median(ratios(c.windowShown, c.windowHidden)));
}

// The archive bundle where no window can be had: false when a run fails.
bool measureWithoutWindow(const std::string& shown, const std::string& display, const std::string& dir, int rounds) {
  struct Variant {
    const char* name;
    std::vector<std::string> changes;
  };
  const std::vector<Variant> variants = {
      {"no display (command-line mode)", {}},
      {"display cannot be opened", {"DISPLAY=:4242"}},
      {"GTK unusable", {"DISPLAY=" + display, "LD_LIBRARY_PATH=" + dir + "/nogtk"}},
  };
  std::printf("the same archive where no window can be had:\n");
  for (const Variant& v : variants) {
    std::vector<std::string> env = environmentWith(v.changes);
    env.push_back("FAKE_JLI_STATUS=7");
    Runs runs;
    for (int i = -2; i < rounds; ++i) {
      Sample s = runMeasured({shown}, "", env);
      if (s.status != 7) {
        std::fprintf(stderr, "%s: status %d\n", v.name, s.status);
        return false;
      }
      if (i >= 0) runs.add(s);
    }
    std::printf("  %-44s %7.1f ms  peak RSS %6.1f MB\n", (std::string("whole run, ") + v.name).c_str(),
                ms(median(runs.seconds)), mb(runs.maxRssKb));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string launcher = argc > 1 ? argv[1] : "build/bin/brackwood-launcher";
  std::string fakeJli = argc > 2 ? argv[2] : "build/fake_jli/libjli.so";
  std::string jar = argc > 3 ? argv[3] : "build/demo/Hello.app/Contents/Resources/app/lib/hello.jar";
  std::string jdk = argc > 4 ? argv[4] : "/usr/lib/jvm/java-17-openjdk-amd64";
  int rounds = argc > 5 ? std::atoi(argv[5]) : 30;
  if (!makeAbsolute({&launcher, &fakeJli, &jar})) return 1;

  std::string dir = tempDirectory("bwk-window");
  std::optional<Bundles> bundles = makeBundles(dir, launcher, fakeJli, jar, jdk);
  if (!bundles) return 1;
  pid_t xvfb = -1;
  std::string display = startXvfb(xvfb);
  Display* x = display.empty() ? nullptr : XOpenDisplay(display.c_str());
  if (!x) {
    std::fprintf(stderr, "no X server (Xvfb) to measure on\n");
    return 1;
  }
  XSelectInput(x, DefaultRootWindow(x), SubstructureNotifyMask);
  std::vector<std::string> graphical = environmentWith({"DISPLAY=" + display, "FAKE_JLI_STATUS=7"});

  std::optional<Contestants> measured = measureRounds(x, *bundles, graphical, rounds);
  if (!measured) return 1;
  printContestants(*measured, jdk, rounds);
  if (!measureWithoutWindow(bundles->shown, display, dir, rounds)) return 1;
  XCloseDisplay(x);
  kill(xvfb, SIGTERM);
  waitpid(xvfb, nullptr, 0);
  shell("rm -rf '" + dir + "'");
  return 0;
}
