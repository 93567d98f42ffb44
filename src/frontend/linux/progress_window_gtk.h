#pragma once
// The progress window on GTK: icon, one-line label, bar from 0 to 100 and a Cancel button.
// Built and changed on the main thread only; the worker's calls are queued to the main loop.
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include "install/app_delegate.h"
#include "platform/linux/gtk_loader.h"

namespace bwk {

class GtkProgressWindow final : public ProgressWindow {
 public:
  // Builds the window without showing it. `loop` is the main loop that shutDown stops.
  GtkProgressWindow(const gtk::Api& gtk, void* loop);

  // Main thread.
  void setTexts(const std::string& title, const std::string& label, const std::string& button);
  void setIcon(void* pixbuf);  // null leaves the view empty
  void show();
  // Closed before it was ever shown: the controls are gone, updates do nothing.
  void close();
  void setCancelEnabled(bool enabled);
  bool launchBegun() const { return launchBegun_; }
  // Called on the main thread: the Cancel click, and the user's request to close the window
  // (true keeps the window open).
  std::function<void()> onCancel;
  std::function<bool()> onCloseRequest;

  // Worker thread.
  void setProgress(double value) override;
  void beginLaunch() override;
  void closeAfter(double seconds) override;
  // Destroys the window, stops the loop and flushes the display, all on the main thread,
  // and returns when that is done: the runtime's toolkit may use GTK afterwards.
  void shutDown() override;

 private:
  static gtk::gboolean applyProgress(gtk::gpointer self);
  static gtk::gboolean applyBeginLaunch(gtk::gpointer self);
  static gtk::gboolean scheduleClose(gtk::gpointer self);
  static gtk::gboolean closeNow(gtk::gpointer self);
  static gtk::gboolean pulse(gtk::gpointer self);
  static gtk::gboolean tearDown(gtk::gpointer self);
  static void cancelClicked(void* button, gtk::gpointer self);
  static gtk::gboolean deleteRequested(void* window, void* event, gtk::gpointer self);
  void removeTimers();
  // Queues `callback` unless the window has been torn down.
  void queue(gtk::GSourceFunc callback);

  const gtk::Api& gtk_;
  void* loop_;
  void* window_ = nullptr;
  void* icon_ = nullptr;
  void* label_ = nullptr;
  void* bar_ = nullptr;
  void* button_ = nullptr;
  unsigned pulseTimer_ = 0;
  unsigned closeTimer_ = 0;
  bool launchBegun_ = false;

  std::atomic<bool> stopping_{false};
  std::atomic<double> pendingProgress_{0};
  std::atomic<bool> progressQueued_{false};
  std::atomic<double> closeDelay_{0};
  std::mutex mutex_;
  std::condition_variable tornDownSignal_;
  bool tornDown_ = false;
};

// The icon for the window from an .icns file: its largest PNG image, scaled down to the
// window's icon size. Null when the file is missing or holds no usable image.
void* loadIcnsPixbuf(const gtk::Api& gtk, const std::string& path);

}  // namespace bwk
