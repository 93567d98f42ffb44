#pragma once
// Shared by the extraction tests: archives written by Python's tarfile (or byte by byte for
// fields no archiver writes), extraction with standard error captured, and a snapshot of
// everything around the destination to prove that nothing was written outside it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/log.h"
#include "install/untar.h"
#include "test_support.h"

namespace bwk::test {

// Helpers for the archive scripts. A script calls file(), dir(), link(), hardlink(),
// special(), raw() and longname(); the knobs at the top change how the stream ends.
// file() prints "<data offset> <size>" for the progress tests.
inline const char* kArchivePrelude = R"PY(
import io, random, sys, tarfile, zlib
OUT, ROOT, DEST = sys.argv[1], sys.argv[2], sys.argv[3]
_buf = io.BytesIO()
tf = tarfile.open(fileobj=_buf, mode='w', format=tarfile.GNU_FORMAT)
END = True            # end blocks written
PLAIN = False         # no gzip at all
GZ_DROP = 0           # bytes cut off the end of the gzip stream
GZ_BAD_AT = None      # tar offset from which a second, corrupt gzip member follows
GZ_BAD_START = False  # the first deflate block has an invalid type
GZ_SPLIT_AT = None    # tar offset from which a second, intact gzip member follows
GZ_TRAILING = b''     # bytes after the gzip stream
GZ_SIZE = None        # length written into the trailer instead of the true one

def _pad(n): return b'\0' * (-n % 512)

def _info(name, kind, size=0, mode=0o644, link=''):
    ti = tarfile.TarInfo(name)
    ti.type, ti.size, ti.mode, ti.linkname, ti.mtime = kind, size, mode, link, 0
    return ti

def file(name, data=b'', mode=0o644):
    if isinstance(data, str): data = data.encode()
    tf.addfile(_info(name, tarfile.REGTYPE, len(data), mode), io.BytesIO(data))
    print(tf.offset - len(data) - len(_pad(len(data))), len(data))

def dir(name, mode=0o755): tf.addfile(_info(name, tarfile.DIRTYPE, mode=mode))
def link(name, target): tf.addfile(_info(name, tarfile.SYMTYPE, link=target))
def hardlink(name, target): tf.addfile(_info(name, tarfile.LNKTYPE, link=target))
def special(name, kind): tf.addfile(_info(name, kind))

def raw(name=b'', kind=b'0', size=None, mode=b'0000644\0', link=b'', data=b''):
    if isinstance(name, str): name = name.encode()
    if size is None: size = b'%011o\0' % len(data)
    h = bytearray(512)
    for off, val in ((0, name[:100]), (100, mode), (124, size), (156, kind), (157, link), (257, b'ustar\0'), (263, b'00')):
        h[off:off + len(val)] = val
    h[148:156] = b' ' * 8
    h[148:156] = b'%06o\0 ' % sum(h)
    tf.fileobj.write(bytes(h) + data + _pad(len(data)))
    tf.offset += 512 + len(data) + len(_pad(len(data)))

def longname(data, kind=b'L'): raw(b'././@LongLink', kind, data=data)
def noise(n, seed=1): return random.Random(seed).randbytes(n)
)PY";

inline const char* kArchiveEpilogue = R"PY(
if END: tf.close()
data = _buf.getvalue()
def gz(b):
    c = zlib.compressobj(6, zlib.DEFLATED, 31)
    return c.compress(b) + c.flush()
if PLAIN: out = data
elif GZ_BAD_START: out = gz(data)[:10] + b'\x07' + b'\0' * 64
elif GZ_BAD_AT is not None: out = gz(data[:GZ_BAD_AT]) + gz(b'')[:10] + b'\x07' + b'\0' * 64
elif GZ_SPLIT_AT is not None: out = gz(data[:GZ_SPLIT_AT]) + gz(data[GZ_SPLIT_AT:])
else: out = gz(data)
if GZ_SIZE is not None: out = out[:-4] + (GZ_SIZE & 0xffffffff).to_bytes(4, 'little')
if GZ_DROP: out = out[:-GZ_DROP]
out += GZ_TRAILING
open(OUT, 'wb').write(out)
)PY";

// Redirects file descriptor 2, where the system log writes, into a file while it lives.
class StderrCapture {
 public:
  explicit StderrCapture(const std::string& file) : file_(file) {
    std::fflush(stderr);
    saved_ = ::dup(2);
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ::dup2(fd, 2);
    ::close(fd);
  }
  ~StderrCapture() { restore(); }
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  // The messages written so far, each without the log's time stamp, process, function
  // and line ("ERROR: gzread failed").
  std::vector<std::string> messages() {
    restore();
    std::vector<std::string> out;
    std::istringstream lines(readFile(file_));
    for (std::string line; std::getline(lines, line);) {
      size_t tag = line.find(" [Line ");
      size_t close = tag == std::string::npos ? tag : line.find("] ", tag);
      out.push_back(close == std::string::npos ? line : line.substr(close + 2));
    }
    return out;
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    std::fflush(stderr);
    ::dup2(saved_, 2);
    ::close(saved_);
    saved_ = -1;
  }
  std::string file_;
  int saved_ = -1;
};

// Type, mode, size, link target and contents of everything under `root` except `skip`.
inline std::map<std::string, std::string> snapshot(const std::string& root, const std::string& skip) {
  namespace stdfs = std::filesystem;
  std::map<std::string, std::string> items;
  std::error_code ec;
  for (auto it = stdfs::recursive_directory_iterator(root, ec); !ec && it != stdfs::recursive_directory_iterator();
       it.increment(ec)) {
    std::string p = it->path().string();
    if (p == skip) {
      it.disable_recursion_pending();
      continue;
    }
    struct stat st;
    ::lstat(p.c_str(), &st);
    std::string what = std::to_string(st.st_mode) + " " + std::to_string(st.st_size) + " " + std::to_string(st.st_ino);
    if (S_ISLNK(st.st_mode)) what.append(" -> ").append(stdfs::read_symlink(p, ec).string());
    if (S_ISREG(st.st_mode)) what.append(" ").append(readFile(p));
    items[p] = what;
  }
  return items;
}

// A place to extract into: <root>/dest, beside <root>/outside (holding a file) and the
// archive. Everything but dest must look the same after every extraction.
class UntarFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ::unsetenv("BRACKWOOD_LOG");
    log::resetDebugDecision();
    root = dir.path();
    dest = root + "/dest";
    archive = root + "/archive.tar.gz";
    writeFile(root + "/outside/keep", "outside data");
    std::filesystem::create_directory(dest);
  }
  void TearDown() override { log::resetDebugDecision(); }

  // Writes the archive from a script body (Python, see kArchivePrelude); returns what the
  // script printed.
  std::string buildArchive(const std::string& body) {
    std::string script = scripts.path() + "/build.py";
    writeFile(script, std::string(kArchivePrelude) + body + "\n" + kArchiveEpilogue);
    RunResult r = run({"/usr/bin/python3", script, archive, root, dest});
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out;
  }

  struct Outcome {
    bool ok = false;
    std::vector<std::string> messages;
    UnTar::Inflation used = UnTar::Inflation::Streaming;
  };
  // Extracts `archive` into dest with the system log captured, inflating as `inflation`
  // says, and checks that nothing outside dest changed.
  Outcome extract(int32_t length = 6000000, const ProgressCallback* progress = nullptr) {
    auto before = snapshot(root, dest);
    Outcome outcome;
    StderrCapture capture(scripts.path() + "/stderr");
    outcome.ok = UnTar::untarWith(inflation, archive, dest, length, progress, &outcome.used);
    outcome.messages = capture.messages();
    EXPECT_EQ(snapshot(root, dest), before) << "something outside the destination changed";
    return outcome;
  }

  // Replaces "{dest}" and "{root}" in an expected message.
  std::string expand(std::string text) const {
    for (auto [key, value] : {std::pair<std::string, std::string>{"{dest}", dest}, {"{root}", root}})
      for (size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, key.size(), value);
    return text;
  }

  TempDir dir;
  TempDir scripts;  // the build script and captured output, away from the snapshot
  std::string root, dest, archive;
  UnTar::Inflation inflation = UnTar::Inflation::WholeBuffer;
};

// Both ways of inflating, for tests that run with each.
inline const std::vector<UnTar::Inflation> kInflations{UnTar::Inflation::WholeBuffer, UnTar::Inflation::Streaming};

inline std::string inflationName(UnTar::Inflation inflation) {
  return inflation == UnTar::Inflation::WholeBuffer ? "WholeBuffer" : "Streaming";
}

}  // namespace bwk::test

namespace bwk {
// Found by argument-dependent lookup when a test's parameters are printed.
inline void PrintTo(UnTar::Inflation inflation, std::ostream* os) { *os << test::inflationName(inflation); }
}  // namespace bwk
