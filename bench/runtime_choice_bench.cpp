// What the runtime a bundle ships costs in size, and how fast the application starts from it.
//
// 1. Sizes: a Swing program's bundle made by "create" with the JDK as given (what no start
//    needs left out), with --jlink, each as a directory and as an archive, against the same
//    bundle holding the whole JDK.
// 2. Start to the first window, on a private Xvfb, interleaved round by round: the program
//    (a few thousand classes of its own and Swing's before the window shows) from a bundle
//    made with --aot-cache on Temurin 25 (as given and --jlink) after the training start,
//    and from one without the cache, against `java -cp` of the same jar on the same runtime;
//    and on OpenJDK 17, a --jlink bundle against `java -cp` on the whole JDK.
//
// Usage: runtime_choice_bench [brackwood-bundle] [launcher] [jdk17] [temurin25] [rounds]
#include <X11/Xlib.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bench_util.h"

using namespace bwk::bench;
using Clock = std::chrono::steady_clock;

namespace {

std::string output(const std::string& command) {
  std::string text;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
    pclose(pipe);
  }
  return text;
}
double bytes(const std::string& command) { return std::atof(output(command).c_str()); }
double duBytes(const std::string& path, bool followLinks = false) {
  return bytes(std::string("du -sb") + (followLinks ? "L" : "") + " '" + path + "' | cut -f1");
}
double mb(double b) { return b / 1e6; }

// Seconds from the start to the first top-level window mapped, -1 when none was or the
// program failed. The program is waited for: a training start writes its cache at the end.
double toFirstWindow(Display* x, const std::vector<std::string>& argv, const std::vector<std::string>& env) {
  while (XPending(x)) {
    XEvent ignored;
    XNextEvent(x, &ignored);
  }
  Clock::time_point start = Clock::now();
  pid_t pid = startProcess(argv, "", env);
  if (pid < 0) return -1;
  double mapped = -1;
  int status = 0;
  for (;;) {
    pid_t done = waitpid(pid, &status, WNOHANG);
    while (mapped < 0 && XPending(x)) {
      XEvent event;
      XNextEvent(x, &event);
      if (event.type == MapNotify && !event.xmap.override_redirect)
        mapped = std::chrono::duration<double>(Clock::now() - start).count();
    }
    if (done == pid) break;
    pollfd p{ConnectionNumber(x), POLLIN, 0};
    poll(&p, 1, 1);
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? mapped : -1;
}

struct Contestant {
  std::string name;
  std::vector<std::string> argv;
  std::vector<double> seconds;
};

// Makes bundles of the Swing program with brackwood-bundle create; exits when one fails.
struct BundleMaker {
  std::string tool, launcher, jar, dir;
  std::string create(const std::string& name, const std::string& runtime, const std::string& more) const {
    std::string command = "'" + tool + "' create --name " + name + " --main-class bench.Main --jar '" + jar +
                          "' --runtime '" + runtime + "' --launcher '" + launcher + "' --output '" + dir + "' " + more +
                          " > '" + dir + "/" + name + ".log' 2>&1";
    if (shell(command) != 0) {
      std::fprintf(stderr, "create %s failed: see %s/%s.log\n", name.c_str(), dir.c_str(), name.c_str());
      std::exit(1);
    }
    return dir + "/" + name + ".app";
  }
};

// The Swing program, generated and compiled into `dir`/app.jar.
bool buildSwingProgram(const std::string& dir, const std::string& jdk17) {
  if (shell("set -e; cd '" + dir +
            "'; bash '" BWK_BENCH_SOURCE_DIR "/swing_app/generate.sh' src 2000; find src -name '*.java' > files; '" +
            jdk17 + "/bin/javac' --release 17 -d classes @files; '" + jdk17 +
            "/bin/jar' cfe app.jar bench.Main -C classes .") != 0) {
    std::fprintf(stderr, "cannot build the Swing program\n");
    return false;
  }
  return true;
}

// Bundle sizes on OpenJDK 17 against the whole JDK (the runtime directory with its links
// followed, its archive packed with tar and gzip -6). Gives the --jlink bundle.
std::string measureSizes(const BundleMaker& maker, const std::string& jdk17) {
  std::string given = maker.create("Given", jdk17, ""), linked = maker.create("Linked", jdk17, "--jlink");
  std::string givenArchive = maker.create("GivenArchive", jdk17, "--runtime-as archive");
  std::string linkedArchive = maker.create("LinkedArchive", jdk17, "--jlink --runtime-as archive");
  double rest = duBytes(given) - duBytes(given + "/Contents/Resources/jre.bundle");
  double wholeDirectory = rest + duBytes(jdk17, true);
  double wholeArchive = rest + bytes("tar -chf - -C '" + jdk17 + "' . 2>/dev/null | gzip -6 | wc -c");
  std::printf(
      "bundle sizes, a Swing program on %s (the whole JDK: the runtime directory with its links followed, its archive "
      "packed with tar and gzip -6):\n",
      jdk17.c_str());
  std::printf("  %-40s %8.1f MB\n", "whole JDK, as a directory", mb(wholeDirectory));
  std::printf("  %-40s %8.1f MB  ratio %.3f\n", "as given, unneeded parts left out", mb(duBytes(given)),
              duBytes(given) / wholeDirectory);
  std::printf("  %-40s %8.1f MB  ratio %.3f\n", "--jlink", mb(duBytes(linked)), duBytes(linked) / wholeDirectory);
  std::printf("  %-40s %8.1f MB\n", "whole JDK, as an archive", mb(wholeArchive));
  std::printf("  %-40s %8.1f MB  ratio %.3f\n", "as given, archive", mb(duBytes(givenArchive)),
              duBytes(givenArchive) / wholeArchive);
  std::printf("  %-40s %8.1f MB  ratio %.3f\n", "--jlink, archive", mb(duBytes(linkedArchive)),
              duBytes(linkedArchive) / wholeArchive);
  return linked;
}

// The starts to compare: on Temurin 25 where it is installed, java -cp first; then OpenJDK 17.
std::vector<Contestant> startContestants(const BundleMaker& maker, const std::string& jdk17, const std::string& jdk25,
                                         const std::string& linked, bool have25) {
  std::vector<Contestant> contestants;
  if (have25) {
    contestants.push_back({"Temurin 25: java -cp", {jdk25 + "/bin/java", "-cp", maker.jar, "bench.Main"}, {}});
    contestants.push_back(
        {"Temurin 25: bundle --aot-cache", {maker.create("Aot", jdk25, "--aot-cache") + "/Contents/MacOS/Aot"}, {}});
    contestants.push_back({"Temurin 25: bundle --jlink --aot-cache",
                           {maker.create("AotLinked", jdk25, "--jlink --aot-cache") + "/Contents/MacOS/AotLinked"},
                           {}});
    contestants.push_back(
        {"Temurin 25: bundle without the cache", {maker.create("Plain", jdk25, "") + "/Contents/MacOS/Plain"}, {}});
  } else {
    std::printf("no Temurin 25 at %s: the rows of the AOT cache are skipped\n", jdk25.c_str());
  }
  contestants.push_back(
      {"OpenJDK 17: java -cp (whole JDK)", {jdk17 + "/bin/java", "-cp", maker.jar, "bench.Main"}, {}});
  contestants.push_back({"OpenJDK 17: bundle --jlink", {linked + "/Contents/MacOS/Linked"}, {}});
  return contestants;
}

// The first start of each trains its cache (and warms the page cache); one more warms all.
bool measureStarts(Display* x, std::vector<Contestant>& contestants, const std::vector<std::string>& env, int rounds) {
  for (int round = -2; round < rounds; ++round) {
    for (size_t i = 0; i < contestants.size(); ++i) {
      Contestant& c = contestants[(i + static_cast<size_t>(round + 2)) % contestants.size()];
      double seconds = toFirstWindow(x, c.argv, env);
      if (seconds < 0) {
        std::fprintf(stderr, "%s: no window, or a failed start\n", c.name.c_str());
        return false;
      }
      if (round >= 0) c.seconds.push_back(seconds);
    }
  }
  return true;
}

void printStarts(const std::vector<Contestant>& contestants, bool have25, int rounds) {
  std::printf("start to the first window under Xvfb, %d interleaved rounds after the training start (medians):\n",
              rounds);
  auto ratio = [](const Contestant& a, const Contestant& b) {
    std::vector<double> r;
    for (size_t i = 0; i < a.seconds.size(); ++i) r.push_back(a.seconds[i] / b.seconds[i]);
    return median(r);
  };
  for (size_t i = 0; i < contestants.size(); ++i) {
    const Contestant& reference = contestants[have25 && i < 4 ? 0 : contestants.size() - 2];
    std::printf("  %-42s %7.1f ms", contestants[i].name.c_str(), median(contestants[i].seconds) * 1e3);
    if (&reference != &contestants[i]) std::printf("  ratio to java -cp %.3f", ratio(contestants[i], reference));
    std::printf("\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string tool = argc > 1 ? argv[1] : "build/bin/brackwood-bundle";
  std::string launcher = argc > 2 ? argv[2] : "build/bin/brackwood-launcher";
  std::string jdk17 = argc > 3 ? argv[3] : "/usr/lib/jvm/java-17-openjdk-amd64";
  std::string jdk25 = argc > 4 ? argv[4] : "/usr/lib/jvm/temurin-25-jdk-amd64";
  int rounds = argc > 5 ? std::atoi(argv[5]) : 15;
  if (!makeAbsolute({&tool, &launcher})) return 1;
  double load[3] = {0, 0, 0};
  getloadavg(load, 3);
  std::printf("load average at the start %.2f %.2f %.2f\n", load[0], load[1], load[2]);

  std::string dir = tempDirectory("bwk-runtime-choice");
  if (!buildSwingProgram(dir, jdk17)) return 1;
  BundleMaker maker{tool, launcher, dir + "/app.jar", dir};
  std::string linked = measureSizes(maker, jdk17);

  pid_t xvfb = -1;
  std::string display = startXvfb(xvfb);
  Display* x = display.empty() ? nullptr : XOpenDisplay(display.c_str());
  if (!x) {
    std::fprintf(stderr, "no X server (Xvfb) to measure on\n");
    return 1;
  }
  XSelectInput(x, DefaultRootWindow(x), SubstructureNotifyMask);
  std::vector<std::string> env = environmentWith({"DISPLAY=" + display, "HOME=" + dir + "/home"});
  bool have25 = access((jdk25 + "/bin/java").c_str(), X_OK) == 0;
  std::vector<Contestant> contestants = startContestants(maker, jdk17, jdk25, linked, have25);
  if (!measureStarts(x, contestants, env, rounds)) return 1;
  printStarts(contestants, have25, rounds);
  std::string caches = output("ls '" + dir + "/home/Library/Caches/brackwood/aot'/*/ 2>/dev/null | grep -c '\\.aot$'");
  std::printf("AOT cache files written: %s", caches.c_str());
  getloadavg(load, 3);
  std::printf("load average at the end %.2f %.2f %.2f\n", load[0], load[1], load[2]);
  XCloseDisplay(x);
  kill(xvfb, SIGTERM);
  waitpid(xvfb, nullptr, 0);
  shell("rm -rf '" + dir + "'");
  return 0;
}
