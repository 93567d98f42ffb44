#include "frontend/linux/quit_hook.h"

#include <dlfcn.h>
#include <link.h>

#include <cstring>
#include <string>
#include <string_view>

#include "base/log.h"

namespace bwk {

namespace {

constexpr std::string_view kHookLibrary = "libbwkinst.so";

// The path of the first loaded object whose path ends with the library's name.
int findHookLibrary(dl_phdr_info* info, size_t, void* data) {
  std::string_view name = info->dlpi_name ? info->dlpi_name : "";
  if (name.size() >= kHookLibrary.size() && name.substr(name.size() - kHookLibrary.size()) == kHookLibrary) {
    *static_cast<std::string*>(data) = std::string(name);
    return 1;  // stop the walk
  }
  return 0;
}

}  // namespace

bool callQuitHook() {
  std::string library;
  ::dl_iterate_phdr(&findHookLibrary, &library);
  BWK_DLOG("%s [Line %d] lib name %s", library.empty() ? nullptr : library.c_str());
  // RTLD_NOLOAD: only a library that the Java side loaded itself counts.
  void* handle = library.empty() ? nullptr : ::dlopen(library.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  bool later = false;
  if (handle) {
    void* symbol = ::dlsym(handle, "callBrackwoodQuitHandler");
    BWK_DLOG("%s [Line %d] handler %p", static_cast<const void*>(symbol));
    if (symbol) later = reinterpret_cast<bool (*)()>(symbol)();
    ::dlclose(handle);  // drops only the reference taken above
  }
  if (later) {
    BWK_DLOG("%s [Line %d] terminate later");
  } else {
    BWK_DLOG("%s [Line %d] terminate now");
  }
  return later;
}

}  // namespace bwk
