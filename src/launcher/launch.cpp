// From a chosen runtime to a running Java virtual machine: the argument vector, the
// runtime's launcher library, argument files and JLI_Launch.
#include <dlfcn.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <thread>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/errors.h"
#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "launcher/aot_cache.h"
#include "launcher/configuration_problems.h"
#include "launcher/jli.h"
#include "launcher/launcher.h"
#include "launcher/messages.h"
#include "launcher/runtime_checks.h"
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

JLI_Launch_t JLI_LaunchFxnPtr = nullptr;
const char* launchJavaVersion = nullptr;
std::atomic<bool> g_javaMainInvocation{false};

namespace {
// JLI_Launch's last result widened, so that no status can be taken for "none yet".
constexpr int64_t kNoJavaLaunchResult = INT64_MIN;
std::atomic<int64_t> lastJavaLaunchResult{kNoJavaLaunchResult};
}  // namespace

int reinvokeJavaLaunch(int argc, char** argv) {
  int status = JLI_LaunchFxnPtr(argc, argv, 0, nullptr, 0, nullptr, launchJavaVersion, launchJavaVersion, "java",
                                "java", false, false, false, 0);
  lastJavaLaunchResult = status;
  return status;
}

std::optional<int> javaLaunchResult() {
  int64_t result = lastJavaLaunchResult;
  if (result == kNoJavaLaunchResult) return std::nullopt;
  return static_cast<int>(result);
}

std::vector<std::string> argumentVector(const std::string& program, const JavaParameters& parameters,
                                        const std::string& runtimePath) {
  std::vector<std::string> argv{program};
  argv.insert(argv.end(), parameters.options.begin(), parameters.options.end());
  argv.push_back("-Dbwk.jreBundle=" + runtimePath);
  argv.push_back(parameters.mainClass.value_or("(null)"));
  argv.insert(argv.end(), parameters.args.begin(), parameters.args.end());
  return argv;
}

void Launcher::setInstallerJreBundle(const OptionalString& jreBundle, const OptionalString& archive) {
  installerJreBundle_ = jreBundle;
  tarFile_ = archive;
}

Launcher& Launcher::load() {
  runtime_ = findJavaBundle(context_, installerJreBundle_);
  if (!runtime_) return *this;

  // The effects on the process, before anything is built from the configuration: the
  // language, the current directory (relative "dir/*" class-path entries are listed in it),
  // the AOT cache files, the identity of the running application.
  if (OptionalString locale = platform::userLocale()) setenv("LANG", (*locale + ".UTF-8").c_str(), 0);
  if (OptionalString directory = workingDirectory(context_, *runtime_)) {
    if (chdir(directory->c_str()) != 0) { /* the current directory stays as it was */
    }
  }
  LaunchFacts facts;
  facts.aotOptions = addAotCacheOption(context_, *runtime_);
  if (needsBundleIdentity(context_)) {
    facts.runningBundleIdentifier = platform::runningApplicationBundleIdentifier();
    if (!facts.runningBundleIdentifier) {
      // The system may not have registered a bundle that has just been opened.
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      facts.runningBundleIdentifier = platform::runningApplicationBundleIdentifier();
    }
  }
  facts.tarFile = tarFile_;

  JavaParameters parameters = readJavaParameters(context_, *runtime_, facts);
  // The runtime only says "Could not find or load main class (null)"; say why beforehand.
  if (!parameters.mainClass) {
    for (const std::string& reason : missingMainClassReasons(context_))
      std::fprintf(stderr, "ERROR: %s\n", reason.c_str());
    std::fflush(stderr);
  }
  argv_ = bwk::argumentVector(context_.arguments.empty() ? std::string() : context_.arguments[0], parameters,
                              runtime_->path);
  return *this;
}

namespace {

// The launcher library of the chosen runtime: the first candidate that exists, else the last
// one untested (the applet plug-in has a library of its own).
std::string runtimeLibraryPath(const ChosenRuntime& runtime) {
  if (runtime.plugin) return platform::appletPluginLibrary();
  std::vector<std::string> candidates = platform::runtimeLibraryCandidates();
  for (size_t i = 0; i + 1 < candidates.size(); ++i) {
    std::string candidate = path::append(runtime.path, candidates[i]);
    if (fs::exists(candidate)) return candidate;
  }
  return path::append(runtime.path, candidates.back());
}

// The entries of the runtime's launcher library: JLI_Launch, which must be there, and the
// argument-file functions, which older runtimes lack.
struct RuntimeLibrary {
  JLI_Launch_t launch = nullptr;
  JLI_List_new_t listNew = nullptr;
  JLI_List_add_t listAdd = nullptr;
  JLI_InitArgProcessing_t initArgs = nullptr;
  JLI_PreprocessArg_t preprocess = nullptr;
  JLI_StringDup_t stringDup = nullptr;
  JLI_MemFree_t memFree = nullptr;
  bool hasArgumentFileFunctions() const { return listNew && listAdd && initArgs && preprocess && stringDup && memFree; }
};

RuntimeLibrary loadRuntimeLibrary(const std::string& library) {
  BWK_DLOG("%s [Line %d] load library %@.", library);
  // Never closed: the runtime runs from it until the process ends.
  void* handle = dlopen(library.c_str(), RTLD_LAZY);
  if (!handle) {
    // The loader's own text names the file and what is wrong with it (missing, not a library,
    // on a file system mounted noexec...).
    const char* why = dlerror();
    throw PlatformException("JavaLaunchError", "Could not load JRE.", std::string(why ? why : library));
  }
  RuntimeLibrary loaded;
  loaded.launch = reinterpret_cast<JLI_Launch_t>(dlsym(handle, "JLI_Launch"));
  loaded.listNew = reinterpret_cast<JLI_List_new_t>(dlsym(handle, "JLI_List_new"));
  loaded.listAdd = reinterpret_cast<JLI_List_add_t>(dlsym(handle, "JLI_List_add"));
  loaded.initArgs = reinterpret_cast<JLI_InitArgProcessing_t>(dlsym(handle, "JLI_InitArgProcessing"));
  loaded.preprocess = reinterpret_cast<JLI_PreprocessArg_t>(dlsym(handle, "JLI_PreprocessArg"));
  loaded.stringDup = reinterpret_cast<JLI_StringDup_t>(dlsym(handle, "JLI_StringDup"));
  loaded.memFree = reinterpret_cast<JLI_MemFree_t>(dlsym(handle, "JLI_MemFree"));
  if (!loaded.launch) throw PlatformException("JavaLaunchError", "Could not get function pointer for JLI_Launch.");
  return loaded;
}

// Argument files ("@file" after entry 0), expanded once by the runtime's own rules into a new
// vector that lives until the process ends; the old vector is not freed.
void expandArgumentFiles(const RuntimeLibrary& library, int& argc, char**& argv) {
  bool hasArgumentFile = false;
  for (int i = 0; i < argc && !hasArgumentFile; ++i) hasArgumentFile = argv[i][0] == '@';
  if (!hasArgumentFile) return;
  BWK_DLOG("%s [Line %d] @ argument found");
  if (!library.hasArgumentFileFunctions()) {
    BWK_DLOG("%s [Line %d] did not find all list functions %p %p %p %p %p %p",
             reinterpret_cast<const void*>(library.listNew), reinterpret_cast<const void*>(library.listAdd),
             reinterpret_cast<const void*>(library.initArgs), reinterpret_cast<const void*>(library.preprocess),
             reinterpret_cast<const void*>(library.stringDup), reinterpret_cast<const void*>(library.memFree));
    return;
  }
  library.initArgs(argc > 0, false);
  JliList* list = library.listNew(static_cast<size_t>(argc) + 1);
  library.listAdd(list, library.stringDup(argv[0]));
  for (int i = 1; i < argc; ++i) {
    if (JliList* expanded = library.preprocess(argv[i], true)) {
      for (size_t k = 0; k < expanded->size; ++k) library.listAdd(list, expanded->elements[k]);
      library.memFree(expanded->elements);
      library.memFree(expanded);
    } else {
      library.listAdd(list, library.stringDup(argv[i]));
    }
  }
  argc = static_cast<int>(static_cast<uint32_t>(list->size));
  library.listAdd(list, nullptr);
  argv = list->elements;
}

}  // namespace

int Launcher::launch() {
  if (!runtime_ || runtime_->path.empty()) {
    BWK_DLOG("%s [Line %d] no suitable JRE found.");
    displayError(context_, "AppleJavaMinVersionError", getJavaMinVersion(context_.configuration),
                 context_.configuration.string("CFBundleName"));
    return 1;
  }
  RuntimeLibrary library = loadRuntimeLibrary(runtimeLibraryPath(*runtime_));
  JLI_LaunchFxnPtr = library.launch;

  // The vector and its strings live until the process ends: the runtime keeps pointers.
  int argc = static_cast<int>(argv_.size());
  char** argv = static_cast<char**>(std::calloc(argv_.size() + 1, sizeof(char*)));
  for (size_t i = 0; i < argv_.size(); ++i) argv[i] = strdup(argv_[i].c_str());
  expandArgumentFiles(library, argc, argv);

  platform::setUserDefault("AppleWindowTabbingMode", "manual");
  BWK_DLOG("%s [Line %d] launching %p %d", reinterpret_cast<const void*>(JLI_LaunchFxnPtr), argc);
  for (int i = 0; i < argc; ++i) BWK_DLOG("%s [Line %d] arg %s", argv[i]);

  // Both are read again by the runtime's second call of main; never freed.
  launchJavaVersion = strdup(runtime_->shortVersion.c_str());
  g_javaMainInvocation = true;
  return reinvokeJavaLaunch(argc, argv);
}

}  // namespace bwk
