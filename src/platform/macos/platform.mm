// The platform header on macOS: Foundation, CoreFoundation, Security and the loader.
// Built with the macOS toolchain only.
//
// Memory: compiled with ARC; Core Foundation objects are released where they are made.
// Threads: nothing here touches AppKit's views; NSRunningApplication and NSUserDefaults
// may be used from the worker thread.
#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
#include <Security/AuthSession.h>
#include <mach-o/dyld.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/sysctl.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

extern char** environ;

namespace bwk::platform {

namespace {
std::string toString(NSString* s) {
  const char* utf8 = s ? [s UTF8String] : nullptr;
  return utf8 ? std::string(utf8) : std::string();
}
}  // namespace

std::string homeDirectory() { return toString(NSHomeDirectory()); }
std::string temporaryDirectory() { return toString(NSTemporaryDirectory()); }
std::string userCacheDirectory() {
  // ~/Library/Caches, or the container's inside a sandbox.
  NSArray<NSString*>* found = NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
  return found.count > 0 ? toString(found.firstObject) : homeDirectory() + "/Library/Caches";
}

std::optional<FileStamp> fileStamp(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return std::nullopt;
  char text[160];
  std::snprintf(text, sizeof text, "%llu:%llu:%lld:%lld.%09ld:%lld.%09ld", static_cast<unsigned long long>(st.st_dev),
                static_cast<unsigned long long>(st.st_ino), static_cast<long long>(st.st_size),
                static_cast<long long>(st.st_mtimespec.tv_sec), static_cast<long>(st.st_mtimespec.tv_nsec),
                static_cast<long long>(st.st_ctimespec.tv_sec), static_cast<long>(st.st_ctimespec.tv_nsec));
  return FileStamp{text, std::max<long long>(st.st_mtimespec.tv_sec, st.st_ctimespec.tv_sec)};
}

std::optional<std::string> executablePath() {
  char small[1024];
  uint32_t size = sizeof small;
  std::string raw;
  if (_NSGetExecutablePath(small, &size) == 0) {
    raw = small;
  } else {
    std::vector<char> big(size);
    if (_NSGetExecutablePath(big.data(), &size) != 0) return std::nullopt;
    raw = big.data();
  }
  // realpath keeps the bytes of a path that is not UTF-8, which a string object cannot hold.
  char resolved[PATH_MAX];
  if (realpath(raw.c_str(), resolved) == nullptr) return raw;
  return std::string(resolved);
}

std::vector<std::pair<std::string, std::string>> environment() {
  // The C library's environment: what getenv and setenv see, in their order.
  std::vector<std::pair<std::string, std::string>> out;
  for (char** e = environ; e && *e; ++e) {
    const char* eq = std::strchr(*e, '=');
    if (eq) out.emplace_back(std::string(*e, static_cast<size_t>(eq - *e)), std::string(eq + 1));
  }
  return out;
}

std::optional<std::string> environmentValue(const std::string& name) {
  const char* v = std::getenv(name.c_str());
  return v ? std::optional<std::string>(v) : std::nullopt;
}

const char* processName() {
  static std::string name = toString([[NSProcessInfo processInfo] processName]);
  return name.c_str();
}

uint64_t threadIdentifier() {
  uint64_t identifier = 0;
  pthread_threadid_np(nullptr, &identifier);
  return identifier;
}

std::string globallyUniqueString() { return toString([[NSProcessInfo processInfo] globallyUniqueString]); }
std::optional<unsigned long long> processStartTime(int pid) {
  int request[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
  struct kinfo_proc info {};
  size_t size = sizeof info;
  if (sysctl(request, 4, &info, &size, nullptr, 0) != 0 || size == 0) return std::nullopt;
  const struct timeval& started = info.kp_proc.p_starttime;
  return static_cast<unsigned long long>(started.tv_sec) * 1000000ULL +
         static_cast<unsigned long long>(started.tv_usec);
}

std::string mainBundlePath() { return toString([[NSBundle mainBundle] bundlePath]); }

bool hasGraphicSession() {
  SecuritySessionId session;
  SessionAttributeBits bits;
  return SessionGetInfo(callerSecuritySession, &session, &bits) == errSessionSuccess &&
         (bits & sessionHasGraphicAccess);
}

std::optional<std::string> runningApplicationBundleIdentifier() {
  NSString* identifier = [[NSRunningApplication currentApplication] bundleIdentifier];
  return identifier ? std::optional<std::string>(toString(identifier)) : std::nullopt;
}

bool supportsDockOptions() { return true; }

void setUserDefault(const std::string& key, const std::string& value) {
  // A default is text: bytes that are not UTF-8 have no string object, and a nil key or
  // value would raise. Such a default is not stored.
  NSString* nsKey = [NSString stringWithUTF8String:key.c_str()];
  NSString* nsValue = [NSString stringWithUTF8String:value.c_str()];
  if (nsKey == nil || nsValue == nil) return;
  [[NSUserDefaults standardUserDefaults] setObject:nsValue forKey:nsKey];
}

std::optional<std::string> userLocale() {
  NSString* locale = [[NSUserDefaults standardUserDefaults] stringForKey:@"AppleLocale"];
  return locale ? std::optional<std::string>(toString(locale)) : std::nullopt;
}

std::string installedRuntimesDirectory() { return "/Library/Java/JavaVirtualMachines"; }
std::optional<std::string> appletPluginPath() {
  return std::string("/Library/Internet Plug-Ins/JavaAppletPlugin.plugin");
}

std::optional<int> requiredRuntimeArchitecture() {
#if defined(__arm64__)
  // A native arm64 process cannot load an x86-64 runtime library.
  return kCFBundleExecutableArchitectureARM64;
#else
  int translated = 0;
  size_t size = sizeof translated;
  if (sysctlbyname("sysctl.proc_translated", &translated, &size, nullptr, 0) == 0 && translated == 1)
    return kCFBundleExecutableArchitectureX86_64;
  return std::nullopt;
#endif
}

bool runtimeHasArchitecture(const std::string& runtimePath, int architecture) {
  NSURL* url = [NSURL fileURLWithFileSystemRepresentation:runtimePath.c_str() isDirectory:YES relativeToURL:nil];
  CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, (__bridge CFURLRef)url);
  if (!bundle) return false;
  CFArrayRef architectures = CFBundleCopyExecutableArchitectures(bundle);
  bool found = false;
  if (architectures) {
    for (CFIndex i = 0; i < CFArrayGetCount(architectures); ++i) {
      int32_t code = 0;
      CFNumberGetValue((CFNumberRef)CFArrayGetValueAtIndex(architectures, i), kCFNumberSInt32Type, &code);
      if (code == architecture) found = true;
    }
    CFRelease(architectures);
  }
  CFRelease(bundle);
  return found;
}

std::vector<std::string> runtimeLibraryCandidates() {
  return {"Contents/Home/jre/lib/jli/libjli.dylib", "Contents/Home/lib/jli/libjli.dylib",
          "Contents/Home/lib/libjli.dylib", "lib/jli/libjli.dylib", "lib/libjli.dylib"};
}

std::string appletPluginLibrary() {
  return "/Library/Internet Plug-Ins/JavaAppletPlugin.plugin/Contents/Home/lib/jli/libjli.dylib";
}

// The suite's preferences file, which the user defaults system keeps.
std::string installationRecordsFile() {
  return homeDirectory() + "/Library/Preferences/com.brackwood.installations.plist";
}

}  // namespace bwk::platform
