// Extraction speed of a real runtime archive: the launcher's extractor against bsdtar and GNU
// tar, and against inflating the same archive to nowhere through zlib's gz* interface (the
// ceiling for any extractor that reads that way). Every contestant is a process of its own
// (this program re-executes itself as the extractor's driver), each run goes into a fresh
// directory, and the contestants take turns run by run so that a drifting machine affects
// them alike.
//
// Usage: untar_bench [rounds] [jdk]
#include <fcntl.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_util.h"
#include "install/untar.h"

using namespace bwk::bench;
namespace stdfs = std::filesystem;

namespace {

// The settings that inflate fastest through gz* on this machine (the defaults are an 8 KiB
// input buffer and whatever read size the caller picks).
constexpr unsigned kCeilingBuffer = 256 * 1024;
constexpr unsigned kCeilingRead = 128 * 1024;

// Inflates the whole archive and throws the bytes away; the number of bytes, or -1.
long long inflateToNowhere(const char* archive, unsigned bufferSize, unsigned readSize) {
  int fd = ::open(archive, O_RDONLY | O_CLOEXEC);
  gzFile stream = fd >= 0 ? gzdopen(fd, "r") : nullptr;
  if (!stream) return -1;
  if (bufferSize) gzbuffer(stream, bufferSize);
  std::vector<char> buffer(readSize);
  long long total = 0;
  int n;
  while ((n = gzread(stream, buffer.data(), readSize)) > 0) total += n;
  bool ok = n == 0 && gzclose(stream) == Z_OK;
  return ok ? total : -1;
}

std::string selfPath() { return stdfs::read_symlink("/proc/self/exe").string(); }

// A jlink image of java.base and java.desktop laid out as a runtime bundle
// (Contents/Home/...), packed with GNU tar and gzip -6. Built once, kept in the cache.
std::string runtimeArchive(const std::string& cache, const std::string& jdk) {
  std::string archive = cache + "/runtime.tar.gz";
  if (stdfs::exists(archive)) return archive;
  std::string stage = cache + "/stage";
  std::string command = "set -e; rm -rf '" + stage + "'; mkdir -p '" + cache + "'; '" + jdk +
                        "/bin/jlink' --add-modules java.base,java.desktop --strip-debug --no-header-files"
                        " --no-man-pages --output '" + stage + "/Contents/Home'; tar -C '" + stage +
                        "' --format=gnu -cf - Contents | gzip -6 > '" + archive + ".part'; mv '" + archive +
                        ".part' '" + archive + "'; rm -rf '" + stage + "'";
  if (shell(command) != 0) {
    std::fprintf(stderr, "cannot build the runtime archive in %s\n", cache.c_str());
    std::exit(1);
  }
  return archive;
}

struct Contestant {
  std::string name;
  // The command for one run; `dir` is a fresh, existing directory it may extract into.
  std::vector<std::string> (*argv)(const std::string& self, const std::string& archive, const std::string& dir,
                                   long long length);
  std::vector<double> wall = {};
  std::vector<double> cpu = {};
};

std::vector<Contestant> contestants() {
  return {
      {"inflate only, zlib gz* defaults",
       [](const std::string& self, const std::string& archive, const std::string&, long long) {
         return std::vector<std::string>{self, "--inflate", archive, "0", "32768"};
       }},
      {"inflate only, gz* tuned (ceiling)",
       [](const std::string& self, const std::string& archive, const std::string&, long long) {
         return std::vector<std::string>{self, "--inflate", archive, std::to_string(kCeilingBuffer),
                                         std::to_string(kCeilingRead)};
       }},
      {"UnTar::untar",
       [](const std::string& self, const std::string& archive, const std::string& dir, long long length) {
         return std::vector<std::string>{self, "--extract", archive, dir, std::to_string(length)};
       }},
      {"bsdtar -xf",
       [](const std::string&, const std::string& archive, const std::string& dir, long long) {
         return std::vector<std::string>{"/usr/bin/bsdtar", "-xf", archive, "-C", dir};
       }},
      {"GNU tar -xzf",
       [](const std::string&, const std::string& archive, const std::string& dir, long long) {
         return std::vector<std::string>{"/usr/bin/tar", "-xzf", archive, "-C", dir};
       }},
  };
}

// The driver modes: one extraction, or one inflation, in a process of its own.
int driver(int argc, char** argv) {
  if (argc == 5 && std::strcmp(argv[1], "--extract") == 0) {
    // Like the installation worker: a progress callback with the expected length.
    bwk::ProgressCallback progress = [](double, const char*) {};
    return bwk::UnTar::untar(argv[2], argv[3], std::atoi(argv[4]), &progress) ? 0 : 1;
  }
  if (argc == 5 && std::strcmp(argv[1], "--inflate") == 0) {
    auto bufferSize = static_cast<unsigned>(std::atoi(argv[3]));
    auto readSize = static_cast<unsigned>(std::atoi(argv[4]));
    return inflateToNowhere(argv[2], bufferSize, readSize) >= 0 ? 0 : 1;
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && argv[1][0] == '-') {
    int status = driver(argc, argv);
    if (status >= 0) return status;
    std::fprintf(stderr, "usage: untar_bench [rounds] [jdk]\n");
    return 2;
  }
  int rounds = argc > 1 ? std::atoi(argv[1]) : 15;
  std::string jdk = argc > 2 ? argv[2] : "/usr/lib/jvm/java-17-openjdk-amd64";
  std::string cache = BWK_UNTAR_BENCH_CACHE;
  std::string archive = runtimeArchive(cache, jdk);
  std::string self = selfPath();
  long long length = inflateToNowhere(archive.c_str(), 0, 32768);
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

  // The extractor must produce what bsdtar produces before its speed means anything; this
  // also warms the page cache with the archive.
  std::string mine = freshDirectory("check-untar"), theirs = freshDirectory("check-bsdtar");
  if (runMeasured({self, "--extract", archive, mine, std::to_string(length)}).status != 0 ||
      runMeasured({"/usr/bin/bsdtar", "-xf", archive, "-C", theirs}).status != 0 ||
      shell("diff -r --no-dereference '" + mine + "' '" + theirs + "' > /dev/null") != 0) {
    std::fprintf(stderr, "the extractor's result differs from bsdtar's (see %s)\n", runs.c_str());
    return 1;
  }
  stdfs::remove_all(runs);

  std::vector<Contestant> all = contestants();
  for (int round = 0; round < rounds; ++round) {
    for (Contestant& c : all) {
      std::string dir = freshDirectory("run");
      Sample s = runMeasured(c.argv(self, archive, dir, length));
      if (s.status != 0) {
        std::fprintf(stderr, "%s failed with status %d\n", c.name.c_str(), s.status);
        return 1;
      }
      c.wall.push_back(s.seconds);
      c.cpu.push_back(s.cpuSeconds);
      stdfs::remove_all(dir);
    }
  }
  stdfs::remove_all(runs);

  double megabytes = static_cast<double>(length) / 1e6;
  std::printf("runtime archive %s: %.1f MB compressed, %.1f MB tar stream\n", archive.c_str(),
              static_cast<double>(stdfs::file_size(archive)) / 1e6, megabytes);
  std::printf("%d interleaved rounds; medians per run (process start included):\n", rounds);
  std::printf("  %-36s %9s %8s %9s\n", "", "wall", "MB/s", "CPU");
  for (const Contestant& c : all) {
    double m = median(c.wall);
    std::printf("  %-36s %6.1f ms %8.0f %6.1f ms\n", c.name.c_str(), m * 1e3, megabytes / m, median(c.cpu) * 1e3);
  }
  // Ratios within each round, then their median: robust against the machine's drift.
  const Contestant& untar = all[2];
  std::printf("median of per-round ratios (wall, CPU):\n");
  for (size_t i = 0; i < all.size(); ++i) {
    if (i == 2) continue;
    std::vector<double> wallRatios, cpuRatios;
    for (int round = 0; round < rounds; ++round) {
      wallRatios.push_back(untar.wall[round] / all[i].wall[round]);
      cpuRatios.push_back(untar.cpu[round] / all[i].cpu[round]);
    }
    std::printf("  UnTar::untar / %-36s %.3f  %.3f\n", all[i].name.c_str(), median(wallRatios), median(cpuRatios));
  }
  return 0;
}
