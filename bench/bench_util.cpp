#include "bench_util.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

extern char** environ;

namespace bwk::bench {

namespace {

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (std::string& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

double seconds(const timeval& tv) { return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6; }

}  // namespace

pid_t startProcess(const std::vector<std::string>& argv, const std::string& outputFile,
                   const std::vector<std::string>& environment) {
  std::vector<std::string> argvCopy = argv, envCopy = environment;
  std::vector<char*> a = pointers(argvCopy), e = pointers(envCopy);
  const char* output = outputFile.empty() ? "/dev/null" : outputFile.c_str();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = -1;
  if (posix_spawn(&pid, a[0], &actions, nullptr, a.data(), environment.empty() ? environ : e.data()) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

Sample runMeasured(const std::vector<std::string>& argv, const std::string& outputFile,
                   const std::vector<std::string>& environment) {
  auto start = std::chrono::steady_clock::now();
  pid_t pid = startProcess(argv, outputFile, environment);
  Sample s;
  if (pid < 0) {
    s.status = 127;
    return s;
  }
  int status = 0;
  struct rusage usage {};
  wait4(pid, &status, 0, &usage);
  s.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  s.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  s.maxRssKb = usage.ru_maxrss;
  s.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return s;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::string startXvfb(pid_t& pid) {
  int fds[2];
  if (pipe(fds) != 0) return "";
  pid = startProcess(
      {"/usr/bin/Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "800x600x24", "-nolisten", "tcp"});
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
    bool changed =
        name == "BRACKWOOD_LOG" || name == "DISPLAY" || name == "WAYLAND_DISPLAY" || name == "JAVA_TOOL_OPTIONS";
    for (const std::string& c : changes) changed |= c.substr(0, c.find('=')) == name;
    if (!changed) env.push_back(entry);
  }
  for (const std::string& c : changes)
    if (c.find('=') != std::string::npos) env.push_back(c);
  return env;
}

bool makeAbsolute(const std::vector<std::string*>& paths) {
  for (std::string* path : paths) {
    char resolved[PATH_MAX];
    if (!realpath(path->c_str(), resolved)) {
      std::fprintf(stderr, "no %s: build the project first\n", path->c_str());
      return false;
    }
    *path = resolved;
  }
  return true;
}

std::string tempDirectory(const std::string& prefix) {
  std::string pattern = "/tmp/" + prefix + "-XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
  return pattern;
}

int shell(const std::string& command) { return std::system(command.c_str()); }

std::string jlinkRuntimeArchive(const std::string& cache, const std::string& jdk, const std::string& name,
                                const std::string& launcherLibrary) {
  std::string archive = cache + "/" + name;
  if (::access(archive.c_str(), R_OK) == 0) return archive;
  std::string stage = cache + "/stage";
  std::string command =
      "set -e; rm -rf '" + stage + "'; mkdir -p '" + cache + "'; '" + jdk +
      "/bin/jlink' --add-modules java.base,java.desktop --strip-debug --no-header-files"
      " --no-man-pages --output '" +
      stage + "/Contents/Home'; " +
      (launcherLibrary.empty() ? std::string()
                               : "cp '" + launcherLibrary + "' '" + stage + "/Contents/Home/lib/libjli.so'; ") +
      "tar -C '" + stage + "' --format=gnu -cf - Contents | gzip -6 > '" + archive + ".part'; mv '" + archive +
      ".part' '" + archive + "'; rm -rf '" + stage + "'";
  if (shell(command) != 0) {
    std::fprintf(stderr, "cannot build the runtime archive in %s\n", cache.c_str());
    std::exit(1);
  }
  return archive;
}

std::string makeBundle(const std::string& dir, const std::string& name, const std::string& launcher,
                       const std::string& info) {
  std::string app = dir + "/" + name + ".app";
  if (shell("mkdir -p '" + app + "/Contents/MacOS' '" + app + "/Contents/Resources/app' && cp '" + launcher + "' '" +
            app + "/Contents/MacOS/" + name + "' && printf '%s' '" + info + "' > '" + app + "/Contents/Info.plist'") !=
      0) {
    std::fprintf(stderr, "cannot make %s\n", app.c_str());
    std::exit(1);
  }
  return app + "/Contents/MacOS/" + name;
}

std::string helloInfo(const std::string& jar, const std::string& jdk, const std::string& topLevel) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + topLevel +
         "<key>JavaVM</key><dict><key>MainClass</key><string>Hello</string><key>ClassPath</key><string>" + jar +
         "</string><key>SearchSequence</key><array><string>R" + jdk + "</string></array></dict></dict></plist>";
}

}  // namespace bwk::bench
