#pragma once
// GTK 3 opened at run time: the launcher links no GTK, so that it starts where GTK is
// missing and runs in command-line mode there. Only the functions listed below are used;
// GTK's objects are opaque pointers here.
#include <string>

namespace bwk::gtk {

using gboolean = int;
using gpointer = void*;
using GCallback = void (*)();
using GSourceFunc = gboolean (*)(gpointer);

// Values of the GTK enumerations used.
constexpr int kWindowToplevel = 0;  // GTK_WINDOW_TOPLEVEL
constexpr int kWinPosCenter = 1;    // GTK_WIN_POS_CENTER
constexpr int kOrientationHorizontal = 0;
constexpr int kOrientationVertical = 1;
constexpr int kAlignEnd = 2;        // GTK_ALIGN_END
constexpr int kAlignCenter = 3;     // GTK_ALIGN_CENTER
constexpr int kAlignStart = 1;      // GTK_ALIGN_START
constexpr int kMessageError = 3;    // GTK_MESSAGE_ERROR
constexpr int kButtonsOk = 1;       // GTK_BUTTONS_OK
constexpr int kInterpBilinear = 2;  // GDK_INTERP_BILINEAR

// name, return type, parameters
#define BWK_GTK_FUNCTIONS(X)                                                                     \
  X(gtk_disable_setlocale, void, (void))                                                         \
  X(gtk_init_check, gboolean, (int*, char***))                                                   \
  X(gtk_window_new, void*, (int))                                                                \
  X(gtk_window_set_title, void, (void*, const char*))                                            \
  X(gtk_window_set_resizable, void, (void*, gboolean))                                           \
  X(gtk_window_set_position, void, (void*, int))                                                 \
  X(gtk_window_set_icon, void, (void*, void*))                                                   \
  X(gtk_window_set_keep_above, void, (void*, gboolean))                                          \
  X(gtk_window_present, void, (void*))                                                           \
  X(gtk_container_add, void, (void*, void*))                                                     \
  X(gtk_container_set_border_width, void, (void*, unsigned))                                     \
  X(gtk_box_new, void*, (int, int))                                                              \
  X(gtk_box_pack_start, void, (void*, void*, gboolean, gboolean, unsigned))                      \
  X(gtk_label_new, void*, (const char*))                                                         \
  X(gtk_label_set_text, void, (void*, const char*))                                              \
  X(gtk_label_set_xalign, void, (void*, float))                                                  \
  X(gtk_progress_bar_new, void*, (void))                                                         \
  X(gtk_progress_bar_set_fraction, void, (void*, double))                                        \
  X(gtk_progress_bar_set_pulse_step, void, (void*, double))                                      \
  X(gtk_progress_bar_pulse, void, (void*))                                                       \
  X(gtk_button_new_with_label, void*, (const char*))                                             \
  X(gtk_button_set_label, void, (void*, const char*))                                            \
  X(gtk_image_new, void*, (void))                                                                \
  X(gtk_image_set_from_pixbuf, void, (void*, void*))                                             \
  X(gtk_widget_show_all, void, (void*))                                                          \
  X(gtk_widget_set_sensitive, void, (void*, gboolean))                                           \
  X(gtk_widget_set_halign, void, (void*, int))                                                   \
  X(gtk_widget_set_valign, void, (void*, int))                                                   \
  X(gtk_widget_set_size_request, void, (void*, int, int))                                        \
  X(gtk_widget_destroy, void, (void*))                                                           \
  X(gtk_message_dialog_new, void*, (void*, int, int, int, const char*, ...))                     \
  X(gtk_message_dialog_format_secondary_text, void, (void*, const char*, ...))                   \
  X(gtk_dialog_run, int, (void*))                                                                \
  X(gdk_display_get_default, void*, (void))                                                      \
  X(gdk_display_flush, void, (void*))                                                            \
  X(gdk_pixbuf_loader_new, void*, (void))                                                        \
  X(gdk_pixbuf_loader_write, gboolean, (void*, const unsigned char*, size_t, void**))            \
  X(gdk_pixbuf_loader_close, gboolean, (void*, void**))                                          \
  X(gdk_pixbuf_loader_get_pixbuf, void*, (void*))                                                \
  X(gdk_pixbuf_get_width, int, (const void*))                                                    \
  X(gdk_pixbuf_get_height, int, (const void*))                                                   \
  X(gdk_pixbuf_scale_simple, void*, (const void*, int, int, int))                                \
  X(g_object_ref, void*, (void*))                                                                \
  X(g_object_unref, void, (void*))                                                               \
  X(g_error_free, void, (void*))                                                                 \
  X(g_signal_connect_data, unsigned long, (void*, const char*, GCallback, gpointer, void*, int)) \
  X(g_main_loop_new, void*, (void*, gboolean))                                                   \
  X(g_main_loop_run, void, (void*))                                                              \
  X(g_main_loop_quit, void, (void*))                                                             \
  X(g_idle_add, unsigned, (GSourceFunc, gpointer))                                               \
  X(g_timeout_add, unsigned, (unsigned, GSourceFunc, gpointer))                                  \
  X(g_source_remove, gboolean, (unsigned))

struct Api {
#define BWK_GTK_MEMBER(name, ret, params) ret(*name) params = nullptr;
  BWK_GTK_FUNCTIONS(BWK_GTK_MEMBER)
#undef BWK_GTK_MEMBER

  // g_signal_connect is a macro in GTK's headers.
  template <typename Handler>
  unsigned long connect(void* instance, const char* signal, Handler handler, gpointer data) const {
    return g_signal_connect_data(instance, signal, reinterpret_cast<GCallback>(handler), data, nullptr, 0);
  }
};

// Opens libgtk-3.so.0 once and looks every function up. Null when the library or one of
// the functions is missing; `error` (may be null) then says why. The library stays loaded.
const Api* load(std::string* error = nullptr);

// load(), then gtk_init_check, once per process. `keepLocale` keeps GTK from calling
// setlocale (the launcher and the Java runtime rely on the C locale). Null when GTK is
// missing or the display cannot be opened.
const Api* loadAndInit(bool keepLocale, std::string* error = nullptr);

}  // namespace bwk::gtk
