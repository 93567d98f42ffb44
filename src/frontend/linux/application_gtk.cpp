// Application mode on Linux. A start that shows no window ("bwk.initialProgress" false, or a
// runtime from the cache of unpacked runtimes) runs the worker on the main thread and never loads GTK; one
// that shows it loads GTK at run time, runs our own main loop on the main thread and the
// installation worker on a background thread.
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "base/bundle.h"
#include "base/format.h"
#include "base/log.h"
#include "base/path.h"
#include "frontend/application.h"
#include "frontend/linux/progress_window_gtk.h"
#include "frontend/linux/quit_hook.h"
#include "install/app_delegate.h"
#include "platform/linux/gtk_loader.h"

namespace bwk {

namespace {

// The delegate's side of the application: what the platform's application object asks of
// it while launching and when the user wants to quit.
class GtkApplicationDelegate {
 public:
  GtkApplicationDelegate(const gtk::Api& gtk, const Bundle& bundle, AppDelegate& delegate)
      : gtk_(gtk), bundle_(bundle), delegate_(delegate), loop_(gtk.g_main_loop_new(nullptr, 0)), window_(gtk, loop_) {
    window_.onCancel = [this] { delegate_.cancel(); };
    window_.onCloseRequest = [this] { return applicationShouldTerminate(); };
    delegate_.window = &window_;
  }

  // No application menu on Linux. A hidden window ("bwk.initialProgress" false) never gets
  // here: that start loads no front end at all.
  void applicationWillFinishLaunching() { BWK_DLOG("%s [Line %d] app will finish launching"); }

  void applicationDidFinishLaunching() {
    BWK_DLOG("%s [Line %d] app finished launching");
    const Bundle& bundle = bundle_;
    std::string label = formatString(bundle.localizedString("PrepareInstaller", ""),
                                     {FormatArg(bundle.infoDictionary().string("CFBundleName"))});
    window_.setTexts(bundle.localizedString("WizardCaption", ""), label, bundle.localizedString("ButtonCancel", ""));
    if (void* icon = loadIcnsPixbuf(gtk_, path::append(bundle.resourcePath(), "app.icns"))) {
      window_.setIcon(icon);
      gtk_.g_object_unref(icon);
    }
    window_.show();
    std::thread([this] { delegate_.worker(); }).detach();
  }

  // The user closes the window. True keeps it open (the quit hook took over).
  bool applicationShouldTerminate() {
    if (callQuitHook()) return true;
    if (!window_.launchBegun()) {
      // While the runtime is being installed, quitting is a cancellation: the worker removes
      // its temporary directory and ends the process.
      window_.setCancelEnabled(false);
      delegate_.cancel();
      return true;
    }
    std::exit(0);
  }

  // Runs the main loop until the worker is about to start the runtime; from then on the
  // worker's thread owns the process and ends it, and this thread only waits.
  [[noreturn]] void run() {
    gtk_.g_main_loop_run(loop_);
    for (;;) ::pause();
  }

 private:
  const gtk::Api& gtk_;
  const Bundle& bundle_;
  AppDelegate& delegate_;
  void* loop_;
  GtkProgressWindow window_;
};

}  // namespace

std::optional<int> runApplication(AppDelegate& delegate) {
  if (!delegate.showsWindow()) {
    // Nothing to show: the worker runs here as in command-line mode, but an error is still
    // an alert (a process of its own, which loads GTK only then).
    BWK_DLOG("%s [Line %d] no progress window to show");
    delegate.worker();
  }
  std::string error;
  const gtk::Api* gtk = gtk::loadAndInit(true, &error);
  if (!gtk) {
    BWK_DLOG("%s [Line %d] no window front end: %@", error);
    return std::nullopt;
  }
  // Lives as long as the process: the worker ends it with exit() while the main thread may
  // still be inside the loop, so it is never destroyed.
  auto* application = new GtkApplicationDelegate(*gtk, delegate.bundle(), delegate);
  application->applicationWillFinishLaunching();
  application->applicationDidFinishLaunching();
  application->run();
}

}  // namespace bwk
