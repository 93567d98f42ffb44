#pragma once
// Every question the launcher asks of the operating system, and the few actions it takes
// through it. linux/ and macos/ implement this header; no layer above tests the platform.
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bwk::platform {

// --- the user and the process ------------------------------------------------------------
// The user's home from the password database (not HOME).
std::string homeDirectory();
// TMPDIR when set and not empty, else "/tmp/"; always with a trailing "/".
std::string temporaryDirectory();
// The current directory the process was started in, read before anything could change it:
// the shell's directory, or whatever the system gives a start from the desktop. Absent when
// it could not be read (removed before the start).
std::optional<std::string> startDirectory();
// Where the launcher keeps data of the user's that can be made again: on Linux
// ${XDG_CACHE_HOME:-~/.cache}/brackwood (a relative XDG_CACHE_HOME is ignored), on macOS
// ~/Library/Caches. No trailing "/". May not exist yet.
std::string userCacheDirectory();
// The running executable's path, links resolved and standardised; absent when unknown.
std::optional<std::string> executablePath();
// The process environment, in the order the C library holds it.
std::vector<std::pair<std::string, std::string>> environment();
std::optional<std::string> environmentValue(const std::string& name);
// The short name of the process, as the system log shows it.
const char* processName();
// The calling thread's system-wide identifier, as the system's own tools show it.
uint64_t threadIdentifier();
// A new random name, unique for practical purposes (globallyUniqueString).
std::string globallyUniqueString();
// When the process `pid` started, in the system's own units (comparable only with another
// answer of this function); absent when there is no such process. With the process id it
// names a process uniquely: ids are reused, start times of the same id are not.
std::optional<unsigned long long> processStartTime(int pid);

// What changes whenever the content of a file may have changed. Every write changes the
// status-change time, which no program can set back.
struct FileStamp {
  // Device, inode, size, and modification and status-change times to the nanosecond, as
  // one text to compare.
  std::string identity;
  // The later of the two times, in seconds since the epoch.
  long long lastChange = 0;
};
// The stamp of the file at `path` (links followed); absent when it cannot be looked at.
std::optional<FileStamp> fileStamp(const std::string& path);

// --- bundles and session -----------------------------------------------------------------
// The main bundle's directory: "<B>.app" when the executable is "<B>.app/Contents/MacOS/x",
// else the executable's directory.
std::string mainBundlePath();
// Whether a graphical user interface may be shown (DISPLAY or WAYLAND_DISPLAY set and not
// empty on Linux; a session with graphic access on macOS).
bool hasGraphicSession();
// The bundle identifier of the running application; absent where processes have none.
std::optional<std::string> runningApplicationBundleIdentifier();
// Whether the runtime on this platform accepts the Dock options (-Xdock:..., -XstartOnFirstThread).
bool supportsDockOptions();
// Stores a value in the application's own defaults domain (nothing on Linux).
void setUserDefault(const std::string& key, const std::string& value);
// The user's locale default ("AppleLocale"); absent on Linux.
std::optional<std::string> userLocale();

// --- runtimes -------------------------------------------------------------------------------
// The directory of installed runtimes (/Library/Java/JavaVirtualMachines, /usr/lib/jvm).
std::string installedRuntimesDirectory();
// The applet plug-in's directory; absent where there is none.
std::optional<std::string> appletPluginPath();
// The executable architecture (the system's code for it) that a runtime must hold for this
// process to load it, where runtimes can lack it: under instruction translation x86-64, in
// a native arm64 process arm64. Absent when no check applies (Linux; a native x86-64 Mac).
std::optional<int> requiredRuntimeArchitecture();
// Whether the runtime bundle's executable holds code for that architecture.
bool runtimeHasArchitecture(const std::string& runtimePath, int architecture);
// The runtime launcher library below a runtime path, candidates in order; the last is used
// untested when none of the others exists.
std::vector<std::string> runtimeLibraryCandidates();
// The applet plug-in's launcher library.
std::string appletPluginLibrary();
// The file that holds the installation records (property list, dictionary under
// "/com/brackwood/installations/").
std::string installationRecordsFile();

// --- actions --------------------------------------------------------------------------------
// Runs a program with arguments, waits, and gives its exit status (a signal gives 128+n).
// Absent when it cannot be started; `error` then says why.
std::optional<int> runProcess(const std::string& program, const std::vector<std::string>& arguments,
                              std::string* error);
// A non-blocking notice with a header and a message, outliving this process. False when it
// could not be shown.
bool displayNotice(const std::optional<std::string>& header, const std::string& message);
// Lets the pipe `fd` hold up to `bytes` before a writer waits, where the system allows it
// (Linux, within its limit for users); elsewhere the pipe stays as the system sizes it.
void enlargePipe(int fd, size_t bytes);
// Opens /dev/null on each of descriptors 0 to 2 that the process was started without. Else the
// files opened later take those numbers, and the runtime reads its input from one of them or
// writes its errors into it (into an application's document, when the application opened it).
void reserveStandardDescriptors();
// Calls `handler` once when the process ends through exit or a return from main (never when
// a signal ends it), before the exit handlers registered earlier. `status` is the exit status
// where the system tells it to an exit handler (Linux); absent where it does not (macOS). One
// handler per process: a later call replaces it.
void setExitHandler(void (*handler)(std::optional<int> status));

}  // namespace bwk::platform
