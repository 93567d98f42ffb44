// The installation worker: unpacks the bundled runtime archive into a temporary directory,
// hands it to the launcher, launches and ends the process with the launch's status.
#include "install/app_delegate.h"

#include <sys/stat.h>

#include <cstdlib>
#include <mutex>

#include "base/bundle.h"
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/errors.h"
#include "install/untar.h"
#include "launcher/launcher.h"
#include "launcher/messages.h"
#include "launcher/unpacker.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// The temporary directory that the exit handler removes: an atexit handler takes no
// argument, so it can only find it here.
std::optional<std::string> savedTempDir;

void on_exit_cleanup() {
  BWK_DLOG("%s [Line %d] cleanup %@", savedTempDir);
  if (savedTempDir) {
    fs::removeItem(*savedTempDir);
    savedTempDir.reset();
  }
}

[[noreturn]] void throwCancelled() { throw InstallationCancelled(); }

}  // namespace

std::optional<std::string> AppDelegate::createTemporaryDirectory() {
  std::string dir = path::append(platform::temporaryDirectory(), platform::globallyUniqueString());
  // Only this user may look into the runtime that is about to run.
  if (::mkdir(dir.c_str(), 0700) != 0) return std::nullopt;
  return dir;
}

std::string AppDelegate::getJreLocation(const std::string& bundle) {
  std::string home = path::append(bundle, "Contents/Home");
  std::string jre = path::append(home, "jre");
  return fs::exists(jre) ? jre : home;
}

void AppDelegate::cancel() { cancelled = true; }

std::string AppDelegate::handleTar(const std::string& archive, const LaunchContext& context) {
  if (!tempDir) tempDir = createTemporaryDirectory();
  std::string bundle = path::append(tempDir.value_or("(null)"), "jre.bundle");
  int32_t size = static_cast<int32_t>(bundle_.infoDictionary().integer("bwk.jreUncompressedSize").value_or(6000000));
  fs::createDirectory(bundle, false);

  ProgressCallback extraction = [this](double percent, const char*) {
    if (cancelled) throwCancelled();
    if (window) window->setProgress(percent * 0.7);
  };
  if (!UnTar::untar(archive, bundle, size, &extraction))
    BWK_SYSLOG("%s [Line %d] WARNING: errors occurred while unpacking bundled JRE");
  BWK_DLOG("%s [Line %d] jre destination %@", bundle);

  // A "jre" folder is looked for twice on purpose: older runtimes nest one more level.
  std::string home = getJreLocation(bundle);
  std::string jre = path::append(home, "jre");
  std::string target = fs::exists(jre) ? jre : home;
  if (cancelled) throwCancelled();

  ProgressCallback unpacking = [this](double percent, const char*) {
    if (cancelled) throwCancelled();
    if (window) window->setProgress(percent * 0.3 + 70.0);
  };
  if (!Unpacker::unpack(target, &unpacking)) {
    displayError(context, "fenmo.InternalError", std::string("could not run unpack200"));
    if (window) window->shutDown();
    std::exit(1);  // the exit handler is not registered yet: the directory stays
  }
  return bundle;
}

void AppDelegate::worker() {
  tempDir.reset();
  cancelled = false;
  BWK_DLOG("%s [Line %d] worker started");
  std::string archive = path::append(bundle_.resourcePath(), "app/jre.tar.gz");
  const LaunchContext context = LaunchContext::forBundle(bundle_, arguments_, commandLineMode_);
  Launcher launcher(context);
  int code = 1;
  try {
    if (fs::exists(archive)) {
      std::string bundle = handleTar(archive, context);
      launcher.setInstallerJreBundle(bundle, tempDir ? OptionalString(archive) : std::nullopt);
    }
    if (window) {
      window->beginLaunch();
      window->closeAfter(5.0);
    }
    savedTempDir = tempDir;
    std::atexit(on_exit_cleanup);
    BWK_DLOG("%s [Line %d] launching JVM");
    Launcher& loaded = launcher.load();
    if (window) window->shutDown();
    code = loaded.launch();
    BWK_DLOG("%s [Line %d] launch exit code: %d", code);
  } catch (const InstallationCancelled&) {
    BWK_DLOG("%s [Line %d] Cancelled");
    abandon();
  } catch (const ReportedFailure& failure) {
    displayError(context, failure.messageKey(), failure.info());
    abandon();
  } catch (const PlatformException& e) {
    displayError(context, "fenmo.InternalError", e.description());
    BWK_DLOG("%s [Line %d] %@: %@", e.name() + ": " + e.reason(), e.callStackSymbols());
    abandon();
  }
  std::exit(code);
}

void AppDelegate::abandon() {
  if (tempDir) fs::removeItem(*tempDir);
  savedTempDir.reset();
  if (window) window->shutDown();
  std::exit(1);
}

}  // namespace bwk
