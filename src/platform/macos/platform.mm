// The platform header on macOS: Foundation, CoreFoundation, Security and the loader.
// Built with the macOS toolchain only.
#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
#include <Security/AuthSession.h>
#include <mach-o/dyld.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/sysctl.h>
#include <sys/wait.h>

#include <cstdlib>

#include "base/platform_exception.h"
#include "platform/platform.h"

extern char** environ;

namespace bwk::platform {

namespace {
std::string toString(NSString* s) { return s ? std::string([s UTF8String]) : std::string(); }
std::vector<std::string>& storedArguments() {
  static std::vector<std::string> arguments;
  return arguments;
}
}  // namespace

std::string homeDirectory() { return toString(NSHomeDirectory()); }
std::string temporaryDirectory() { return toString(NSTemporaryDirectory()); }

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
  NSURL* url = [NSURL fileURLWithPath:[NSString stringWithUTF8String:raw.c_str()]];
  return toString([[[url URLByResolvingSymlinksInPath] URLByStandardizingPath] path]);
}

const std::vector<std::string>& processArguments() { return storedArguments(); }
void setProcessArguments(int argc, char** argv) { storedArguments().assign(argv, argv + argc); }
void setProcessArguments(std::vector<std::string> arguments) { storedArguments() = std::move(arguments); }

std::vector<std::pair<std::string, std::string>> environment() {
  std::vector<std::pair<std::string, std::string>> out;
  [[[NSProcessInfo processInfo] environment] enumerateKeysAndObjectsUsingBlock:^(NSString* k, NSString* v, BOOL*) {
    out.emplace_back(toString(k), toString(v));
  }];
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
std::string mainBundlePath() { return toString([[NSBundle mainBundle] bundlePath]); }

bool hasGraphicSession() {
  SecuritySessionId session;
  SessionAttributeBits bits;
  return SessionGetInfo(callerSecuritySession, &session, &bits) == errSessionSuccess && (bits & sessionHasGraphicAccess);
}

std::optional<std::string> runningApplicationBundleIdentifier() {
  NSString* identifier = [[NSRunningApplication currentApplication] bundleIdentifier];
  return identifier ? std::optional<std::string>(toString(identifier)) : std::nullopt;
}

bool supportsDockOptions() { return true; }

void setUserDefault(const std::string& key, const std::string& value) {
  [[NSUserDefaults standardUserDefaults] setValue:[NSString stringWithUTF8String:value.c_str()]
                                           forKey:[NSString stringWithUTF8String:key.c_str()]];
}

std::optional<std::string> userLocale() {
  NSString* locale = [[NSUserDefaults standardUserDefaults] stringForKey:@"AppleLocale"];
  return locale ? std::optional<std::string>(toString(locale)) : std::nullopt;
}

std::string installedRuntimesDirectory() { return "/Library/Java/JavaVirtualMachines"; }
std::optional<std::string> appletPluginPath() { return std::string("/Library/Internet Plug-Ins/JavaAppletPlugin.plugin"); }

bool processIsTranslated() {
  int translated = 0;
  size_t size = sizeof translated;
  return sysctlbyname("sysctl.proc_translated", &translated, &size, nullptr, 0) == 0 && translated == 1;
}

bool runtimeHasNativeCode(const std::string& runtimePath) {
  NSURL* url = [NSURL fileURLWithPath:[NSString stringWithUTF8String:runtimePath.c_str()] isDirectory:YES];
  CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, (__bridge CFURLRef)url);
  if (!bundle) return false;
  CFArrayRef architectures = CFBundleCopyExecutableArchitectures(bundle);
  bool found = false;
  if (architectures) {
    for (CFIndex i = 0; i < CFArrayGetCount(architectures); ++i) {
      int32_t code = 0;
      CFNumberGetValue((CFNumberRef)CFArrayGetValueAtIndex(architectures, i), kCFNumberSInt32Type, &code);
      if (code == kCFBundleExecutableArchitectureX86_64) found = true;
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
std::string installationRecordsFile() { return homeDirectory() + "/Library/Preferences/com.brackwood.installations.plist"; }

int runProcess(const std::string& program, const std::vector<std::string>& arguments) {
  NSMutableArray* args = [NSMutableArray array];
  for (const std::string& a : arguments) [args addObject:[NSString stringWithUTF8String:a.c_str()]];
  @try {
    NSTask* task = [NSTask launchedTaskWithLaunchPath:[NSString stringWithUTF8String:program.c_str()] arguments:args];
    [task waitUntilExit];
    return [task terminationStatus];
  } @catch (NSException* e) {
    throw PlatformException(toString([e name]), toString([e reason]));
  }
}

}  // namespace bwk::platform
