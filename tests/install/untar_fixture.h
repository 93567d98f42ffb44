#pragma once
// Extracting archives a Python script writes; the system log is kept, nothing outside the destination may change.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

#include "base/log.h"
#include "install/untar.h"
#include "test_support.h"

namespace bwk::test {

// file(), dir(), link(), hardlink(), special(), raw() and longname() add entries; file() prints "<data offset> <size>".
// The GZ_* knobs damage the gzip stream; MEMBERS cuts it into gzip members of that many tar bytes (INDEXED adds their
// index), BAD_CRC_IN spoils one member's CRC-32, EMPTY_MEMBER_IN puts an empty gzip member before one (zlib reads
// on, the index's way cannot), HEADER_CRC gives the gzip header a CRC of its own that is wrong.
inline const char* kArchivePrelude = R"PY(
import io, random, struct, sys, tarfile, zlib
OUT, ROOT = sys.argv[1], sys.argv[2]
_buf = io.BytesIO()
tf = tarfile.open(fileobj=_buf, mode='w', format=tarfile.GNU_FORMAT)
END, PLAIN, GZ_DROP, GZ_BAD_AT, GZ_SPLIT_AT, GZ_TRAILING, GZ_SIZE = True, False, 0, None, None, b'', None
INDEXED, MEMBERS, BAD_CRC_IN, HEADER_CRC, EMPTY_MEMBER_IN = False, None, None, False, None
def _pad(n): return b'\0' * (-n % 512)
def _add(name, kind, size=0, mode=0o644, link='', data=b''):
    ti = tarfile.TarInfo(name)
    ti.type, ti.size, ti.mode, ti.linkname, ti.mtime = kind, size, mode, link, 0
    tf.addfile(ti, io.BytesIO(data))
def file(name, data=b'', mode=0o644):
    if isinstance(data, str): data = data.encode()
    _add(name, tarfile.REGTYPE, len(data), mode, data=data)
    print(tf.offset - len(data) - len(_pad(len(data))), len(data))
def dir(name): _add(name, tarfile.DIRTYPE, mode=0o755)
def link(name, target): _add(name, tarfile.SYMTYPE, link=target)
def hardlink(name, target): _add(name, tarfile.LNKTYPE, link=target)
def special(name, kind): _add(name, kind)
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
def gz(b): c = zlib.compressobj(6, zlib.DEFLATED, 31); return c.compress(b) + c.flush()
bad = gz(b'')[:10] + b'\x07' + b'\0' * 64  # a deflate block of an invalid type
if PLAIN: out = data
elif GZ_BAD_AT is not None: out = (gz(data[:GZ_BAD_AT]) if GZ_BAD_AT else b'') + bad
elif GZ_SPLIT_AT is not None: out = gz(data[:GZ_SPLIT_AT]) + gz(data[GZ_SPLIT_AT:])
elif MEMBERS or INDEXED:
    step = MEMBERS or max(700, len(data) // 4000)  # small, within what one index lists
    parts = [data[i:i + step] for i in range(0, len(data), step)] or [b'']
    ms = [bytearray(gz(p)) for p in parts]
    if BAD_CRC_IN is not None: ms[BAD_CRC_IN][-8] ^= 1
    if EMPTY_MEMBER_IN is not None: ms[EMPTY_MEMBER_IN][:0] = gz(b'')
    out = b''.join(ms)
    if INDEXED:
        payload = b'\1' + struct.pack('<Q', len(ms)) + b''.join(struct.pack('<II', len(m), len(p)) for m, p in zip(ms, parts))
        xlen = 4 + len(payload) + 6
        out += (b'\x1f\x8b\x08\x04\0\0\0\0\0\xff' + struct.pack('<H', xlen) + b'Bk' + struct.pack('<H', len(payload)) +
                payload + b'Be\x02\0' + struct.pack('<H', xlen) + b'\x03\0' + b'\0' * 8)
else: out = gz(data)
if HEADER_CRC: out = out[:3] + bytes([out[3] | 2]) + out[4:10] + b'\0\0' + out[10:]  # FHCRC, and a wrong one
if GZ_SIZE is not None: out = out[:-4] + GZ_SIZE.to_bytes(4, 'little')
open(OUT, 'wb').write(out[:len(out) - GZ_DROP] + GZ_TRAILING)
)PY";

// Type, mode, size, inode, link target and contents of everything under `root` but `skip`.
inline std::map<std::string, std::string> snapshot(const std::string& root, const std::string& skip) {
  namespace stdfs = std::filesystem;
  std::map<std::string, std::string> items;
  for (auto it = stdfs::recursive_directory_iterator(root); it != stdfs::recursive_directory_iterator(); ++it) {
    if (it->path() == skip) {
      it.disable_recursion_pending();
      continue;
    }
    struct stat st {};
    ::lstat(it->path().c_str(), &st);
    std::ostringstream what;
    what << st.st_mode << ' ' << st.st_size << ' ' << st.st_ino << ' ';
    if (S_ISLNK(st.st_mode)) what << stdfs::read_symlink(it->path());
    if (S_ISREG(st.st_mode)) what << readFile(it->path());
    items[it->path()] = what.str();
  }
  return items;
}

// <root>/dest to extract into, beside <root>/outside/keep and the archive.
class UntarFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    env.set("BRACKWOOD_LOG", std::nullopt);
    log::resetDebugDecision();
    writeFile(root + "/outside/keep", "outside data");
    std::filesystem::create_directory(dest);
  }

  // Writes the archive from a script body; returns what the script printed. For the indexed
  // way of inflating, an archive that is not damaged on purpose comes in indexed members.
  std::string buildArchive(const std::string& body) {
    bool plain = body.find("GZ_") != std::string::npos || body.find("PLAIN") != std::string::npos;
    std::string indexed = inflation == UnTar::Inflation::Indexed && !plain ? "INDEXED = True\n" : "";
    writeFile(scripts / "build.py", std::string(kArchivePrelude) + indexed + body + "\n" + kArchiveEpilogue);
    RunResult r = run({"/usr/bin/python3", scripts / "build.py", archive, root});
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out;
  }

  using Outcome = UnTar::Outcome;
  // Extracts the archive; each problem the outcome names must also be in the system log.
  Outcome extract(int32_t length = 6000000, const ProgressCallback* progress = nullptr) {
    auto before = snapshot(root, dest);
    ::testing::internal::CaptureStderr();
    Outcome outcome = UnTar::untarWith(inflation, archive, dest, length, progress);
    std::istringstream lines(::testing::internal::GetCapturedStderr());
    std::vector<std::string> logged;
    // Each line: the time to the millisecond, this program's name, process and thread.
    const std::regex prefix("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} test_install\\[" +
                            std::to_string(getpid()) + ":\\d+\\] .*");
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(std::regex_match(line, prefix)) << line;
      logged.push_back(line.substr(line.find("] ", line.find(" [Line ")) + 2));
    }
    EXPECT_EQ(logged, outcome.problems) << "the system log and the outcome differ";
    EXPECT_EQ(snapshot(root, dest), before) << "something outside the destination changed";
    return outcome;
  }

  ScopedEnvironment env;
  TempDir dir, scripts;  // the script stays away from the snapshot
  std::string root = dir.path(), dest = root + "/dest", archive = root + "/archive.tar.gz";
  UnTar::Inflation inflation = UnTar::Inflation::WholeBuffer;
};

inline const std::vector<UnTar::Inflation> kInflations{UnTar::Inflation::Indexed, UnTar::Inflation::WholeBuffer,
                                                       UnTar::Inflation::Streaming};
inline std::string inflationName(UnTar::Inflation i) {
  return i == UnTar::Inflation::Indexed ? "Indexed" : i == UnTar::Inflation::WholeBuffer ? "WholeBuffer" : "Streaming";
}

}  // namespace bwk::test
