// From a chosen runtime to a running Java virtual machine: the argument vector, the
// runtime's launcher library, argument files and JLI_Launch.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/platform_exception.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

namespace {

// The list record of the runtime's launcher library: elements first, then the count.
struct JliList {
  char** elements;
  size_t size;
  size_t capacity;
};
using JLI_List_new_t = JliList* (*)(size_t capacity);
using JLI_List_add_t = void (*)(JliList* list, char* s);
using JLI_InitArgProcessing_t = void (*)(unsigned char hasJavaArgs, unsigned char disableArgFile);
using JLI_PreprocessArg_t = JliList* (*)(const char* arg, unsigned char expandSourceOpt);
using JLI_StringDup_t = char* (*)(const char* s);
using JLI_MemFree_t = void (*)(void* p);

}  // namespace

void Launcher::setInstallerJreBundle(const OptionalString& jreBundle, const OptionalString& archive) {
  installerJreBundle = jreBundle;
  tarFile = archive;
}

Launcher& Launcher::load() {
  findJavaBundle();
  if (!javaBundlePath) return *this;

  std::vector<std::string> options, args;
  OptionalString mainClass;
  bool firstThread = false;  // requested, not acted on: the options decide the thread
  readJavaParameters(options, mainClass, args, &firstThread);

  // The vector and its strings live until the process ends: the runtime keeps pointers.
  argv = static_cast<char**>(std::calloc(options.size() + args.size() + 3, sizeof(char*)));
  argc = 0;
  const auto& processArgs = platform::processArguments();
  argv[argc++] = strdup(processArgs.empty() ? "" : processArgs[0].c_str());
  for (const std::string& option : options) argv[argc++] = strdup(option.c_str());
  argv[argc++] = strdup(("-Dbwk.jreBundle=" + *javaBundlePath).c_str());
  argv[argc++] = strdup(mainClass.value_or("(null)").c_str());
  for (const std::string& arg : args) argv[argc++] = strdup(arg.c_str());
  return *this;
}

int Launcher::launch() {
  if (!javaBundlePath || javaBundlePath->empty()) {
    BWK_DLOG("%s [Line %d] no suitable JRE found.");
    displayError("AppleJavaMinVersionError", getJavaMinVersion(), infoDictionary().string("CFBundleName"));
    return 1;
  }

  std::string library;
  if (pluginUsed) {
    library = platform::appletPluginLibrary();
  } else {
    std::vector<std::string> candidates = platform::runtimeLibraryCandidates();
    library = path::append(*javaBundlePath, candidates.back());
    for (size_t i = 0; i + 1 < candidates.size(); ++i) {
      std::string candidate = path::append(*javaBundlePath, candidates[i]);
      if (fs::exists(candidate)) {
        library = candidate;
        break;
      }
    }
  }
  BWK_DLOG("%s [Line %d] load library %@.", library);

  // Never closed: the runtime runs from it until the process ends.
  void* handle = dlopen(library.c_str(), RTLD_LAZY);
  if (!handle) throw PlatformException("JavaLaunchError", "Could not load JRE.");
  JLI_LaunchFxnPtr = reinterpret_cast<JLI_Launch_t>(dlsym(handle, "JLI_Launch"));
  auto listNew = reinterpret_cast<JLI_List_new_t>(dlsym(handle, "JLI_List_new"));
  auto listAdd = reinterpret_cast<JLI_List_add_t>(dlsym(handle, "JLI_List_add"));
  auto initArgs = reinterpret_cast<JLI_InitArgProcessing_t>(dlsym(handle, "JLI_InitArgProcessing"));
  auto preprocess = reinterpret_cast<JLI_PreprocessArg_t>(dlsym(handle, "JLI_PreprocessArg"));
  auto stringDup = reinterpret_cast<JLI_StringDup_t>(dlsym(handle, "JLI_StringDup"));
  auto memFree = reinterpret_cast<JLI_MemFree_t>(dlsym(handle, "JLI_MemFree"));
  if (!JLI_LaunchFxnPtr) throw PlatformException("JavaLaunchError", "Could not get function pointer for JLI_Launch.");

  // Argument files, expanded once by the runtime's own rules; entry 0 never is.
  bool hasArgumentFile = false;
  for (int i = 0; i < argc; ++i) {
    if (argv[i][0] == '@') {
      hasArgumentFile = true;
      break;
    }
  }
  if (hasArgumentFile) {
    BWK_DLOG("%s [Line %d] @ argument found");
    if (!listNew || !listAdd || !initArgs || !preprocess || !stringDup || !memFree) {
      BWK_DLOG("%s [Line %d] did not find all list functions %p %p %p %p %p %p",
               reinterpret_cast<const void*>(listNew), reinterpret_cast<const void*>(listAdd),
               reinterpret_cast<const void*>(initArgs), reinterpret_cast<const void*>(preprocess),
               reinterpret_cast<const void*>(stringDup), reinterpret_cast<const void*>(memFree));
    } else {
      initArgs(argc > 0, false);
      JliList* list = listNew(static_cast<size_t>(argc) + 1);
      listAdd(list, stringDup(argv[0]));
      for (int i = 1; i < argc; ++i) {
        if (JliList* expanded = preprocess(argv[i], true)) {
          for (size_t k = 0; k < expanded->size; ++k) listAdd(list, expanded->elements[k]);
          memFree(expanded->elements);
          memFree(expanded);
        } else {
          listAdd(list, stringDup(argv[i]));
        }
      }
      argc = static_cast<int>(static_cast<uint32_t>(list->size));
      listAdd(list, nullptr);
      argv = list->elements;  // the old vector is not freed
    }
  }

  platform::setUserDefault("AppleWindowTabbingMode", "manual");
  BWK_DLOG("%s [Line %d] launching %p %d", reinterpret_cast<const void*>(JLI_LaunchFxnPtr), argc);
  for (int i = 0; i < argc; ++i) BWK_DLOG("%s [Line %d] arg %s", argv[i]);

  g_javaMainInvocation = true;
  if (!launchJavaVersion) launchJavaVersion = "1.7.0";
  return JLI_LaunchFxnPtr(argc, argv, 0, nullptr, 0, nullptr, launchJavaVersion, launchJavaVersion, "java", "java",
                          false, false, false, 0);
}

}  // namespace bwk
