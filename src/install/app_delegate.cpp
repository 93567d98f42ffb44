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
#include "base/platform_exception.h"
#include "install/unpacker.h"
#include "install/untar.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// The temporary directory that the exit handler removes.
std::optional<std::string> savedTempDir;

void on_exit_cleanup() {
  BWK_DLOG("%s [Line %d] cleanup %@", savedTempDir);
  if (savedTempDir) {
    fs::removeItem(*savedTempDir);
    savedTempDir.reset();
  }
}

[[noreturn]] void throwCancelled() { throw PlatformException("BrackwoodCancelled", ""); }

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

std::string AppDelegate::handleTar(const std::string& archive) {
  if (!tempDir) tempDir = createTemporaryDirectory();
  std::string bundle = path::append(tempDir.value_or("(null)"), "jre.bundle");
  int32_t size = static_cast<int32_t>(Bundle::main().infoDictionary().integer("bwk.jreUncompressedSize").value_or(6000000));
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
    Launcher::displayError("fenmo.InternalError", std::string("could not run unpack200"));
    if (window) window->shutDown();
    std::exit(1);  // the exit handler is not registered yet: the directory stays
  }
  return bundle;
}

void AppDelegate::worker() {
  tempDir.reset();
  cancelled = false;
  BWK_DLOG("%s [Line %d] worker started");
  std::string archive = path::append(Bundle::main().resourcePath(), "app/jre.tar.gz");
  std::unique_ptr<Launcher> launcher = Launcher::launcher();
  int code = 1;
  try {
    if (fs::exists(archive)) {
      std::string bundle = handleTar(archive);
      launcher->setInstallerJreBundle(bundle, tempDir ? OptionalString(archive) : std::nullopt);
    }
    if (window) {
      window->beginLaunch();
      window->closeAfter(5.0);
    }
    savedTempDir = tempDir;
    std::atexit(on_exit_cleanup);
    BWK_DLOG("%s [Line %d] launching JVM");
    Launcher& loaded = launcher->load();
    if (window) window->shutDown();
    code = loaded.launch();
    BWK_DLOG("%s [Line %d] launch exit code: %d", code);
  } catch (const PlatformException& e) {
    if (e.name() == "BrackwoodCancelled") {
      BWK_DLOG("%s [Line %d] Cancelled");
    } else {
      Launcher::displayError("fenmo.InternalError", e.description());
      BWK_DLOG("%s [Line %d] %@: %@", e.name() + ": " + e.reason(), e.callStackSymbols());
    }
    if (tempDir) fs::removeItem(*tempDir);
    savedTempDir.reset();
    if (window) window->shutDown();
    std::exit(1);
  }
  std::exit(code);
}

}  // namespace bwk
