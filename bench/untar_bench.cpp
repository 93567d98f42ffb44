// Start-up cost of a bundled runtime archive: the whole launcher process on a bundle whose
// app/jre.tar.gz is a real runtime (extraction, a stand-in runtime library that returns at
// once, and the removal of the extracted runtime at exit) against `bsdtar -xf` followed by
// `rm -rf` of the same archive. Two runtimes (a jlink image of java.base and java.desktop, and
// the whole JDK), each packed twice: by `brackwood-bundle create` (indexed gzip members) and by
// `tar -czf` (one member). The launcher runs with one inflating thread
// (BRACKWOOD_UNPACK_THREADS=1) and with all; the three contestants of an archive take turns
// going first, pair by pair, one archive after the other (so that the clean-up after a large
// one does not fall into the runs of another). Then each launcher configuration once more with its anonymous
// memory sampled, against its bound. Every run goes into a fresh directory.
//
// Usage: untar_bench [pairs] [jdk]
#include <fcntl.h>
#include <libdeflate.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench_util.h"
#include "bundle/tar_writer.h"
#include "install/untar.h"

using namespace bwk::bench;
namespace stdfs = std::filesystem;

namespace {

constexpr unsigned kGzBuffer = 256 * 1024;
constexpr unsigned kGzRead = 128 * 1024;
// The bounds on the launcher's anonymous memory: indexed members take 64 MB and a member per
// thread, one member archives the tar stream and 32 MB.
constexpr double kIndexedAllowanceMb = 64;
constexpr double kMemberMb = 4.0 * (1 << 20) / 1e6;
constexpr double kWholeAllowanceMb = 32;

// The length of the archive's tar stream (through zlib's gz*), or -1.
long long tarLength(const std::string& archive) {
  int fd = ::open(archive.c_str(), O_RDONLY | O_CLOEXEC);
  gzFile stream = fd >= 0 ? gzdopen(fd, "r") : nullptr;
  if (!stream) return -1;
  gzbuffer(stream, kGzBuffer);
  std::vector<char> buffer(kGzRead);
  long long total = 0;
  int n;
  while ((n = gzread(stream, buffer.data(), kGzRead)) > 0) total += n;
  bool ok = n == 0 && gzclose(stream) == Z_OK;
  return ok ? total : -1;
}

// Bytes of the archive's tar stream compressed as one gzip member at the level the archive
// writer compresses each of its members with, kept beside the archive (it takes a while).
long long oneMemberSize(const std::string& archive) {
  const std::string kept = archive + ".one-member-size";
  if (std::ifstream in(kept); in) {
    long long size = -1;
    if (in >> size) return size;
  }
  gzFile in = gzopen(archive.c_str(), "r");
  if (!in) return -1;
  gzbuffer(in, kGzBuffer);
  std::vector<char> tar;
  std::vector<char> piece(kGzRead);
  int n;
  while ((n = gzread(in, piece.data(), kGzRead)) > 0) tar.insert(tar.end(), piece.begin(), piece.begin() + n);
  gzclose(in);
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(bwk::bundle::TarGzWriter::kLevel);
  if (!compressor) return -1;
  std::vector<char> out(libdeflate_gzip_compress_bound(compressor, tar.size()));
  auto size =
      static_cast<long long>(libdeflate_gzip_compress(compressor, tar.data(), tar.size(), out.data(), out.size()));
  libdeflate_free_compressor(compressor);
  std::ofstream(kept) << size;
  return size;
}

std::string selfPath() { return stdfs::read_symlink("/proc/self/exe").string(); }

void runOrExit(const std::string& what, const std::string& command) {
  if (shell(command) != 0) {
    std::fprintf(stderr, "cannot %s\n", what.c_str());
    std::exit(1);
  }
}

// The runtime packed both ways, built once into the cache: <name>-create.tar.gz by the bundle
// tool (from a directory laid out as Contents/Home with the stand-in launcher library) and
// <name>-tar.tar.gz by tar -czf.
struct Packed {
  std::string create, tar;
};
Packed packBothWays(const std::string& cache, const std::string& name, const std::string& fillStage) {
  Packed packed{cache + "/" + name + "-create.tar.gz", cache + "/" + name + "-tar.tar.gz"};
  // Made again when the bundle tool is newer than what it made.
  std::error_code ec;
  const auto made = stdfs::last_write_time(packed.create, ec);
  if (!ec && made > stdfs::last_write_time(BWK_BENCH_BUNDLE_TOOL) && ::access(packed.tar.c_str(), R_OK) == 0)
    return packed;
  stdfs::remove(packed.create + ".one-member-size", ec);
  std::string stage = cache + "/" + name + "-stage", out = cache + "/" + name + "-out";
  runOrExit("stage " + name, "set -e; rm -rf '" + stage + "' '" + out + "'; mkdir -p '" + stage + "/Contents'; " +
                                 fillStage + "; cp '" BWK_BENCH_FAKE_JLI "' '" + stage +
                                 "/Contents/Home/lib/libjli.so'");
  // An empty zip as the application's only jar.
  std::ofstream(cache + "/empty.jar", std::ios::binary) << std::string("PK\5\6", 4) << std::string(18, '\0');
  runOrExit("pack " + name + " with the bundle tool",
            "'" BWK_BENCH_BUNDLE_TOOL "' create --name B --main-class M --jar '" + cache + "/empty.jar' --runtime '" +
                stage + "' --runtime-as archive --output '" + out + "' > /dev/null 2>&1 && mv '" + out +
                "/B.app/Contents/Resources/app/jre.tar.gz' '" + packed.create + "'");
  runOrExit("pack " + name + " with tar", "tar -C '" + stage + "' -czf '" + packed.tar + "' Contents");
  runOrExit("clean up", "rm -rf '" + stage + "' '" + out + "'");
  return packed;
}

// A bundle with the launcher, the archive and an Info.plist naming its tar length.
std::string makeArchiveBundle(const std::string& dir, const std::string& archive, long long length) {
  std::string info =
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
      "<key>CFBundleName</key><string>Tool</string>"
      "<key>bwk.jreUncompressedSize</key><integer>" +
      std::to_string(length) +
      "</integer>"
      "<key>JavaVM</key><dict><key>MainClass</key><string>M</string>"
      "<key>SearchSequence</key><array/></dict></dict></plist>";
  std::string tool = makeBundle(dir, "Tool", BWK_BENCH_LAUNCHER, info);
  // A link, not a copy: hundreds of MB written here would be written back to the disk in the
  // middle of the runs.
  runOrExit("link the archive", "ln -f '" + archive + "' '" + dir + "/Tool.app/Contents/Resources/app/jre.tar.gz'");
  return tool;
}

// The driver mode: one extraction the way asked for, in a process of its own.
int driver(int argc, char** argv) {
  if (argc != 6 || std::strcmp(argv[1], "--extract") != 0) return -1;
  bwk::ProgressCallback progress = [](double, const char*) {};
  auto inflation = std::strcmp(argv[5], "indexed") == 0 ? bwk::UnTar::Inflation::Indexed
                   : std::strcmp(argv[5], "whole") == 0 ? bwk::UnTar::Inflation::WholeBuffer
                                                        : bwk::UnTar::Inflation::Streaming;
  bwk::UnTar::Outcome outcome = bwk::UnTar::untarWith(inflation, argv[2], argv[3], std::atoi(argv[4]), &progress);
  if (!outcome.complete) return 1;
  return outcome.used == inflation ? 0 : 3;  // 3: the archive was not taken the way asked for
}

Sample measureOrExit(const char* what, const std::vector<std::string>& argv, const std::vector<std::string>& env = {}) {
  Sample s = runMeasured(argv, "", env);
  if (s.status != 0) {
    std::fprintf(stderr, "%s failed with status %d\n", what, s.status);
    std::exit(1);
  }
  return s;
}

// Runs argv and samples its anonymous resident memory (RssAnon) every millisecond; the
// largest value seen, in MB.
double peakAnonymousMb(const std::vector<std::string>& argv, const std::vector<std::string>& env) {
  pid_t pid = startProcess(argv, "", env);
  std::string statusFile = "/proc/" + std::to_string(pid) + "/status";
  long peakKb = 0;
  for (int status; ::waitpid(pid, &status, WNOHANG) == 0;) {
    std::ifstream in(statusFile);
    for (std::string line; std::getline(in, line);)
      if (line.rfind("RssAnon:", 0) == 0) peakKb = std::max(peakKb, std::atol(line.c_str() + 8));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return static_cast<double>(peakKb) * 1024 / 1e6;
}

std::vector<double> ratios(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> out;
  for (size_t i = 0; i < a.size(); ++i) out.push_back(a[i] / b[i]);
  return out;
}

struct Contest {
  std::string title, archive, tool;
  bool indexed;
  long long length;
  std::vector<double> oneThread = {}, allThreads = {}, reference = {};
};

// Where the runs happen: fresh directories below one that is removed at the end.
struct RunArea {
  std::string root;
  std::string fresh(const std::string& name) const {
    std::string dir = root + "/" + name;
    stdfs::remove_all(dir);
    stdfs::create_directories(dir);
    return dir;
  }
};

// A contest for one archive, once the launcher's extraction has given what bsdtar gives,
// every way it takes (its speed means nothing before); this also warms the page cache.
std::optional<Contest> prepareContest(const RunArea& area, const std::string& title, const std::string& archive,
                                      bool indexed, size_t number, const std::vector<std::string>& env,
                                      const std::string& tmp) {
  long long length = tarLength(archive);
  if (length < 0) {
    std::fprintf(stderr, "cannot read %s\n", archive.c_str());
    return std::nullopt;
  }
  std::string tool = makeArchiveBundle(area.fresh("bundle-" + std::to_string(number)), archive, length);
  std::string theirs = area.fresh("check-bsdtar");
  measureOrExit("bsdtar", {"/usr/bin/bsdtar", "-xf", archive, "-C", theirs});
  for (const char* how : {indexed ? "indexed" : "whole", "stream"}) {
    std::string mine = area.fresh(std::string("check-") + how);
    measureOrExit(how, {selfPath(), "--extract", archive, mine, std::to_string(length), how});
    if (shell("diff -r --no-dereference '" + mine + "' '" + theirs + "' > /dev/null") != 0) {
      std::fprintf(stderr, "%s: the extractor's result (%s) differs from bsdtar's (see %s)\n", title.c_str(), how,
                   area.root.c_str());
      return std::nullopt;
    }
    stdfs::remove_all(mine);
  }
  stdfs::remove_all(theirs);
  measureOrExit("the launcher", {tool}, env);
  if (!stdfs::is_empty(tmp)) {
    std::fprintf(stderr, "the launcher left its runtime in %s\n", tmp.c_str());
    return std::nullopt;
  }
  return Contest{title, archive, tool, indexed, length};
}

// Each pair runs the three contestants of an archive; they take turns going first. Every
// timed process starts with nothing left to write back: otherwise the files of the run before
// are written (and their inodes, deleted a moment ago, passed over by the allocator) in the
// middle of whichever contestant comes next, which a user's first start never sees.
void measurePairs(std::vector<Contest>& contests, int pairs, const RunArea& area, const std::vector<std::string>& env,
                  const std::vector<std::string>& envOne) {
  auto timed = [](const char* what, const std::vector<std::string>& argv, const std::vector<std::string>& environment) {
    ::sync();
    return measureOrExit(what, argv, environment).seconds;
  };
  for (Contest& c : contests) {
    for (int pair = 0; pair < pairs; ++pair) {
      for (int turn = 0; turn < 3; ++turn) {
        switch ((turn + pair) % 3) {
          case 0: c.oneThread.push_back(timed("the launcher", {c.tool}, envOne)); break;
          case 1: c.allThreads.push_back(timed("the launcher", {c.tool}, env)); break;
          default: {
            std::string dir = area.fresh("bsdtar");
            double extract = timed("bsdtar", {"/usr/bin/bsdtar", "-xf", c.archive, "-C", dir}, {});
            c.reference.push_back(extract + timed("rm", {"/bin/rm", "-rf", dir}, {}));
          }
        }
      }
    }
  }
}

void printResults(const std::vector<Contest>& contests, int pairs, const std::vector<std::string>& env,
                  const std::vector<std::string>& envOne) {
  const unsigned threads = std::min(std::max(std::thread::hardware_concurrency(), 1u), 8u);
  std::printf("%d interleaved rounds per archive, medians per run, process start included; all = %u threads\n", pairs,
              threads);
  std::printf("%-26s %8s %8s %9s %9s %9s %7s %7s %10s %10s %8s\n", "archive", "gzip MB", "tar MB", "1 thread", "all",
              "bsdtar+rm", "ratio 1", "ratio all", "anon 1 MB", "anon all MB", "bound MB");
  for (const Contest& c : contests) {
    double one = 0, all = 0;
    for (int i = 0; i < 3; ++i) {
      one = std::max(one, peakAnonymousMb({c.tool}, envOne));
      all = std::max(all, peakAnonymousMb({c.tool}, env));
    }
    const double tarMb = static_cast<double>(c.length) / 1e6;
    const double bound = c.indexed ? kIndexedAllowanceMb + threads * kMemberMb : tarMb + kWholeAllowanceMb;
    auto ms = [](const std::vector<double>& v) { return median(v) * 1e3; };
    std::printf("%-26s %8.1f %8.1f %6.1f ms %6.1f ms %6.1f ms %7.3f %9.3f %10.1f %11.1f %8.1f\n", c.title.c_str(),
                static_cast<double>(stdfs::file_size(c.archive)) / 1e6, tarMb, ms(c.oneThread), ms(c.allThreads),
                ms(c.reference), median(ratios(c.oneThread, c.reference)), median(ratios(c.allThreads, c.reference)),
                one, all, bound);
  }
  for (const Contest& c : contests) {
    if (!c.indexed) continue;
    long long single = oneMemberSize(c.archive);
    std::printf("%s: %lld bytes in indexed members, %lld as one member at the same level (%+.2f %%)\n", c.title.c_str(),
                static_cast<long long>(stdfs::file_size(c.archive)), single,
                (static_cast<double>(stdfs::file_size(c.archive)) / static_cast<double>(single) - 1) * 100);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && argv[1][0] == '-') {
    int status = driver(argc, argv);
    if (status >= 0) return status;
    std::fprintf(stderr, "usage: untar_bench [pairs] [jdk]\n");
    return 2;
  }
  int pairs = argc > 1 ? std::atoi(argv[1]) : 15;
  std::string jdk = argc > 2 ? argv[2] : "/usr/lib/jvm/java-17-openjdk-amd64";
  std::string cache = BWK_UNTAR_BENCH_CACHE;
  runOrExit("make the cache", "mkdir -p '" + cache + "'");
  const std::string jlinkStage = "'" + jdk +
                                 "/bin/jlink' --add-modules java.base,java.desktop --strip-debug "
                                 "--no-header-files --no-man-pages --output \"$PWD/x\"";
  Packed jlink = packBothWays(cache, "jlink",
                              "cd '" + cache + "' && rm -rf x && " + jlinkStage + " && mv x jlink-stage/Contents/Home");
  Packed whole = packBothWays(cache, "jdk", "cp -a '" + jdk + "/.' '" + cache + "/jdk-stage/Contents/Home'");

  RunArea area{cache + "/runs"};
  stdfs::remove_all(area.root);
  std::string tmp = area.fresh("tmp");
  std::vector<std::string> env{"PATH=/usr/bin:/bin", "HOME=" + area.root, "TMPDIR=" + tmp, "LANG=C.UTF-8"};
  std::vector<std::string> envOne = env;
  envOne.push_back("BRACKWOOD_UNPACK_THREADS=1");

  std::vector<Contest> contests;
  for (auto [title, archive, indexed] : {std::tuple{"jlink image, by create", jlink.create, true},
                                         std::tuple{"jlink image, by tar -czf", jlink.tar, false},
                                         std::tuple{"whole JDK, by create", whole.create, true},
                                         std::tuple{"whole JDK, by tar -czf", whole.tar, false}}) {
    std::optional<Contest> contest = prepareContest(area, title, archive, indexed, contests.size(), env, tmp);
    if (!contest) return 1;
    contests.push_back(std::move(*contest));
  }
  // What the preparation wrote goes to the disk now rather than during the runs.
  ::sync();
  measurePairs(contests, pairs, area, env, envOne);
  printResults(contests, pairs, env, envOne);
  stdfs::remove_all(area.root);
  return 0;
}
