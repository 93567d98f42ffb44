// Pack200 files of a runtime turned back into jars by the runtime's own bin/unpack200, one
// run after the other.
#include "launcher/unpacker.h"

#include "base/errors.h"

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "platform/platform.h"

namespace bwk {

namespace {
// The name the system gives the failure to start a program.
constexpr const char* kToolNotStarted = "NSInvalidArgumentException";
}  // namespace

void Unpacker::addPackedFiles(std::vector<std::string>& files, const std::string& subDir, const std::string& home) {
  // A missing directory has no entries; the listing order is the file system's.
  std::optional<std::vector<std::string>> names = fs::listDirectory(path::append(home, subDir));
  if (!names) return;
  for (const std::string& name : *names) {
    if (text::endsWith(name, ".jar.pack")) files.push_back(subDir + "/" + name);
  }
}

bool Unpacker::unpack(const std::string& home, const ProgressCallback* progress) {
  const std::string tool = path::append(home, "bin/unpack200");
  std::vector<std::string> files;
  addPackedFiles(files, "lib", home);
  addPackedFiles(files, "lib/ext", home);
  BWK_DLOG("%s [Line %d] found %@", files);

  double percent = 0.0;
  for (const std::string& relative : files) {
    const std::string pack = path::append(home, relative);
    const std::string jar = pack.substr(0, pack.size() - 5);  // without ".pack"
    if (fs::exists(pack)) {
      BWK_DLOG("%s [Line %d] unpacking %@", pack);
      // "-r" makes the tool remove the packed file once the jar is written. A tool that
      // cannot be started is an error of its own, which the caller reports.
      std::string error;
      std::optional<int> status = platform::runProcess(tool, {"-r", pack, jar}, &error);
      if (!status) throw PlatformException(kToolNotStarted, error);
      if (*status != 0) {
        BWK_SYSLOG("%s [Line %d] Unpack task failed.");
        return false;
      }
    }
    // Every listed file counts, also one that vanished, so the last report is 100.
    if (progress && *progress) {
      percent += 100.0 / static_cast<double>(files.size());
      (*progress)(percent, nullptr);
    }
  }
  return true;
}

}  // namespace bwk
