// What the cache of unpacked runtimes ("bwk.reuseUnpackedRuntime") costs and saves. A small
// program that prints one line runs on a jlink image of OpenJDK 17 (java.base and
// java.desktop) shipped as app/jre.tar.gz, without a display:
//
// - later starts (the entry exists) against the same application with that image already
//   unpacked as Contents/Resources/jre.bundle (the entry's files, hard-linked); also with the note that stands for the
//   archive's checksum removed before each, so that the start reads the whole archive;
// - first starts (the cache emptied before each, not timed) against starts without the key,
//   which unpack into the temporary directory and remove it at exit.
//
// Contestants take turns run by run; the figures are medians of the per-round ratios.
//
// Usage: runtime_cache_bench [launcher] [jdk] [rounds]
#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench_util.h"
#include "install/file_checksum.h"

using namespace bwk::bench;

namespace {

std::string plist(const std::string& classes, bool reuse) {
  return std::string(
             "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleName</key><string>Quick</string>") +
         (reuse ? "<key>bwk.reuseUnpackedRuntime</key><true/>" : "") +
         "<key>JavaVM</key><dict><key>MainClass</key><string>Quick</string><key>ClassPath</key><string>" + classes +
         "</string></dict></dict></plist>";
}

struct Runs {
  std::vector<double> seconds;
  long maxRssKb = 0;
};

bool measure(Runs& runs, const std::string& executable, const std::vector<std::string>& env, bool keep) {
  Sample s = runMeasured({executable}, "", env);
  if (s.status != 0) {
    std::fprintf(stderr, "%s ended with status %d\n", executable.c_str(), s.status);
    return false;
  }
  if (keep) {
    runs.seconds.push_back(s.seconds);
    runs.maxRssKb = std::max(runs.maxRssKb, s.maxRssKb);
  }
  return true;
}

double perRoundRatio(const Runs& a, const Runs& b) {
  std::vector<double> r;
  for (size_t i = 0; i < a.seconds.size() && i < b.seconds.size(); ++i) r.push_back(a.seconds[i] / b.seconds[i]);
  return median(r);
}

void print(const char* name, const Runs& runs) {
  std::printf("  %-48s %7.1f ms  peak RSS %6.1f MB\n", name, median(runs.seconds) * 1e3,
              static_cast<double>(runs.maxRssKb) / 1024);
}

// The three bundles of one small program, laid out in `dir`; the reference runs the very
// files of the cache entry, hard-linked into its bundle: how a file was written (in large
// pieces or small) decides how the system caches it, and that alone moves a runtime's start
// by several per cent.
struct Bundles {
  std::string unpacked, cached, plain;
};
std::optional<Bundles> makeBundles(const std::string& dir, const std::string& launcher, const std::string& jdk,
                                   const std::string& archive, const std::vector<std::string>& env) {
  std::string classes = dir + "/classes";
  Bundles b{makeBundle(dir, "Unpacked", launcher, plist(classes, false)),
            makeBundle(dir, "Cached", launcher, plist(classes, true)),
            makeBundle(dir, "Plain", launcher, plist(classes, false))};
  if (shell("set -e; cd '" + dir +
            "'; printf 'public class Quick { public static void main(String[] a) { "
            "System.out.println(\"ready\"); } }' > Quick.java; '" +
            jdk +
            "/bin/javac' -d classes Quick.java; "
            "mkdir tmp cache; cp '" +
            archive + "' Cached.app/Contents/Resources/app/jre.tar.gz; cp '" + archive +
            "' Plain.app/Contents/Resources/app/jre.tar.gz") != 0) {
    std::fprintf(stderr, "cannot lay out the bundles in %s\n", dir.c_str());
    return std::nullopt;
  }
  Runs making;
  if (!measure(making, b.cached, env, false) ||
      shell("cp -al '" + dir + "'/cache/brackwood/Quick/runtime/*/jre.bundle '" + dir +
            "/Unpacked.app/Contents/Resources/'") != 0) {
    std::fprintf(stderr, "cannot lay out the reference\n");
    return std::nullopt;
  }
  return b;
}

struct Contestants {
  Runs fromUnpacked, later, laterChecksum, withoutKey, first;
};

// Later starts: two rounds first warm the page cache and the class-data archive; each round
// starts with another contestant.
bool measureLaterStarts(Contestants& c, const Bundles& b, const std::string& dir, const std::vector<std::string>& env,
                        int rounds) {
  std::string forgetArchive = "rm -f '" + dir + "/cache/brackwood/Quick/runtime/'.archive-*";
  for (int round = -2; round < rounds; ++round) {
    bool keep = round >= 0;
    bool ok = true;
    std::vector<std::function<void()>> turns = {
        [&] { ok &= measure(c.fromUnpacked, b.unpacked, env, keep); },
        [&] { ok &= measure(c.later, b.cached, env, keep); },
        [&] {
          shell(forgetArchive);
          ok &= measure(c.laterChecksum, b.cached, env, keep);
        },
    };
    for (size_t i = 0; i < turns.size(); ++i) turns[(i + static_cast<size_t>(round + 2)) % turns.size()]();
    if (!ok) return false;
  }
  return true;
}

// First starts: the cache emptied before each, against the bundle without the key.
bool measureFirstStarts(Contestants& c, const Bundles& b, const std::string& dir, const std::vector<std::string>& env,
                        int rounds) {
  std::string clearCache = "rm -rf '" + dir + "/cache/brackwood/Quick/runtime'";
  for (int round = -1; round < rounds; ++round) {
    bool keep = round >= 0;
    bool swap = round % 2 != 0;
    if (swap && !measure(c.withoutKey, b.plain, env, keep)) return false;
    shell(clearCache);
    if (!measure(c.first, b.cached, env, keep)) return false;
    if (!swap && !measure(c.withoutKey, b.plain, env, keep)) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string launcher = argc > 1 ? argv[1] : "build/bin/brackwood-launcher";
  std::string jdk = argc > 2 ? argv[2] : "/usr/lib/jvm/java-17-openjdk-amd64";
  int rounds = argc > 3 ? std::atoi(argv[3]) : 20;
  if (!makeAbsolute({&launcher})) return 1;
  std::string archive = jlinkRuntimeArchive(BWK_RUNTIME_ARCHIVE_CACHE, jdk);

  std::string dir = tempDirectory("bwk-runtime-cache");
  std::vector<std::string> env = environmentWith({"TMPDIR=" + dir + "/tmp", "XDG_CACHE_HOME=" + dir + "/cache"});
  std::optional<Bundles> bundles = makeBundles(dir, launcher, jdk, archive, env);
  if (!bundles) return 1;
  // The cache takes an archive file for known only once it has stayed unchanged a while.
  std::this_thread::sleep_for(std::chrono::milliseconds(3500));
  Contestants c;
  if (!measureLaterStarts(c, *bundles, dir, env, rounds) || !measureFirstStarts(c, *bundles, dir, env, rounds))
    return 1;
  // The checksum alone, in this process: what a later start adds before the runtime starts.
  std::vector<double> checksums;
  for (int i = 0; i < 2 * rounds; ++i) {
    auto start = std::chrono::steady_clock::now();
    if (!bwk::checksumFile(archive)) return 1;
    checksums.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  shell("rm -rf '" + dir + "'");

  std::printf("a small program on a jlink image of OpenJDK 17 as app/jre.tar.gz (%s), %d interleaved rounds, medians\n",
              archive.c_str(), rounds);
  std::printf("later starts:\n");
  print("runtime unpacked as Contents/Resources/jre.bundle", c.fromUnpacked);
  print("bwk.reuseUnpackedRuntime, entry in the cache", c.later);
  print("the same, archive file not known (checksum taken)", c.laterChecksum);
  std::printf("  median of per-round ratios cached/unpacked: %.3f (checksum taken: %.3f)\n",
              perRoundRatio(c.later, c.fromUnpacked), perRoundRatio(c.laterChecksum, c.fromUnpacked));
  std::printf("first starts:\n");
  print("without the key (unpacked into TMPDIR)", c.withoutKey);
  print("bwk.reuseUnpackedRuntime, entry made", c.first);
  std::printf("  median of per-round ratios first/without key: %.3f\n", perRoundRatio(c.first, c.withoutKey));
  std::printf("size and CRC-32 of the archive alone: %.2f ms\n", median(checksums) * 1e3);
  return 0;
}
