#pragma once
// The application delegate: owns the installation worker and, in graphic mode, the
// progress window.
#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "base/bundle.h"
#include "install/runtime_cache.h"
#include "launcher/launch_context.h"

namespace bwk {

// What the worker changes in the window. Calls come from the worker thread; an
// implementation queues them to the main loop. The command-line start has no window.
class ProgressWindow {
 public:
  virtual ~ProgressWindow() = default;
  virtual void setProgress(double value) = 0;
  // The launch begins: bar indeterminate, Cancel disabled.
  virtual void beginLaunch() = 0;
  // Close the window `seconds` from now.
  virtual void closeAfter(double seconds) = 0;
  // Last call, before the runtime starts in this process or the worker ends it: the window
  // is torn down and the main loop stopped, so that nothing of it runs while the process
  // exits or the runtime loads its own toolkit.
  virtual void shutDown() {}
};

class AppDelegate {
 public:
  // A bundle launch of `bundle` with the process's arguments; `commandLineMode`: no
  // graphical session, errors go to standard error.
  AppDelegate(const Bundle& bundle, std::vector<std::string> arguments, bool commandLineMode)
      : bundle_(bundle), arguments_(std::move(arguments)), commandLineMode_(commandLineMode) {}

  const Bundle& bundle() const { return bundle_; }
  const std::vector<std::string>& arguments() const { return arguments_; }
  // No window after all (the front end could not start): errors go to standard error.
  void useCommandLineMode() { commandLineMode_ = true; }

  // Whether this start shows the progress window: "bwk.initialProgress" is not false and
  // the runtime is not taken from the cache of unpacked runtimes. Decided once, before any
  // front end is loaded, so that a start without a window costs nothing of one.
  bool showsWindow();

  // Installs the bundled runtime if there is one, then loads and launches; ends the process
  // with the launch's status (1 after a cancellation or an internal error).
  [[noreturn]] void worker();
  // Extracts and unpacks the archive into `tempDir` (made when unset); returns the extracted
  // "jre.bundle" directory, absent when no temporary directory could be made. Ends the
  // process when unpack200 fails.
  std::optional<std::string> handleTar(const std::string& archive, const LaunchContext& context);
  // bundle/Contents/Home/jre when that exists, else bundle/Contents/Home.
  static std::string getJreLocation(const std::string& bundle);
  // The Cancel button's action.
  void cancel();

  std::atomic<bool> cancelled{false};
  std::optional<std::string> tempDir;
  ProgressWindow* window = nullptr;

 private:
  // Ends a start that failed or was cancelled: the temporary directory is removed and the
  // window torn down before the process ends with `status`.
  [[noreturn]] void abandon(int status);
  // Throws InstallationCancelled when the user cancelled or a termination signal came.
  void checkCancelled() const;

  // The bundle's runtime archive, when there is one; looked for once.
  const std::optional<std::string>& archive();
  // The cache of unpacked runtimes, when the bundle asks for it ("bwk.reuseUnpackedRuntime")
  // and it can be used here; opened once.
  std::optional<RuntimeCache>& cache();
  // The runtime to launch: the cache's entry, or the archive extracted (into a new entry or
  // the temporary directory). Absent when there was no place to extract to.
  std::optional<std::string> installRuntime(const std::string& archive, const LaunchContext& context);

  const Bundle& bundle_;
  std::vector<std::string> arguments_;
  bool commandLineMode_;
  std::optional<std::optional<std::string>> archive_;
  std::optional<std::optional<RuntimeCache>> cache_;
  // The last extraction read the whole archive without an error.
  bool extracted_ = false;
  std::optional<bool> showsWindow_;
};

}  // namespace bwk
