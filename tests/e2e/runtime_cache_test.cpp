// The cache of unpacked runtimes ("bwk.reuseUnpackedRuntime"), through the launcher executable.

#include <fstream>

#include "e2e_support.h"

namespace bwk::test {
namespace {

namespace stdfs = std::filesystem;

class RuntimeCache : public ::testing::Test {
 public:  // the case tables below reach into the fixture
  void SetUp() override {
    fs::createDirectory(tmp / "t", false);
    runtimeDir = tmp / "cache/brackwood/Cachy/runtime";
    app = makeBundle(tmp.path(), "Cachy", info("Cachy"));
    packRuntime("first");
  }
  static PlistValue info(const std::string& name) {
    return PlistValue(PlistDict{{"CFBundleName", name},
                                {"bwk.reuseUnpackedRuntime", true},
                                {"JavaVM", PlistValue(PlistDict{{"MainClass", "demo.Main"}})}});
  }

  // A stand-in runtime as the archive, stored uncompressed (same content length, same size),
  // with a packed jar and an unpack200 that takes a second for it when `slowUnpack`.
  void packRuntime(const std::string& content, bool slowUnpack = false) {
    std::string src = tmp / "src";
    stdfs::remove_all(src);
    makeFakeRuntime(src, "17.0.2", "bundle");
    writeFile(src + "/Contents/Home/content.txt", content);
    if (slowUnpack) {
      writeFile(src + "/Contents/Home/bin/unpack200", "#!/bin/sh\nsleep 1\nmv \"$2\" \"$3\"\n");
      ::chmod((src + "/Contents/Home/bin/unpack200").c_str(), 0755);
      writeFile(src + "/Contents/Home/lib/p0.jar.pack", "jar");
    }
    fs::createDirectory(app + "/Contents/Resources/app", true);
    RunResult r = shell("tar cf - -C " + src +
                        " Contents | python3 -c 'import gzip, sys; "
                        "sys.stdout.buffer.write(gzip.compress(sys.stdin.buffer.read(), 0, mtime=0))' > " +
                        app + "/Contents/Resources/app/jre.tar.gz");
    ASSERT_EQ(r.status, 0) << r.err;
  }

  std::vector<std::string> env(std::vector<std::string> extra = {}) {
    extra.insert(extra.end(),
                 {"FAKE_JLI_STATUS=7", "BRACKWOOD_LOG=yes", "TMPDIR=" + tmp / "t", "XDG_CACHE_HOME=" + tmp / "cache"});
    return launcherEnvironment(extra);
  }

  struct Start {
    int status = -1;
    std::string log;
    std::string runtime;  // the runtime the launch was given
  };
  // One start in command-line mode; the runtime is read from the recorded vector.
  Start start() {
    std::string record = tmp / "record.txt";
    stdfs::remove(record);
    RunResult r = run({app + "/Contents/MacOS/Cachy"}, env({"FAKE_JLI_RECORD=" + record}));
    Start s{r.status, r.err, ""};
    if (fs::exists(record))
      for (const std::string& arg : readRecord(record).argv)
        if (text::startsWith(arg, "-Dbwk.jreBundle=")) s.runtime = arg.substr(16);
    return s;
  }

  std::vector<std::string> namesIn(const std::string& dir) {
    return fs::listDirectory(dir).value_or(std::vector<std::string>{});
  }

  TempDir tmp;
  std::string runtimeDir, app;
  std::unique_ptr<Background> holder;  // a process that holds an entry in use
};

// `between` changes things after a first start; the second uses, makes or bypasses the entry.
TEST_F(RuntimeCache, LaterStartsUseTheEntryWhileItIsSoundAndTheArchiveFileTheSameFirstStartsShareIt) {
  enum class Second { kUses, kMakes, kTemporary };
  static const char* const kFolders[] = {"1-0000000", "12345678", "-00000000", "9-abcdef0f"};  // an old entry last
  // name, what changes between the starts, what the second does, a line it logs
  const std::tuple<const char*, std::function<void(RuntimeCache&, const std::string& entry)>, Second, const char*>
      cases[] = {
          {"archive unchanged", [](RuntimeCache&, const std::string&) {}, Second::kUses, "runtime cache used"},
          {"archive changed (older entry removed)",
           [](RuntimeCache& t, const std::string&) {
             t.packRuntime("second");
             for (const char* folder : kFolders) stdfs::create_directory(t.runtimeDir + "/" + folder);
           },
           Second::kMakes, "runtime cache cleaned"},
          {"runtime library missing",
           [](RuntimeCache&, const std::string& entry) {
             stdfs::remove(entry + "/jre.bundle/Contents/Home/lib/libjli.so");
           },
           Second::kMakes, "runtime cache removed damaged"},
          {"copy of a killed start beside it",
           [](RuntimeCache& t, const std::string&) {
             // A mark naming a process that cannot exist.
             writeFile(t.runtimeDir + "/.staging-killed/.brackwood-owner", "brackwood-launcher 999999999 1\n");
             ::chmod((t.runtimeDir + "/.staging-killed").c_str(), 0700);
             t.packRuntime("third");
           },
           Second::kMakes, "runtime cache cleaned"},
          {"entry in use while damaged",
           [](RuntimeCache& t, const std::string& entry) {
             stdfs::remove(entry + "/jre.bundle/Contents/Home/lib/libjli.so");
             t.holder = std::make_unique<Background>(
                 std::vector<std::string>{"/usr/bin/flock", "-s", "-o", entry, "sleep", "30"},
                 std::vector<std::string>{});
             std::this_thread::sleep_for(std::chrono::milliseconds(300));
           },
           Second::kTemporary, "is damaged, runtime library missing, and in use"},
      };
  for (const auto& [name, between, second, logged] : cases) {
    stdfs::remove_all(tmp / "cache");
    packRuntime("first");
    Start first = start();
    ASSERT_EQ(first.status, 7) << name << "\n" << first.log;
    EXPECT_TRUE(text::contains(first.log, "runtime cache made")) << name << "\n" << first.log;
    std::vector<std::string> entries = namesIn(runtimeDir);
    ASSERT_EQ(entries.size(), 1u) << name;
    std::string entry = runtimeDir + "/" + entries[0];
    EXPECT_EQ(first.runtime, entry + "/jre.bundle") << name;
    EXPECT_TRUE(namesIn(tmp / "t").empty()) << name << ": the exit cleanup leaves the entry and nothing else";

    between(*this, entry);
    Start later = start();
    holder.reset();
    EXPECT_EQ(later.status, 7) << name << "\n" << later.log;
    EXPECT_TRUE(text::contains(later.log, logged)) << name << "\n" << later.log;
    EXPECT_EQ(text::contains(later.log, "jre destination"), second != Second::kUses) << name << ": extracted or not";
    std::vector<std::string> after = namesIn(runtimeDir);
    if (second == Second::kTemporary) {
      EXPECT_TRUE(text::startsWith(later.runtime, tmp / "t/")) << name << " " << later.runtime;
      continue;
    }
    for (const char* folder : kFolders)
      EXPECT_EQ(std::erase(after, folder), text::startsWith(name, "archive changed") && *folder != '9') << folder;
    ASSERT_EQ(after.size(), 1u) << name << ": only the current entry stays";
    EXPECT_EQ(later.runtime, runtimeDir + "/" + after[0] + "/jre.bundle") << name;
    EXPECT_EQ(after[0] == entries[0], second == Second::kUses || name == std::string("runtime library missing"))
        << name << ": the entry is named after the archive's content";
    EXPECT_TRUE(namesIn(tmp / "t").empty()) << name;
  }
  // A settled archive file is known by its stamp until any write, even one that restores its mtime.
  std::string archive = app + "/Contents/Resources/app/jre.tar.gz";
  stdfs::rename(archive, tmp / "first.tar.gz");
  packRuntime("other");  // the same length as "first"
  std::string same = readFile(archive);
  stdfs::rename(tmp / "first.tar.gz", archive);
  ASSERT_EQ(same.size(), stdfs::file_size(archive));
  std::this_thread::sleep_for(std::chrono::milliseconds(3300));  // the archive settles

  Start first = start();
  EXPECT_TRUE(text::contains(first.log, "checksum taken")) << first.log;
  Start second = start();
  EXPECT_TRUE(text::contains(second.log, "the archive file is known")) << second.log;
  EXPECT_EQ(second.runtime, first.runtime);

  auto modified = stdfs::last_write_time(archive);
  {
    std::ofstream rewrite(archive, std::ios::binary | std::ios::in | std::ios::out);  // the same file, not a new one
    rewrite.write(same.data(), static_cast<std::streamsize>(same.size()));
  }
  stdfs::last_write_time(archive, modified);
  Start third = start();
  EXPECT_TRUE(text::contains(third.log, "checksum taken")) << third.log;
  EXPECT_NE(third.runtime, first.runtime);
  EXPECT_TRUE(text::contains(readFile(third.runtime + "/Contents/Home/content.txt"), "other")) << "new content";
  EXPECT_EQ(namesIn(runtimeDir).size(), 1u) << "the older entry and its note are removed";
  // Simultaneous first starts (kept side by side by a slow unpack200): one rename wins, the rest use it.
  packRuntime("first", true);
  std::vector<std::unique_ptr<Background>> starts;
  for (int i = 0; i < 3; ++i)
    starts.push_back(std::make_unique<Background>(std::vector<std::string>{app + "/Contents/MacOS/Cachy"},
                                                  env({"FAKE_JLI_RECORD=" + tmp / ("record" + std::to_string(i))})));
  int made = 0, usedTheirs = 0;
  for (auto& s : starts) {
    RunResult r = s->finish(60);
    EXPECT_EQ(r.status, 7) << r.err;
    made += text::contains(r.err, "runtime cache made");
    usedTheirs += text::contains(r.err, "made by another start meanwhile");
  }
  EXPECT_EQ(std::pair(made, usedTheirs), std::pair(1, 2));
  std::vector<std::string> entries = namesIn(runtimeDir);
  ASSERT_EQ(entries.size(), 1u) << "no copy stays beside the entry";
  EXPECT_TRUE(fs::exists(runtimeDir + "/" + entries[0] + "/jre.bundle/Contents/Home/lib/p0.jar"))
      << "unpacked before it was kept";
  EXPECT_TRUE(namesIn(tmp / "t").empty());
}

// Refused cache directories: unpacked into the temporary directory, nothing written there.
TEST_F(RuntimeCache, RefusedCacheDirectoriesFallBackToTheTemporaryDirectory) {
  // name, shell commands run in the test's directory, reason
  const std::tuple<const char*, std::string, const char*> cases[] = {
      {"symbolic link", "mkdir -p elsewhere cache && ln -s $PWD/elsewhere cache/brackwood",
       "brackwood is a symbolic link"},
      {"writable by others", "mkdir -p cache/brackwood/Cachy && chmod 777 cache/brackwood/Cachy",
       "Cachy is writable by others"},
      {"owned by another user", "mkdir -p " + runtimeDir + " && chown 65534:65534 " + runtimeDir,  // run as root
       "runtime is not owned by the user"},
      // Last: it changes the bundle. ".." as a directory name would lead out of the cache.
      {"a name that is no directory name", "sed -i 's|>Cachy<|>..<|' Cachy.app/Contents/Info.plist",
       "no usable CFBundleIdentifier or CFBundleName"},
  };
  for (const auto& [name, prepare, reason] : cases) {
    stdfs::remove_all(tmp / "cache");
    stdfs::remove_all(tmp / "elsewhere");
    packRuntime("first");
    ASSERT_EQ(shell("cd " + tmp.path() + " && " + prepare).status, 0) << name;
    Start s = start();
    EXPECT_TRUE(text::contains(s.log, "runtime cache refused") && text::contains(s.log, reason)) << name << s.log;
    EXPECT_EQ(s.status, 7) << name << "\n" << s.log;
    EXPECT_TRUE(text::startsWith(s.runtime, tmp / "t/")) << name << " " << s.runtime;
    EXPECT_EQ(namesIn(tmp / "elsewhere").size() + namesIn(runtimeDir).size() + namesIn(tmp / "t").size(), 0u) << name;
  }
  // A name of 255 bytes, the most a directory name holds, is taken.
  shell("sed -i 's|>[.][.]<|>" + std::string(255, 'n') + "<|' " + app + "/Contents/Info.plist");
  EXPECT_TRUE(text::contains(start().log, "runtime cache made"));
}

}  // namespace
}  // namespace bwk::test
