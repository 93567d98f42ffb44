#include "platform/linux/gtk_loader.h"

#include <dlfcn.h>

#include <mutex>

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
#define BWK_GTK_LOOKUP(name, ret, params)                                       \
  loaded.api.name = reinterpret_cast<ret(*) params>(::dlsym(handle, #name));   \
  if (!loaded.api.name) {                                                       \
    loaded.error = "missing GTK function " #name;                              \
    return loaded;                                                              \
  }
  BWK_GTK_FUNCTIONS(BWK_GTK_LOOKUP)
#undef BWK_GTK_LOOKUP
  loaded.ok = true;
  return loaded;
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
