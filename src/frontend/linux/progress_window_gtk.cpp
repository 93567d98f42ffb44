#include "frontend/linux/progress_window_gtk.h"

#include <algorithm>

#include "base/fs.h"
#include "base/icns.h"

namespace bwk {

namespace {

constexpr int kIconSize = 64;
constexpr unsigned kPulseMilliseconds = 100;
constexpr gtk::gboolean kRemoveSource = 0;
constexpr gtk::gboolean kKeepSource = 1;

GtkProgressWindow* self(gtk::gpointer p) { return static_cast<GtkProgressWindow*>(p); }

}  // namespace

GtkProgressWindow::GtkProgressWindow(const gtk::Api& gtk, void* loop) : gtk_(gtk), loop_(loop) {
  window_ = gtk_.gtk_window_new(gtk::kWindowToplevel);
  gtk_.gtk_window_set_resizable(window_, 0);
  gtk_.gtk_window_set_position(window_, gtk::kWinPosCenter);
  gtk_.gtk_container_set_border_width(window_, 16);
  gtk_.gtk_widget_set_size_request(window_, 440, -1);

  void* column = gtk_.gtk_box_new(gtk::kOrientationVertical, 12);
  void* row = gtk_.gtk_box_new(gtk::kOrientationHorizontal, 16);
  void* texts = gtk_.gtk_box_new(gtk::kOrientationVertical, 10);
  icon_ = gtk_.gtk_image_new();
  gtk_.gtk_widget_set_size_request(icon_, kIconSize, kIconSize);
  gtk_.gtk_widget_set_valign(icon_, gtk::kAlignStart);
  label_ = gtk_.gtk_label_new("");
  gtk_.gtk_label_set_xalign(label_, 0.0f);
  bar_ = gtk_.gtk_progress_bar_new();
  gtk_.gtk_progress_bar_set_pulse_step(bar_, 0.05);
  gtk_.gtk_widget_set_valign(texts, gtk::kAlignCenter);
  button_ = gtk_.gtk_button_new_with_label("");
  gtk_.gtk_widget_set_halign(button_, gtk::kAlignEnd);

  gtk_.gtk_box_pack_start(texts, label_, 0, 0, 0);
  gtk_.gtk_box_pack_start(texts, bar_, 0, 0, 0);
  gtk_.gtk_box_pack_start(row, icon_, 0, 0, 0);
  gtk_.gtk_box_pack_start(row, texts, 1, 1, 0);
  gtk_.gtk_box_pack_start(column, row, 1, 1, 0);
  gtk_.gtk_box_pack_start(column, button_, 0, 0, 0);
  gtk_.gtk_container_add(window_, column);

  gtk_.connect(button_, "clicked", &GtkProgressWindow::cancelClicked, this);
  gtk_.connect(window_, "delete-event", &GtkProgressWindow::deleteRequested, this);
}

void GtkProgressWindow::setTexts(const std::string& title, const std::string& label, const std::string& button) {
  if (!window_) return;
  gtk_.gtk_window_set_title(window_, title.c_str());
  gtk_.gtk_label_set_text(label_, label.c_str());
  gtk_.gtk_button_set_label(button_, button.c_str());
}

void GtkProgressWindow::setIcon(void* pixbuf) {
  if (!window_ || !pixbuf) return;
  gtk_.gtk_image_set_from_pixbuf(icon_, pixbuf);
  gtk_.gtk_window_set_icon(window_, pixbuf);
}

void GtkProgressWindow::show() {
  if (!window_) return;
  gtk_.gtk_widget_show_all(window_);
  gtk_.gtk_window_present(window_);
}

void GtkProgressWindow::close() {
  removeTimers();
  if (!window_) return;
  gtk_.gtk_widget_destroy(window_);
  window_ = icon_ = label_ = bar_ = button_ = nullptr;
}

void GtkProgressWindow::setCancelEnabled(bool enabled) {
  if (button_) gtk_.gtk_widget_set_sensitive(button_, enabled ? 1 : 0);
}

void GtkProgressWindow::removeTimers() {
  if (pulseTimer_) gtk_.g_source_remove(pulseTimer_);
  if (closeTimer_) gtk_.g_source_remove(closeTimer_);
  pulseTimer_ = closeTimer_ = 0;
}

void GtkProgressWindow::queue(gtk::GSourceFunc callback) {
  if (!stopping_) gtk_.g_idle_add(callback, this);
}

// --- worker thread -------------------------------------------------------------------------

void GtkProgressWindow::setProgress(double value) {
  pendingProgress_ = value;
  // Extraction reports every few kilobytes; one queued update at a time carries the latest.
  if (!progressQueued_.exchange(true)) queue(&GtkProgressWindow::applyProgress);
}

void GtkProgressWindow::beginLaunch() { queue(&GtkProgressWindow::applyBeginLaunch); }

void GtkProgressWindow::closeAfter(double seconds) {
  closeDelay_ = seconds;
  queue(&GtkProgressWindow::scheduleClose);
}

void GtkProgressWindow::shutDown() {
  std::unique_lock<std::mutex> lock(mutex_);
  if (tornDown_) return;
  gtk_.g_idle_add(&GtkProgressWindow::tearDown, this);
  tornDownSignal_.wait(lock, [this] { return tornDown_; });
}

// --- main thread -----------------------------------------------------------------------------

gtk::gboolean GtkProgressWindow::applyProgress(gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  w->progressQueued_ = false;  // before reading, so that a newer value queues again
  double value = w->pendingProgress_;
  if (w->bar_) w->gtk_.gtk_progress_bar_set_fraction(w->bar_, std::clamp(value / 100.0, 0.0, 1.0));
  return kRemoveSource;
}

gtk::gboolean GtkProgressWindow::applyBeginLaunch(gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  w->launchBegun_ = true;
  w->setCancelEnabled(false);
  if (w->bar_ && !w->pulseTimer_) {
    w->gtk_.gtk_progress_bar_pulse(w->bar_);
    w->pulseTimer_ = w->gtk_.g_timeout_add(kPulseMilliseconds, &GtkProgressWindow::pulse, w);
  }
  return kRemoveSource;
}

gtk::gboolean GtkProgressWindow::pulse(gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  if (!w->bar_) {
    w->pulseTimer_ = 0;
    return kRemoveSource;
  }
  w->gtk_.gtk_progress_bar_pulse(w->bar_);
  return kKeepSource;
}

gtk::gboolean GtkProgressWindow::scheduleClose(gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  if (w->window_ && !w->closeTimer_) {
    auto ms = static_cast<unsigned>(std::max(0.0, w->closeDelay_.load()) * 1000.0);
    w->closeTimer_ = w->gtk_.g_timeout_add(ms, &GtkProgressWindow::closeNow, w);
  }
  return kRemoveSource;
}

gtk::gboolean GtkProgressWindow::closeNow(gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  w->closeTimer_ = 0;  // this source ends with the return below
  w->close();
  return kRemoveSource;
}

gtk::gboolean GtkProgressWindow::tearDown(gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  w->stopping_ = true;
  w->close();
  if (void* display = w->gtk_.gdk_display_get_default()) w->gtk_.gdk_display_flush(display);
  w->gtk_.g_main_loop_quit(w->loop_);
  {
    std::lock_guard<std::mutex> lock(w->mutex_);
    w->tornDown_ = true;
  }
  w->tornDownSignal_.notify_all();
  return kRemoveSource;
}

void GtkProgressWindow::cancelClicked(void*, gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  w->setCancelEnabled(false);
  if (w->onCancel) w->onCancel();
}

gtk::gboolean GtkProgressWindow::deleteRequested(void*, void*, gtk::gpointer p) {
  GtkProgressWindow* w = self(p);
  return w->onCloseRequest && w->onCloseRequest() ? 1 : 0;
}

void* loadIcnsPixbuf(const gtk::Api& gtk, const std::string& path) {
  std::optional<std::string> contents = fs::readFile(path);
  if (!contents) return nullptr;
  std::string png = icns::largestPng(*contents);
  if (png.empty()) return nullptr;
  void* loader = gtk.gdk_pixbuf_loader_new();
  void* pixbuf = nullptr;
  bool written =
      gtk.gdk_pixbuf_loader_write(loader, reinterpret_cast<const unsigned char*>(png.data()), png.size(), nullptr);
  // close must be called in every case; a failed write makes it fail too.
  bool closed = gtk.gdk_pixbuf_loader_close(loader, nullptr);
  if (written && closed) pixbuf = gtk.gdk_pixbuf_loader_get_pixbuf(loader);
  if (pixbuf) {
    if (gtk.gdk_pixbuf_get_width(pixbuf) > kIconSize || gtk.gdk_pixbuf_get_height(pixbuf) > kIconSize)
      pixbuf = gtk.gdk_pixbuf_scale_simple(pixbuf, kIconSize, kIconSize, gtk::kInterpBilinear);
    else
      gtk.g_object_ref(pixbuf);  // outlives the loader
  }
  gtk.g_object_unref(loader);
  return pixbuf;
}

}  // namespace bwk
