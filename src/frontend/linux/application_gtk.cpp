// Application mode on Linux: GTK loaded at run time, the progress window, our own main loop
// on the main thread and the installation worker on a background thread.
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

  // No application menu on Linux; the window may be closed before it is ever shown.
  void applicationWillFinishLaunching() {
    BWK_DLOG("%s [Line %d] app will finish launching");
    std::optional<bool> initialProgress = bundle_.infoDictionary().boolean("bwk.initialProgress");
    if (initialProgress && !*initialProgress) {
      BWK_DLOG("%s [Line %d] hiding progress window");
      window_.close();
    }
  }

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

std::optional<int> runApplication(const Bundle& bundle, const std::vector<std::string>& arguments) {
  std::string error;
  const gtk::Api* gtk = gtk::loadAndInit(true, &error);
  if (!gtk) {
    BWK_DLOG("%s [Line %d] no window front end: %@", error);
    return std::nullopt;
  }
  // Both live as long as the process: the worker ends it with exit() while the main thread
  // may still be inside the loop, so they are never destroyed.
  auto* delegate = new AppDelegate(bundle, arguments, false);
  auto* application = new GtkApplicationDelegate(*gtk, bundle, *delegate);
  application->applicationWillFinishLaunching();
  application->applicationDidFinishLaunching();
  application->run();
}

}  // namespace bwk
