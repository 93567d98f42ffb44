// Application mode on a private X server: progress window, Cancel, fallback, GTK only when shown.

#include "gui_support.h"

namespace bwk::test {
namespace {

class Window : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!x.running()) GTEST_SKIP() << "no Xvfb here";
    fs::createDirectory(tmp / "t", false);
  }

  // tmp/rt.tar.gz: a fake runtime padded with `padMegabytes` of random data; sets `tarSize`.
  void runtimeArchive(int padMegabytes) {
    std::string src = tmp / "runtime-src";
    makeFakeRuntime(src, "17.0.2", "bundle");
    shell("head -c " + std::to_string(padMegabytes) + "M /dev/urandom > " + src + "/Contents/Home/pad.bin");
    shell("tar cf " + tmp / "rt.tar" + " -C " + src + " Contents && gzip -1 -f " + tmp / "rt.tar");
    tarSize = static_cast<int64_t>(std::stoll(shell("gzip -l " + tmp / "rt.tar.gz" + " | awk 'NR==2{print $2}'").out));
  }

  // Slowpoke.app: texts, an icon, and `extra` configuration.
  std::string bundle(PlistDict extra = {}) {
    PlistDict info{{"CFBundleName", "Slowpoke"}, {"JavaVM", PlistValue(PlistDict{{"MainClass", "demo.Main"}})}};
    if (tarSize > 0) info["bwk.jreUncompressedSize"] = PlistValue(tarSize);
    for (auto& [k, v] : extra) info[k] = v;
    std::string app = makeBundle(tmp.path(), "Slowpoke", PlistValue(info));
    writeFile(app + "/Contents/Resources/en.lproj/Localizable.strings",
              "\"WizardCaption\" = \"Installing Slowpoke\";\n\"ButtonCancel\" = \"Cancel\";\n");
    writeFile(app + "/Contents/Resources/app.icns",
              icnsContainer({{"icp4", solidPng(16, 0, 255, 0)}, {"ic07", solidPng(128, 255, 0, 255)}}));
    return app;
  }

  // The archive place of the bundle as a named pipe, fed in 64 KiB pieces with a pause after each.
  std::unique_ptr<Background> feedArchive(const std::string& app, const std::string& pause) {
    std::string archive = app + "/Contents/Resources/app/jre.tar.gz";
    shell("mkdir -p " + tmp / "pieces " + app + "/Contents/Resources/app && mkfifo " + archive + " && split -b 65536 " +
          tmp / "rt.tar.gz " + tmp / "pieces/p.");
    std::string feed = "for f in " + tmp / "pieces/p.*; do cat $f || exit; sleep " + pause + "; done > " + archive;
    return std::make_unique<Background>(std::vector<std::string>{"/bin/sh", "-c", feed}, std::vector<std::string>{});
  }

  // Entries of `extra` replace those of the same name.
  std::vector<std::string> env(std::vector<std::string> extra = {}) {
    extra.insert(extra.begin(), {"DISPLAY=" + x.display(), "TMPDIR=" + tmp / "t", "FAKE_JLI_RECORD=" + record,
                                 "FAKE_JLI_STATUS=7", "LANGUAGE=en"});
    return launcherEnvironment(extra);
  }
  size_t entriesIn(const std::string& dir) {
    return fs::listDirectory(dir).value_or(std::vector<std::string>{"?"}).size();
  }

  Xvfb x;
  TempDir tmp;
  std::string record = tmp / "record.txt";
  int64_t tarSize = 0;
};

TEST_F(Window, ShowsProgressAndCancelEndsTheStart) {
  runtimeArchive(24);
  std::string app = bundle();
  auto feeder = feedArchive(app, "0.025");  // about 10 s for the whole archive
  Background launcher({app + "/Contents/MacOS/Slowpoke"}, env());

  std::string window = x.waitForWindow("^Installing Slowpoke$", 20);
  ASSERT_FALSE(window.empty()) << launcher.finish(1).err;
  Xvfb::Geometry g = x.geometry(window);
  ASSERT_GT(g.width, 100);

  sleepMs(400);
  std::string first = x.screenshot();
  sleepMs(800);
  std::string second = x.screenshot();
  EXPECT_GT(countPixels(first, second, g, std::not_equal_to<>()), 40) << "the bar does not move";
  EXPECT_EQ(entriesIn(tmp / "t"), 1u) << "the runtime is being extracted into a temporary directory";

  // Cancel sits at the bottom right, inside the window's border.
  x.xdotool("mousemove " + std::to_string(g.x + g.width - 45) + " " + std::to_string(g.y + g.height - 30) + " click 1");
  RunResult r = launcher.finish(20);
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(entriesIn(tmp / "t"), 0u) << "the temporary directory is removed";
  EXPECT_FALSE(fs::exists(record)) << "nothing was launched";
  sleepMs(1500);
  EXPECT_EQ(x.xdotool("search --onlyvisible --name 'Slowpoke$'"), "") << "a cancellation shows no alert";
}

// GTK only when the window shows, never a GL driver; without a display or GTK the start goes
// on. The stand-in runtime holds the process while its mappings are read.
TEST_F(Window, OnlyAStartThatShowsTheWindowLoadsGtk) {
  runtimeArchive(1);
  // A library of GTK's name without GTK's functions, found first through the search path.
  fs::createDirectory(tmp / "brokengtk", false);
  std::filesystem::copy_file(BWK_FAKE_JLI, tmp / "brokengtk/libgtk-3.so.0");
  const std::tuple<const char*, bool, std::optional<bool>, std::string, bool, const char*> cases[] = {
      // name, archive, bwk.initialProgress, environment entry, loads GTK, argument
      {"no archive, window shown", false, std::nullopt, "", true, "a"},
      {"no archive, window hidden", false, false, "", false, "a"},
      {"archive, window hidden", true, false, "", false, "a"},
      {"archive, window shown, the user's GDK_GL", true, std::nullopt, "GDK_GL=disable", true, "a"},
      {"archive, no display", true, std::nullopt, "DISPLAY", false, "a"},
      {"archive, GTK unusable", true, std::nullopt, "LD_LIBRARY_PATH=" + tmp / "brokengtk", true, "a"},
      {"archive, a command line asked for", true, std::nullopt, "", false, "-q"},
      {"archive, no display, a splash screen asked for", true, std::nullopt, "DISPLAY", true, "-splash"},
  };
  for (const auto& [name, archive, initialProgress, entry, loadsGtk, argument] : cases) {
    shell("rm -rf " + tmp / "Slowpoke.app " + record);
    PlistDict extra;
    if (initialProgress) extra["bwk.initialProgress"] = *initialProgress;
    std::string app = bundle(extra);
    if (archive)
      shell("mkdir -p " + app + "/Contents/Resources/app && cp " + tmp / "rt.tar.gz " + app +
            "/Contents/Resources/app/jre.tar.gz");
    else
      makeFakeRuntime(app + "/Contents/Resources/jre.bundle", "17.0.2", "bundle");
    Background launcher(
        {app + "/Contents/MacOS/Slowpoke", argument},
        env({"FAKE_JLI_SLEEP_MS=3000", "FAKE_JLI_SHOW_VARIABLE=GDK_GL", entry.empty() ? "BRACKWOOD_LOG" : entry}));
    while (!fs::exists(record) && secondsSince(launcher.started()) < 20) sleepMs(20);
    std::string maps = readFile("/proc/" + std::to_string(launcher.pid()) + "/maps");
    RunResult r = launcher.finish(20);
    EXPECT_EQ(r.status, 7) << name << "\n" << r.err;
    EXPECT_EQ(text::contains(maps, "/libgtk-3.so"), loadsGtk) << name;
    EXPECT_FALSE(text::contains(maps, "/libGL") || text::contains(maps, "_dri.so")) << name;
    // What GTK was given for its start is not the runtime's; what the user set is.
    EXPECT_EQ(readRecord(record).variable, text::startsWith(entry, "GDK_GL") ? entry : "GDK_GL=(unset)") << name;
  }
}

}  // namespace
}  // namespace bwk::test
