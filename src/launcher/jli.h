#pragma once
// What the runtime's launcher library needs across its two calls of main. JLI_Launch calls
// the executable's main a second time on a thread of its own; that call can only find the
// library and the version through process-wide values, which are written once, before the
// first JLI_Launch, and only read afterwards.
#include <atomic>
#include <optional>

namespace bwk {

using JLI_Launch_t = int (*)(int argc, char** argv, int jargc, const char** jargv, int appclassc,
                             const char** appclassv, const char* fullversion, const char* dotversion, const char* pname,
                             const char* lname, unsigned char javaargs, unsigned char cpwildcard, unsigned char javaw,
                             int ergo);

// JLI_Launch of the loaded runtime library.
extern JLI_Launch_t JLI_LaunchFxnPtr;
// The accepted runtime's short version handed to JLI_Launch; lives until the process ends.
extern const char* launchJavaVersion;
// Set just before JLI_Launch: a later call of main is the runtime's own.
extern std::atomic<bool> g_javaMainInvocation;

// The second call of main: JLI_Launch again, with the vector that call was given.
int reinvokeJavaLaunch(int argc, char** argv);
// What JLI_Launch returned last; absent while no call has returned. An exit handler reads
// it: the runtime's library may end the process with that value without returning to us.
std::optional<int> javaLaunchResult();

}  // namespace bwk
