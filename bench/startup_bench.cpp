// Start-up cost of the launcher: the same Java program started through a launcher bundle and
// through the runtime's own bin/java with the same options, interleaved run by run.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_util.h"

using namespace bwk::bench;

int main(int argc, char** argv) {
  std::string launcher = argc > 1 ? argv[1] : "build/bin/brackwood-launcher";
  std::string jar = argc > 2 ? argv[2] : "build/demo/Hello.app/Contents/Resources/app/lib/hello.jar";
  std::string jdk = argc > 3 ? argv[3] : "/usr/lib/jvm/java-17-openjdk-amd64";
  int pairs = argc > 4 ? std::atoi(argv[4]) : 40;
  // The launcher enters the bundle before the runtime starts: paths must be absolute.
  if (!makeAbsolute({&jar})) return 1;

  std::string dir = tempDirectory("bwk-startup");
  std::string executable = makeBundle(dir, "Hello", launcher, helloInfo(jar, jdk));
  std::string app = dir + "/Hello.app";
  std::vector<std::string> viaLauncher{executable, "x"};
  std::vector<std::string> viaJava{jdk + "/bin/java",
                                   "-Dfenmo.moduleName=" + app,
                                   "-Djava.class.path=" + jar,
                                   "-Dbwk.jreBundle=" + jdk,
                                   "Hello",
                                   "x"};

  // Warm the page cache and the class-data archive before measuring; the first runs' output
  // is kept to tell why a start fails.
  for (int i = 0; i < 3; ++i) {
    Sample a = runMeasured(viaLauncher, dir + "/launcher.out");
    Sample b = runMeasured(viaJava, dir + "/java.out");
    if (a.status != 0 || b.status != 0) {
      std::fprintf(stderr, "a start failed (launcher %d, java %d); output:\n", a.status, b.status);
      shell("cat '" + dir + "/launcher.out' '" + dir + "/java.out' >&2");
      return 1;
    }
  }
  std::vector<double> launcherTimes, javaTimes, ratios;
  long launcherRss = 0, javaRss = 0;
  for (int i = 0; i < pairs; ++i) {
    Sample a = runMeasured(viaLauncher);
    Sample b = runMeasured(viaJava);
    if (a.status != 0 || b.status != 0) {
      std::fprintf(stderr, "a run failed (launcher %d, java %d)\n", a.status, b.status);
      return 1;
    }
    launcherTimes.push_back(a.seconds);
    javaTimes.push_back(b.seconds);
    ratios.push_back(a.seconds / b.seconds);
    launcherRss = std::max(launcherRss, a.maxRssKb);
    javaRss = std::max(javaRss, b.maxRssKb);
  }
  shell("rm -rf '" + dir + "'");
  std::printf("start-up of Hello, %d interleaved pairs (launcher bundle vs %s/bin/java)\n", pairs, jdk.c_str());
  std::printf("  median wall time: launcher %.1f ms, java %.1f ms\n", median(launcherTimes) * 1e3,
              median(javaTimes) * 1e3);
  std::printf("  median of per-pair ratios launcher/java: %.3f\n", median(ratios));
  std::printf("  peak RSS: launcher %.1f MB, java %.1f MB (difference %+.1f MB)\n", launcherRss / 1024.0,
              javaRss / 1024.0, (launcherRss - javaRss) / 1024.0);
  return 0;
}
