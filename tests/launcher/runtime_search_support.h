#pragma once
// Helpers of the runtime search tests: a launch of <tmp>/Apps/Tool.app with a given
// configuration, fake runtimes, and a child process with private mounts, so that a test can
// put its own runtimes at the system's fixed runtime directory.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "launcher/launcher.h"
#include "platform/platform.h"
#include "test_support.h"

namespace bwk::test {

class RuntimeSearchFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    resetLaunchState();
    g_cli = true;  // errors on standard error only
    platform::setProcessArguments(std::vector<std::string>{"/prog"});
    bundle = tmp / "Apps/Tool.app";
    appRoot = bundle + "/Contents/Resources/app";
    writeFile(bundle + "/Contents/Info.plist", "");
  }
  void TearDown() override {
    resetLaunchState();
    platform::setProcessArguments(std::vector<std::string>{});
  }

  // A bundle launch with this configuration.
  std::unique_ptr<Launcher> launch(PlistDict info) {
    s_infoDictionary = PlistValue(std::move(info));
    s_mainBundlePath = bundle;
    s_launcherDirInApp = tmp / "Apps";
    s_launcherDirAndName = tmp / "Apps/Tool";
    return std::make_unique<Launcher>();
  }

  static PlistValue list(std::initializer_list<std::string> items) {
    PlistArray a;
    for (const std::string& s : items) a.emplace_back(s);
    return PlistValue(std::move(a));
  }
  static PlistValue searchSequence(std::initializer_list<std::string> entries) {
    return PlistValue(PlistDict{{"SearchSequence", list(entries)}});
  }

  // Installs <home>/bin/unpack200 that logs its arguments to `log` and then runs `body`.
  static void installUnpackTool(const std::string& home, const std::string& log, const std::string& body) {
    std::string tool = home + "/bin/unpack200";
    writeFile(tool, "#!/bin/sh\necho \"$@\" >> '" + log + "'\n" + body + "\n");
    chmod(tool.c_str(), 0755);
  }

  TempDir tmp;
  std::string bundle;
  std::string appRoot;
};

// The outcome of a child process: its exit status and what it wrote to standard output and
// standard error.
struct ChildOutcome {
  int status = -1;
  std::string output;
};

struct BindMount {
  std::string source;
  std::string target;
  bool readOnly = false;
};

// Runs `body` in a child process with a mount namespace of its own in which every bind mount
// is in place; the child ends with the status `body` returns (or exits by itself).
inline ChildOutcome inPrivateMounts(const std::vector<BindMount>& mounts, const std::function<int()>& body) {
  int fds[2];
  if (pipe(fds) != 0) return {};
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    dup2(fds[1], 1);
    dup2(fds[1], 2);
    close(fds[1]);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
      std::perror("private mount namespace");
      _exit(90);
    }
    for (const BindMount& m : mounts) {
      if (mount(m.source.c_str(), m.target.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
          (m.readOnly &&
           mount(nullptr, m.target.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)) {
        std::perror(("bind mount over " + m.target).c_str());
        _exit(91);
      }
    }
    int status = body();
    std::fflush(nullptr);
    _exit(status);
  }
  close(fds[1]);
  ChildOutcome outcome;
  char buffer[4096];
  ssize_t n;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0) outcome.output.append(buffer, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

}  // namespace bwk::test
