#pragma once
// The process-wide launch state: set once near start, read everywhere by name.
#include <optional>
#include <string>

#include "base/plist.h"

namespace bwk {

// The configuration dictionary: the main bundle's Info dictionary, or the embedded one.
extern std::optional<PlistValue> s_infoDictionary;
extern std::optional<std::string> s_mainBundlePath;
extern std::optional<std::string> s_launcherDirInApp;
extern std::optional<std::string> s_launcherDirAndName;
extern std::optional<std::string> s_appRootDir;
// True for a launcher whose configuration is embedded in the executable (command-line
// launcher), false for an application bundle.
extern bool s_guiLauncher;
extern std::optional<std::string> s_serviceMode;
// No graphical session: errors go to standard error instead of an alert.
extern bool g_cli;
// Set just before JLI_Launch: a later call of main is the runtime's own.
extern bool g_javaMainInvocation;
// Short version of the accepted runtime, handed to JLI_Launch; never freed.
extern const char* launchJavaVersion;

using JLI_Launch_t = int (*)(int argc, char** argv, int jargc, const char** jargv, int appclassc,
                             const char** appclassv, const char* fullversion, const char* dotversion,
                             const char* pname, const char* lname, unsigned char javaargs,
                             unsigned char cpwildcard, unsigned char javaw, int ergo);
extern JLI_Launch_t JLI_LaunchFxnPtr;

// The configuration dictionary, or an empty one before it is set.
const PlistValue& infoDictionary();
// The "JavaVM" sub-dictionary as a value (absent when missing or not a dictionary).
const PlistValue* javaVMDictionary();

// Puts every value above back to its state at process start (tests).
void resetLaunchState();

}  // namespace bwk
