#include "platform/linux/gtk_loader.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdlib>
#include <mutex>
#include <optional>

namespace bwk::gtk {

namespace {

struct Loaded {
  Api api;
  bool ok = false;
  std::string error;
};

Loaded loadOnce() {
  Loaded loaded;
  // Local and lazy: nothing of GTK becomes visible to the rest of the process, and only the
  // functions called are bound. A later dlopen by the Java runtime's toolkit gets the same
  // library, already initialised.
  void* handle = ::dlopen("libgtk-3.so.0", RTLD_LAZY | RTLD_LOCAL);
  if (!handle) {
    const char* why = ::dlerror();
    loaded.error = why ? why : "libgtk-3.so.0 not found";
    return loaded;
  }
  // A lookup through the handle also searches GTK's dependencies (GDK, GLib, GObject,
  // gdk-pixbuf), so one handle serves the whole table.
#define BWK_GTK_LOOKUP(name, ret, params)                                    \
  loaded.api.name = reinterpret_cast<ret(*) params>(::dlsym(handle, #name)); \
  if (!loaded.api.name) {                                                    \
    loaded.error = "missing GTK function " #name;                            \
    return loaded;                                                           \
  }
  BWK_GTK_FUNCTIONS(BWK_GTK_LOOKUP)
#undef BWK_GTK_LOOKUP
  loaded.ok = true;
  return loaded;
}

// An environment variable set for as long as the object lives, then restored, so that
// neither the Java application nor the processes it starts inherit it. Left alone when the
// user has set it.
class TemporaryVariable {
 public:
  TemporaryVariable(const char* name, const char* value) : name_(name) {
    if (!std::getenv(name)) set_ = ::setenv(name, value, 1) == 0;
  }
  ~TemporaryVariable() {
    if (set_) ::unsetenv(name_);
  }
  TemporaryVariable(const TemporaryVariable&) = delete;
  TemporaryVariable& operator=(const TemporaryVariable&) = delete;

 private:
  const char* name_;
  bool set_ = false;
};

// Whether a session message bus can be found: the address in the environment, or the
// per-user bus socket that the message bus library falls back to.
bool hasSessionBus() {
  if (std::getenv("DBUS_SESSION_BUS_ADDRESS") || std::getenv("AT_SPI_BUS_ADDRESS")) return true;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  struct stat st;
  return runtime && *runtime && ::stat((std::string(runtime) + "/bus").c_str(), &st) == 0 && S_ISSOCK(st.st_mode);
}

const Loaded& loadedGtk() {
  static const Loaded loaded = loadOnce();
  return loaded;
}

}  // namespace

const Api* load(std::string* error) {
  const Loaded& loaded = loadedGtk();
  if (!loaded.ok) {
    if (error) *error = loaded.error;
    return nullptr;
  }
  return &loaded.api;
}

const Api* loadAndInit(bool keepLocale, std::string* error) {
  const Api* api = load(error);
  if (!api) return nullptr;
  // GTK can be initialised once per process; every later caller shares the outcome.
  static std::once_flag once;
  static bool initialised = false;
  std::call_once(once, [&] {
    if (keepLocale) api->gtk_disable_setlocale();
    // Opening the display, GDK looks for GL-capable visuals, which loads the system's GL
    // driver (without a GPU a software renderer: about 55 MB and tens of milliseconds). The
    // windows here draw without GL.
    TemporaryVariable noGl("GDK_GL", "disable");
    // The accessibility bridge needs the session bus; without one it would try to start a
    // bus of its own (dbus-launch), which no assistive technology listens on.
    std::optional<TemporaryVariable> noBridge;
    if (!hasSessionBus()) noBridge.emplace("NO_AT_BRIDGE", "1");
    // No argument vector: GTK must not take options away from the application's arguments.
    initialised = api->gtk_init_check(nullptr, nullptr) != 0;
  });
  if (!initialised) {
    if (error) *error = "gtk_init_check failed (no usable display)";
    return nullptr;
  }
  return api;
}

}  // namespace bwk::gtk
