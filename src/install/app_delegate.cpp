// The installation worker: unpacks the bundled runtime archive into a temporary directory,
// hands it to the launcher, launches and ends the process with the launch's status.
#include "install/app_delegate.h"

#include <pthread.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "base/errors.h"
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "install/start_failure_watch.h"
#include "install/temporary_directory.h"
#include "install/untar.h"
#include "launcher/launcher.h"
#include "launcher/messages.h"
#include "launcher/unpacker.h"

namespace bwk {

namespace {

// The temporary directory that the exit handler removes: an atexit handler takes no
// argument, so it can only find it here.
std::optional<std::string> savedTempDir;

void on_exit_cleanup() {
  BWK_DLOG("%s [Line %d] cleanup %@", savedTempDir);
  if (savedTempDir) {
    removeTemporaryDirectory(*savedTempDir);
    savedTempDir.reset();
  }
}

// A termination signal that came while the runtime was being installed; 0 when none. The
// handler can only leave it here, and the worker looks at it at every progress report.
volatile std::sig_atomic_t pendingSignal = 0;
// The thread that installs; set before the handlers are, read only by them.
pthread_t installingThread;

// The signal may have gone to another thread (the window's): it is passed on to the
// installing thread too, so that a read it waits in (a stalled pipe or network file system)
// is interrupted instead of holding the start until data comes.
void notePendingSignal(int signal) {
  pendingSignal = signal;
  if (!pthread_equal(pthread_self(), installingThread)) pthread_kill(installingThread, signal);
}

// While the runtime is installed, SIGINT, SIGTERM and SIGHUP do not end the process at once:
// the worker stops at its next progress report, or as soon as a read is interrupted, removes
// the temporary directory and ends with the signal's status. Signals the process ignores stay
// ignored.
class InstallationSignals {
 public:
  InstallationSignals() {
    installingThread = pthread_self();
    for (size_t i = 0; i < kSignals.size(); ++i) {
      struct sigaction note {};
      note.sa_handler = notePendingSignal;
      sigemptyset(&note.sa_mask);
      // Without SA_RESTART: a read waiting for data ends with EINTR and extraction asks the
      // progress callback, which sees the signal.
      note.sa_flags = 0;
      ::sigaction(kSignals[i], nullptr, &previous_[i]);
      if (previous_[i].sa_handler != SIG_IGN) ::sigaction(kSignals[i], &note, nullptr);
    }
  }
  ~InstallationSignals() {
    for (size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &previous_[i], nullptr);
  }
  InstallationSignals(const InstallationSignals&) = delete;
  InstallationSignals& operator=(const InstallationSignals&) = delete;

 private:
  // std::array: indexing past the end stops the process instead of reading a stray signal.
  static constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, kSignals.size()> previous_{};
};

}  // namespace

std::string AppDelegate::getJreLocation(const std::string& bundle) {
  std::string home = path::append(bundle, "Contents/Home");
  std::string jre = path::append(home, "jre");
  return fs::exists(jre) ? jre : home;
}

void AppDelegate::cancel() { cancelled = true; }

const std::optional<std::string>& AppDelegate::archive() {
  if (!archive_) {
    std::string archive = path::append(bundle_.resourcePath(), "app/jre.tar.gz");
    archive_ = fs::exists(archive) ? std::optional<std::string>(archive) : std::nullopt;
  }
  return *archive_;
}

std::optional<RuntimeCache>& AppDelegate::cache() {
  if (!cache_) {
    cache_.emplace();
    const PlistValue& info = bundle_.infoDictionary();
    if (archive() && info.boolean("bwk.reuseUnpackedRuntime").value_or(false)) {
      OptionalString name = info.string("CFBundleIdentifier");
      if (!name || name->empty()) name = info.string("CFBundleName");
      *cache_ = RuntimeCache::open(*archive(), name);
    }
  }
  return *cache_;
}

bool AppDelegate::showsWindow() {
  if (!showsWindow_) {
    // A runtime found in the cache of unpacked runtimes leaves nothing to wait for.
    showsWindow_ = !(archive() && cache() && cache()->found());
    std::optional<bool> initialProgress = bundle_.infoDictionary().boolean("bwk.initialProgress");
    if (*showsWindow_ && initialProgress && !*initialProgress) {
      BWK_DLOG("%s [Line %d] hiding progress window");
      showsWindow_ = false;
    }
  }
  return *showsWindow_;
}

void AppDelegate::checkCancelled() const {
  if (int signal = pendingSignal) throw InstallationCancelled(signal);
  if (cancelled) throw InstallationCancelled();
}

std::optional<std::string> AppDelegate::handleTar(const std::string& archive, const LaunchContext& context) {
  if (!tempDir) tempDir = createTemporaryDirectory();
  // Without a temporary directory there is no place to extract to: extraction fails with
  // its warning and the regular search decides.
  std::optional<std::string> bundle;
  if (tempDir) bundle = path::append(*tempDir, "jre.bundle");
  int32_t size = static_cast<int32_t>(bundle_.infoDictionary().integer("bwk.jreUncompressedSize").value_or(6000000));
  if (bundle) fs::createDirectory(*bundle, false);

  ProgressCallback extraction = [this](double percent, const char*) {
    checkCancelled();
    if (window) window->setProgress(percent * 0.7);
  };
  UnTar::Outcome outcome = bundle ? UnTar::untar(archive, *bundle, size, &extraction) : UnTar::Outcome{};
  extracted_ = outcome.complete;
  const int destinationError = outcome.destinationError;
  if (!extracted_) BWK_SYSLOG("%s [Line %d] WARNING: errors occurred while unpacking bundled JRE");
  BWK_DLOG("%s [Line %d] jre destination %@", bundle);
  checkCancelled();
  if (!bundle) return std::nullopt;
  // A damaged archive still gives what could be extracted; a destination that could not take
  // it all (a full disk) gives a runtime with pieces missing, which is never started.
  if (destinationError != 0)
    throw ReportedFailure("fenmo.InternalError", "the bundled runtime could not be unpacked into " + *tempDir + ": " +
                                                     std::strerror(destinationError));

  // A "jre" folder is looked for twice on purpose: older runtimes nest one more level.
  std::string home = getJreLocation(*bundle);
  std::string jre = path::append(home, "jre");
  std::string target = fs::exists(jre) ? jre : home;

  ProgressCallback unpacking = [this](double percent, const char*) {
    checkCancelled();
    if (window) window->setProgress(percent * 0.3 + 70.0);
  };
  if (!Unpacker::unpack(target, &unpacking)) {
    // The same Ctrl-C that interrupted the worker ends unpack200 too.
    checkCancelled();
    displayError(context, "fenmo.InternalError", std::string("could not run unpack200"));
    if (window) window->shutDown();
    std::exit(1);  // the exit handler is not registered yet: the directory stays
  }
  return bundle;
}

std::optional<std::string> AppDelegate::installRuntime(const std::string& archive, const LaunchContext& context) {
  std::optional<RuntimeCache>& cache = this->cache();
  if (cache && cache->found()) return cache->found();
  // A new entry is extracted beside the others, and becomes one only when complete; until
  // then it is this process's temporary directory, removed on every way out.
  bool staged = false;
  if (cache) {
    tempDir = cache->makeStaging();
    staged = tempDir.has_value();
  }
  std::optional<std::string> bundle = handleTar(archive, context);
  if (!staged) return bundle;
  if (!extracted_) {
    BWK_DLOG("%s [Line %d] runtime cache not made (errors while unpacking): %@ is removed at exit", tempDir);
    return bundle;
  }
  if (std::optional<std::string> kept = cache->keep(*tempDir)) {
    tempDir.reset();  // the exit cleanup never removes an entry
    return kept;
  }
  return bundle;
}

void AppDelegate::worker() {
  tempDir.reset();
  cancelled = false;
  BWK_DLOG("%s [Line %d] worker started");
  const LaunchContext context = LaunchContext::forBundle(bundle_, arguments_, commandLineMode_);
  Launcher launcher(context);
  int code = 1;
  try {
    {
      InstallationSignals signals;
      if (const std::optional<std::string>& archive = this->archive()) {
        std::optional<std::string> bundle = installRuntime(*archive, context);
        launcher.setInstallerJreBundle(bundle, bundle ? archive : std::nullopt);
      }
      if (window) {
        window->beginLaunch();
        window->closeAfter(5.0);
      }
      savedTempDir = tempDir;
      std::atexit(on_exit_cleanup);
      // A signal that came after the last progress report ends the start here.
      checkCancelled();
    }
    // Nobody sees standard error when an application is opened from the desktop.
    if (!context.reportOnStandardError) watchJavaStart(context);
    BWK_DLOG("%s [Line %d] launching JVM");
    Launcher& loaded = launcher.load();
    if (window) window->shutDown();
    code = loaded.launch();
    BWK_DLOG("%s [Line %d] launch exit code: %d", code);
  } catch (const InstallationCancelled& cancellation) {
    BWK_DLOG("%s [Line %d] Cancelled");
    abandon(cancellation.signal() ? 128 + *cancellation.signal() : 1);
  } catch (const ReportedFailure& failure) {
    displayError(context, failure.messageKey(), failure.info());
    abandon(1);
  } catch (const PlatformException& e) {
    displayInternalError(*context.bundle, context.configuration, context.reportOnStandardError, e);
    BWK_DLOG("%s [Line %d] %@: %@", e.name() + ": " + e.reason(), e.callStackSymbols());
    abandon(1);
  }
  std::exit(code);
}

void AppDelegate::abandon(int status) {
  if (tempDir) removeTemporaryDirectory(*tempDir);
  savedTempDir.reset();
  if (window) window->shutDown();
  std::exit(status);
}

}  // namespace bwk
