// Start-up cost of a bundled runtime archive: the whole launcher process on a bundle whose
// app/jre.tar.gz is a real runtime image (extraction, a stand-in runtime library that returns
// at once, and the removal of the extracted runtime at exit) against `bsdtar -xf` followed by
// `rm -rf` of the same archive, pair by pair. Beside them, for the record: the extractor
// alone with each way of inflating, and inflating alone with each. Every contestant is a
// process of its own (this program re-executes itself as the extractor's driver) and every
// run goes into a fresh directory.
//
// Usage: untar_bench [pairs] [jdk]
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_util.h"
#include "install/inflated_tar_stream.h"
#include "install/untar.h"

using namespace bwk::bench;
namespace stdfs = std::filesystem;

namespace {

// The settings that inflate fastest through gz* on this machine (the defaults are an 8 KiB
// input buffer and whatever read size the caller picks).
constexpr unsigned kGzBuffer = 256 * 1024;
constexpr unsigned kGzRead = 128 * 1024;
// The launcher's peak resident set may exceed the tar stream by this much.
constexpr double kRssAllowanceMb = 32;

// Inflates the whole archive through zlib's gz* functions and throws the bytes away; the
// number of bytes, or -1.
long long inflateStreaming(const char* archive) {
  int fd = ::open(archive, O_RDONLY | O_CLOEXEC);
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

// Inflates the archive into memory as the extractor does, and lets it go again.
bool inflateWhole(const char* archive) {
  int fd = ::open(archive, O_RDONLY | O_CLOEXEC);
  bool ok = fd >= 0 && bwk::InflatedTarStream::inflate(fd) != nullptr;
  if (fd >= 0) ::close(fd);
  return ok;
}

std::string selfPath() { return stdfs::read_symlink("/proc/self/exe").string(); }

// Tool.app: the launcher, an Info.plist naming the runtime archive's tar size, the archive.
std::string makeBundle(const std::string& dir, const std::string& archive, long long length) {
  std::string app = dir + "/Tool.app";
  std::string info = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                     "<key>CFBundleName</key><string>Tool</string>"
                     "<key>bwk.jreUncompressedSize</key><integer>" + std::to_string(length) + "</integer>"
                     "<key>JavaVM</key><dict><key>MainClass</key><string>M</string>"
                     "<key>SearchSequence</key><array/></dict></dict></plist>";
  if (shell("set -e; mkdir -p '" + app + "/Contents/MacOS' '" + app + "/Contents/Resources/app'; cp '" BWK_BENCH_LAUNCHER
            "' '" + app + "/Contents/MacOS/Tool'; cp '" + archive + "' '" + app +
            "/Contents/Resources/app/jre.tar.gz'; printf '%s' '" + info + "' > '" + app + "/Contents/Info.plist'") != 0) {
    std::fprintf(stderr, "cannot make the bundle in %s\n", dir.c_str());
    std::exit(1);
  }
  return app;
}

// The driver modes: one extraction, or one inflation, in a process of its own.
int driver(int argc, char** argv) {
  if (argc == 6 && std::strcmp(argv[1], "--extract") == 0) {
    // Like the installation worker: a progress callback with the expected length.
    bwk::ProgressCallback progress = [](double, const char*) {};
    auto inflation = std::strcmp(argv[5], "whole") == 0 ? bwk::UnTar::Inflation::WholeBuffer
                                                        : bwk::UnTar::Inflation::Streaming;
    bwk::UnTar::Inflation used;
    bool ok = bwk::UnTar::untarWith(inflation, argv[2], argv[3], std::atoi(argv[4]), &progress, &used);
    if (!ok) return 1;
    return used == inflation ? 0 : 3;  // 3: the archive was not taken the way asked for
  }
  if (argc == 4 && std::strcmp(argv[1], "--inflate") == 0) {
    bool whole = std::strcmp(argv[3], "whole") == 0;
    return (whole ? inflateWhole(argv[2]) : inflateStreaming(argv[2]) >= 0) ? 0 : 1;
  }
  return -1;
}

struct Series {
  std::vector<double> wall = {};
  std::vector<double> cpu = {};
  std::vector<long> rssKb = {};
  void add(const Sample& s) {
    wall.push_back(s.seconds);
    cpu.push_back(s.cpuSeconds);
    rssKb.push_back(s.maxRssKb);
  }
};

Sample measureOrExit(const char* what, const std::vector<std::string>& argv, const std::vector<std::string>& env = {}) {
  Sample s = runMeasured(argv, "", env);
  if (s.status != 0) {
    std::fprintf(stderr, "%s failed with status %d\n", what, s.status);
    std::exit(1);
  }
  return s;
}

std::vector<double> ratios(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> out;
  for (size_t i = 0; i < a.size(); ++i) out.push_back(a[i] / b[i]);
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && argv[1][0] == '-') {
    int status = driver(argc, argv);
    if (status >= 0) return status;
    std::fprintf(stderr, "usage: untar_bench [pairs] [jdk]\n");
    return 2;
  }
  int pairs = argc > 1 ? std::atoi(argv[1]) : 21;
  std::string jdk = argc > 2 ? argv[2] : "/usr/lib/jvm/java-17-openjdk-amd64";
  std::string cache = BWK_UNTAR_BENCH_CACHE;
  // Its launcher library is the stand-in, which returns at once.
  std::string archive = jlinkRuntimeArchive(cache, jdk, "runtime-fake-jli.tar.gz", BWK_BENCH_FAKE_JLI);
  std::string self = selfPath();
  long long length = inflateStreaming(archive.c_str());
  if (length < 0) {
    std::fprintf(stderr, "cannot read %s\n", archive.c_str());
    return 1;
  }
  std::string runs = cache + "/runs";
  stdfs::remove_all(runs);
  auto freshDirectory = [&](const std::string& name) {
    std::string dir = runs + "/" + name;
    stdfs::remove_all(dir);
    stdfs::create_directories(dir);
    return dir;
  };
  std::string app = makeBundle(freshDirectory("bundle"), archive, length);
  // The launcher unpacks into TMPDIR; no display, so no window.
  std::string tmp = freshDirectory("tmp");
  std::vector<std::string> env{"PATH=/usr/bin:/bin", "HOME=" + runs, "TMPDIR=" + tmp, "LANG=C.UTF-8"};
  std::vector<std::string> launcher{app + "/Contents/MacOS/Tool"};

  // The extractor must produce what bsdtar produces before its speed means anything, with
  // either way of inflating, and the launcher must start and clean up; this also warms the
  // page cache with the archive.
  std::string theirs = freshDirectory("check-bsdtar");
  measureOrExit("bsdtar", {"/usr/bin/bsdtar", "-xf", archive, "-C", theirs});
  for (const char* how : {"whole", "stream"}) {
    std::string mine = freshDirectory(std::string("check-") + how);
    measureOrExit(how, {self, "--extract", archive, mine, std::to_string(length), how});
    if (shell("diff -r --no-dereference '" + mine + "' '" + theirs + "' > /dev/null") != 0) {
      std::fprintf(stderr, "the extractor's result (%s) differs from bsdtar's (see %s)\n", how, runs.c_str());
      return 1;
    }
    stdfs::remove_all(mine);
  }
  stdfs::remove_all(theirs);
  measureOrExit("the launcher", launcher, env);
  if (!stdfs::is_empty(tmp)) {
    std::fprintf(stderr, "the launcher left its runtime in %s\n", tmp.c_str());
    return 1;
  }

  Series start, reference, whole, streaming, inflateWholeOnly, inflateStreamOnly;
  for (int pair = 0; pair < pairs; ++pair) {
    // The two sides of a pair take turns going first.
    for (int side = 0; side < 2; ++side) {
      if ((side == 0) == (pair % 2 == 0)) {
        start.add(measureOrExit("the launcher", launcher, env));
      } else {
        std::string dir = freshDirectory("bsdtar");
        Sample extract = measureOrExit("bsdtar", {"/usr/bin/bsdtar", "-xf", archive, "-C", dir});
        Sample remove = measureOrExit("rm", {"/bin/rm", "-rf", dir});
        extract.seconds += remove.seconds;
        extract.cpuSeconds += remove.cpuSeconds;
        reference.add(extract);
      }
    }
    for (auto [series, how] : {std::pair{&whole, "whole"}, std::pair{&streaming, "stream"}}) {
      std::string dir = freshDirectory("extract");
      series->add(measureOrExit("the extractor", {self, "--extract", archive, dir, std::to_string(length), how}));
      stdfs::remove_all(dir);
    }
    inflateWholeOnly.add(measureOrExit("libdeflate", {self, "--inflate", archive, "whole"}));
    inflateStreamOnly.add(measureOrExit("zlib", {self, "--inflate", archive, "stream"}));
  }
  stdfs::remove_all(runs);

  double megabytes = static_cast<double>(length) / 1e6;
  auto ms = [](const std::vector<double>& v) { return median(v) * 1e3; };
  std::printf("runtime archive %s: %.1f MB compressed, %.1f MB tar stream\n", archive.c_str(),
              static_cast<double>(stdfs::file_size(archive)) / 1e6, megabytes);
  std::printf("%d interleaved pairs; medians per run, process start included:\n", pairs);
  std::printf("  %-58s %9s %9s\n", "", "wall", "CPU");
  auto row = [&](const char* name, const Series& s) {
    std::printf("  %-58s %6.1f ms %6.1f ms\n", name, ms(s.wall), ms(s.cpu));
  };
  row("launcher start, runtime extracted and removed at exit", start);
  row("bsdtar -xf, then rm -rf", reference);
  row("extraction alone, inflated in one piece (libdeflate)", whole);
  row("extraction alone, streamed (zlib gz*)", streaming);
  row("inflating alone in one piece (libdeflate), the method used", inflateWholeOnly);
  row("inflating alone, streamed (zlib gz*)", inflateStreamOnly);
  std::printf("median of per-pair ratios launcher / (bsdtar + rm): %.3f (wall), %.3f (CPU)\n",
              median(ratios(start.wall, reference.wall)), median(ratios(start.cpu, reference.cpu)));
  std::printf("median of per-round ratios, in one piece / streamed: extraction %.3f, inflating %.3f\n",
              median(ratios(whole.wall, streaming.wall)), median(ratios(inflateWholeOnly.wall, inflateStreamOnly.wall)));
  long peakKb = *std::max_element(start.rssKb.begin(), start.rssKb.end());
  std::printf("launcher peak RSS: %.1f MB at most (bound: tar stream + %.0f MB = %.1f MB); bsdtar %.1f MB\n",
              static_cast<double>(peakKb) * 1024 / 1e6, kRssAllowanceMb, megabytes + kRssAllowanceMb,
              static_cast<double>(*std::max_element(reference.rssKb.begin(), reference.rssKb.end())) * 1024 / 1e6);
  return 0;
}
