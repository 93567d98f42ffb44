#pragma once
// Shared helpers of the tests: temporary directories, files, running programs.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/plist.h"

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

// Writes a file, making its parent directories.
void writeFile(const std::string& path, const std::string& contents);
std::string readFile(const std::string& path);
// Writes a property list as XML.
void writePlist(const std::string& path, const PlistValue& value);
std::string toXmlPlist(const PlistValue& value);

struct RunResult {
  int status = -1;  // exit status, or 128+signal
  std::string out;
  std::string err;
};
// This process's environment with `env` applied (NAME=value; a NAME alone removes that variable).
std::vector<std::string> environmentWith(const std::vector<std::string>& env);
// Runs a program with arguments and extra environment entries (NAME=value; a NAME alone
// removes that variable), optionally in a working directory.
RunResult run(const std::vector<std::string>& argv, const std::vector<std::string>& env = {},
              const std::string& workingDirectory = "");
// Runs a shell command line; status and output as above.
RunResult shell(const std::string& command);

// Makes a runtime directory with a "release" file and lib/libjli.so copied from the fake
// library; `layout` "home" puts them in the directory, "bundle" under Contents/Home with a
// Contents/Info.plist naming the version.
void makeFakeRuntime(const std::string& dir, const std::string& version, const std::string& layout = "home");
// Makes Tool.app with the launcher copied to Contents/MacOS/<name> and the Info.plist given.
std::string makeBundle(const std::string& parent, const std::string& name, const PlistValue& info);

}  // namespace bwk::test
