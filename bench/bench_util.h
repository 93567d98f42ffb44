#pragma once
// Helpers shared by the benchmarks: start a command and measure it to its end, take medians,
// make scratch directories.
#include <sys/types.h>

#include <string>
#include <vector>

namespace bwk::bench {

struct Sample {
  double seconds = 0;
  double cpuSeconds = 0;  // the child's user and system time: less disturbed by other load
  long maxRssKb = 0;
  int status = -1;
};

// Starts argv[0] (a path, not searched for) with standard output and error on `outputFile`,
// or on /dev/null when none is given, and with `environment` (this process's own when empty).
// The child's id, or -1 when it cannot be started.
pid_t startProcess(const std::vector<std::string>& argv, const std::string& outputFile = "",
                   const std::vector<std::string>& environment = {});
// Runs argv like startProcess, waits, and measures wall time, CPU time and the child's peak
// resident set. A command that cannot be started has status 127.
Sample runMeasured(const std::vector<std::string>& argv, const std::string& outputFile = "",
                   const std::vector<std::string>& environment = {});
double median(std::vector<double> values);
std::string tempDirectory(const std::string& prefix);
// This process's environment without the variables that choose the launcher's mode or
// change the runtime (BRACKWOOD_LOG, DISPLAY, WAYLAND_DISPLAY, JAVA_TOOL_OPTIONS), with
// `changes` applied: "NAME=value" sets, "NAME" removes.
std::vector<std::string> environmentWith(const std::vector<std::string>& changes);
// Replaces each path by its absolute, resolved form; false, with a message, when one does not
// exist (the benchmarks lay out bundles elsewhere, so relative paths would not do).
bool makeAbsolute(const std::vector<std::string*>& paths);
// Xvfb on a free display (800x600); its name (":N"), or "" when it does not start.
std::string startXvfb(pid_t& pid);
int shell(const std::string& command);
// A jlink image of the runtime at `jdk` (java.base and java.desktop) laid out as a runtime
// bundle (Contents/Home/...), packed with GNU tar and gzip -6 as <cache>/<name>. With
// `launcherLibrary`, that file replaces the image's lib/libjli.so. Built once and kept; ends
// the program when it cannot be built.
std::string jlinkRuntimeArchive(const std::string& cache, const std::string& jdk,
                                const std::string& name = "runtime.tar.gz", const std::string& launcherLibrary = "");
// <dir>/<name>.app with the launcher as Contents/MacOS/<name>, an empty Contents/Resources/app
// and `info` as Info.plist; the executable's path. Ends the program when it cannot be made.
std::string makeBundle(const std::string& dir, const std::string& name, const std::string& launcher,
                       const std::string& info);
// The Info.plist of the demo program: main class Hello from `jar`, the runtime `jdk` as the
// one search entry, and `topLevel` (XML of keys and values) before the JavaVM dictionary.
std::string helloInfo(const std::string& jar, const std::string& jdk, const std::string& topLevel = "");

}  // namespace bwk::bench
