#pragma once
// Shared helpers of the tests: temporary directories, files, running programs. Brings in
// what nearly every test uses, so that test files include only what is particular to them.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "base/fs.h"
#include "base/plist.h"
#include "base/strings.h"

namespace bwk::test {

// A fresh directory under /tmp, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

 private:
  std::string path_;
};

// Changes variables of this process's environment and puts every one back as it was when the
// object goes, also when a test fails half-way. `set` with no value removes the variable.
class ScopedEnvironment {
 public:
  ScopedEnvironment() = default;
  ScopedEnvironment(std::initializer_list<std::pair<std::string, std::optional<std::string>>> values);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  void set(const std::string& name, const std::optional<std::string>& value);

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;  // first values, in order of change
};

// Writes a file, making its parent directories.
void writeFile(const std::string& path, const std::string& contents);
std::string readFile(const std::string& path);
// Writes a property list as XML.
void writePlist(const std::string& path, const PlistValue& value);
std::string toXmlPlist(const PlistValue& value);
inline PlistValue stringArray(std::initializer_list<std::string> list) { return PlistArray(list.begin(), list.end()); }

struct RunResult {
  int status = -1;  // exit status, or 128+signal
  std::string out;
  std::string err;
};
// This process's environment with `env` applied (NAME=value; a NAME alone removes that variable).
std::vector<std::string> environmentWith(const std::vector<std::string>& env);
// A program with its output in files of ours, standard input closed, ended when the object goes.
class Background {
 public:
  Background(std::vector<std::string> argv, const std::vector<std::string>& env,
             const std::string& workingDirectory = "");
  ~Background();
  pid_t pid() const { return pid_; }
  std::chrono::steady_clock::time_point started() const { return start_; }
  // The first line of standard output, waited for at most `seconds` from the start.
  std::string line(double seconds);
  // Waits at most `seconds` from the start (0: no limit); status -1 when it did not end.
  RunResult finish(double seconds);

 private:
  TempDir dir_;
  std::string out_ = dir_ / "out", err_ = dir_ / "err";
  pid_t pid_ = -1;
  bool reaped_ = false;
  std::chrono::steady_clock::time_point start_;
};
double secondsSince(std::chrono::steady_clock::time_point start);
void sleepMs(int milliseconds);

// Runs a program to its end; arguments as for Background.
RunResult run(const std::vector<std::string>& argv, const std::vector<std::string>& env = {},
              const std::string& workingDirectory = "");
// Runs a shell command line; status and output as above.
RunResult shell(const std::string& command);

// A runtime with a "release" file and the fake lib/libjli.so; `layout` "home" or "bundle".
void makeFakeRuntime(const std::string& dir, const std::string& version, const std::string& layout = "home");
// Makes Tool.app with the launcher copied to Contents/MacOS/<name> and the Info.plist given.
std::string makeBundle(const std::string& parent, const std::string& name, const PlistValue& info);

}  // namespace bwk::test
