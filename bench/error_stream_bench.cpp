// What passing standard error through the launcher costs: a Java program writing megabytes
// to standard error, started through the same bundle in application mode (standard error
// passed through), in command-line mode (not passed through) and by the runtime's bin/java,
// interleaved run by run.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_util.h"

using namespace bwk::bench;

namespace {}  // namespace

int main(int argc, char** argv) {
  std::string launcher = argc > 1 ? argv[1] : "build/bin/brackwood-launcher";
  std::string jar = argc > 2 ? argv[2] : "build/demo/Hello.app/Contents/Resources/app/lib/hello.jar";
  std::string jdk = argc > 3 ? argv[3] : "/usr/lib/jvm/java-17-openjdk-amd64";
  int megabytes = argc > 4 ? std::atoi(argv[4]) : 200;
  int rounds = argc > 5 ? std::atoi(argv[5]) : 10;
  if (!makeAbsolute({&jar})) return 1;

  std::string dir = tempDirectory("bwk-error-stream");
  // No progress window: application mode then loads no window toolkit, and needs no display
  // server, only the variable that tells of a graphical session.
  std::string info = helloInfo(jar, jdk, "<key>bwk.initialProgress</key><false/>");
  std::string executable = makeBundle(dir, "Hello", launcher, info);
  std::string writes = "--stderr-megabytes=" + std::to_string(megabytes);
  struct Contestant {
    const char* name;
    std::vector<std::string> argv, env;
    std::vector<double> seconds;
  } contestants[] = {
      {"application mode", {executable, writes}, environmentWith({"DISPLAY=:bench"}), {}},
      {"command-line mode", {executable, writes}, environmentWith({}), {}},
      {"bin/java", {jdk + "/bin/java", "-cp", jar, "Hello", writes}, environmentWith({}), {}},
  };
  for (const char* sink : {"/dev/null", "file"}) {
    std::string output = std::string(sink) == "file" ? dir + "/output" : "";
    for (Contestant& c : contestants) c.seconds.clear();
    for (int round = -1; round < rounds; ++round) {
      for (Contestant& c : contestants) {
        Sample s = runMeasured(c.argv, output, c.env);
        if (s.status != 0) {
          std::fprintf(stderr, "%s ended with status %d\n", c.name, s.status);
          return 1;
        }
        if (round >= 0) c.seconds.push_back(s.seconds);  // round -1 warms the caches
      }
    }
    double application = median(contestants[0].seconds), commandLine = median(contestants[1].seconds),
           java = median(contestants[2].seconds);
    std::vector<double> toCommandLine, toJava;
    for (int i = 0; i < rounds; ++i) {
      toCommandLine.push_back(contestants[0].seconds[i] / contestants[1].seconds[i]);
      toJava.push_back(contestants[0].seconds[i] / contestants[2].seconds[i]);
    }
    std::printf("%d MB to standard error on %s, %d interleaved rounds (median wall time)\n", megabytes,
                output.empty() ? "/dev/null" : "a file", rounds);
    std::printf("  application mode %.0f ms, command-line mode %.0f ms, bin/java %.0f ms\n", application * 1e3,
                commandLine * 1e3, java * 1e3);
    std::printf("  median of per-round ratios: application/command-line mode %.3f, application mode/bin/java %.3f\n",
                median(toCommandLine), median(toJava));
  }
  shell("rm -rf '" + dir + "'");
  return 0;
}
