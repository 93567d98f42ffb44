#pragma once
// Launches of <tmp>/Apps/Tool.app with a given configuration and command line, fake runtimes, and a child process with
// private mounts, so that a test can put its own runtimes at the system's fixed runtime directory.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <cstdio>
#include <memory>

#include "launcher/launch_context.h"
#include "launcher/runtime_search.h"
#include "test_support.h"

namespace bwk::test {

class LaunchFixture : public ::testing::Test {
 protected:
  // A bundle launch: Info.plist written, the context made as the worker makes it.
  const LaunchContext& bundleLaunch(PlistDict info, std::vector<std::string> arguments = {"/prog"}) {
    writePlist(bundle + "/Contents/Info.plist", PlistValue(std::move(info)));
    bundles_.push_back(std::make_unique<Bundle>(bundle));
    return keep(LaunchContext::forBundle(*bundles_.back(), std::move(arguments), true));
  }
  // A command-line launcher at `executable` carrying `configuration`.
  const LaunchContext& commandLineLaunch(PlistDict configuration, const OptionalString& executable,
                                         std::vector<std::string> arguments) {
    bundles_.push_back(std::make_unique<Bundle>(tmp.path()));
    return keep(LaunchContext::forEmbeddedConfiguration(*bundles_.back(), PlistValue(std::move(configuration)),
                                                        executable, std::move(arguments)));
  }
  // The path of the runtime a search chooses, or none.
  OptionalString chosenPath(const LaunchContext& context, const OptionalString& installer = std::nullopt) {
    std::optional<ChosenRuntime> runtime = findJavaBundle(context, installer);
    return runtime ? OptionalString(runtime->path) : std::nullopt;
  }
  static PlistValue searchSequence(std::initializer_list<std::string> entries) {
    return PlistValue(PlistDict{{"SearchSequence", stringArray(entries)}});
  }

  TempDir tmp;
  std::string bundle = tmp / "Apps/Tool.app", appRoot = bundle + "/Contents/Resources/app";

 private:
  const LaunchContext& keep(LaunchContext context) {
    contexts_.push_back(std::make_unique<LaunchContext>(std::move(context)));
    return *contexts_.back();
  }
  std::vector<std::unique_ptr<Bundle>> bundles_;
  std::vector<std::unique_ptr<LaunchContext>> contexts_;
};

// Runs `body` in a child process with a mount namespace of its own in which `source` is bound over `target`; the child
// ends with the status `body` returns (or exits by itself). Its standard output and error together are `out`.
inline RunResult inPrivateMount(const std::string& source, const std::string& target,
                                const std::function<int()>& body) {
  TempDir dir;
  std::string output = dir / "output";
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    int fd = open(output.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(fd, 1);
    dup2(fd, 2);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      std::perror(("private bind mount over " + target).c_str());
      _exit(90);
    }
    int status = body();
    std::fflush(nullptr);
    _exit(status);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile(output), ""};
}

}  // namespace bwk::test
