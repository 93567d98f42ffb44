// Application mode on a private X server: the progress window while the runtime archive is
// extracted, Cancel, the hidden window, the fallback to command-line mode, GTK loaded only
// when the window shows, the alert that outlives the launcher, and a Swing program started
// through the window path.
#include <filesystem>
#include <tuple>

#include "base/fs.h"
#include "gui_support.h"

namespace bwk::test {
namespace {

class Window : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!x.running()) GTEST_SKIP() << "no Xvfb here";
    fs::createDirectory(tmp / "t", false);
    record = tmp / "record.txt";
  }

  // tmp/rt.tar.gz: a runtime (release file and the recording launcher library under
  // Contents/Home) padded with `padMegabytes` of random data; sets `tarSize`.
  void runtimeArchive(int padMegabytes) {
    std::string src = tmp / "runtime-src";
    makeFakeRuntime(src, "17.0.2", "bundle");
    shell("head -c " + std::to_string(padMegabytes) + "M /dev/urandom > " + src + "/Contents/Home/pad.bin");
    shell("tar cf " + tmp / "rt.tar" + " -C " + src + " Contents && gzip -1 -f " + tmp / "rt.tar");
    tarSize = static_cast<int64_t>(std::stoll(shell("gzip -l " + tmp / "rt.tar.gz" + " | awk 'NR==2{print $2}'").out));
  }

  // Slowpoke.app: texts, an icon with a small green and a large magenta image, and
  // `extra` configuration.
  std::string bundle(PlistDict extra = {}) {
    PlistDict info{{"CFBundleName", "Slowpoke"},
                   {"JavaVM", PlistValue(PlistDict{{"MainClass", "demo.Main"}})}};
    if (tarSize > 0) info["bwk.jreUncompressedSize"] = PlistValue(tarSize);
    for (auto& [k, v] : extra) info[k] = v;
    std::string app = makeBundle(tmp.path(), "Slowpoke", PlistValue(info));
    writeFile(app + "/Contents/Resources/en.lproj/Localizable.strings",
              "\"WizardCaption\" = \"Installing Slowpoke\";\n\"PrepareInstaller\" = \"Preparing %@ for its first start\";\n"
              "\"ButtonCancel\" = \"Cancel\";\n\"AppleJavaMinVersionError\" = \"Java %@ or newer is needed by %@.\";\n");
    writeFile(app + "/Contents/Resources/app.icns", icnsContainer({{"icp4", solidPng(16, 0, 255, 0)}, {"ic07", solidPng(128, 255, 0, 255)}}));
    return app;
  }

  // The archive place of the bundle as a named pipe, fed in 64 KiB pieces with a pause after each.
  std::unique_ptr<Background> feedArchive(const std::string& app, const std::string& pause) {
    std::string archive = app + "/Contents/Resources/app/jre.tar.gz";
    shell("mkdir -p " + tmp / "pieces " + app + "/Contents/Resources/app && mkfifo " + archive + " && split -b 65536 " +
          tmp / "rt.tar.gz " + tmp / "pieces/p.");
    return std::make_unique<Background>(
        std::vector<std::string>{"/bin/sh", "-c", "for f in " + tmp / "pieces/p.*; do cat $f || exit; sleep " + pause + "; done > " + archive},
        std::vector<std::string>{});
  }

  // Entries of `extra` replace those of the same name.
  std::vector<std::string> env(std::vector<std::string> extra = {}) {
    std::vector<std::string> e{"DISPLAY=" + x.display(), "TMPDIR=" + tmp / "t", "FAKE_JLI_RECORD=" + record,
                               "FAKE_JLI_STATUS=7", "LANGUAGE=en"};
    e.insert(e.end(), extra.begin(), extra.end());
    return launcherEnvironment(e);
  }
  size_t entriesIn(const std::string& dir) { return fs::listDirectory(dir).value_or(std::vector<std::string>{"?"}).size(); }

  Xvfb x;
  TempDir tmp;
  std::string record;
  int64_t tarSize = 0;
};

TEST_F(Window, ShowsProgressAndCancelEndsTheStart) {
  runtimeArchive(24);
  std::string app = bundle();
  auto feeder = feedArchive(app, "0.025");  // about 10 s for the whole archive
  Background launcher({app + "/Contents/MacOS/Slowpoke"}, env());

  std::string window = x.waitForWindow("^Installing Slowpoke$", 20);
  ASSERT_FALSE(window.empty()) << launcher.finish(1).err;
  RecordProperty("seconds_to_window", std::to_string(secondsSince(launcher.started())));
  Xvfb::Geometry g = x.geometry(window);
  ASSERT_GT(g.width, 100);

  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  std::string first = x.screenshot(tmp / "first.png");
  std::this_thread::sleep_for(std::chrono::milliseconds(800));
  std::string second = x.screenshot(std::string(BWK_BINARY_DIR) + "/window-test-progress.png");
  EXPECT_GT(countPixels(first, second, g, std::not_equal_to<>()), 40) << "the bar does not move";
  // The icon is the largest image of the container, scaled to the window's icon size.
  auto is = [](const char* rgb) { return [c = std::string(rgb, 3)](const std::string& p, const std::string&) { return p == c; }; };
  EXPECT_GT(countPixels(second, second, g, is("\xFF\x00\xFF")), 3000);
  EXPECT_EQ(countPixels(second, second, g, is("\x00\xFF\x00")), 0);
  EXPECT_EQ(entriesIn(tmp / "t"), 1u) << "the runtime is being extracted into a temporary directory";

  // Cancel sits at the bottom right, inside the window's border.
  x.xdotool("mousemove " + std::to_string(g.x + g.width - 45) + " " + std::to_string(g.y + g.height - 30) + " click 1");
  Background::Result r = launcher.finish(20);
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(entriesIn(tmp / "t"), 0u) << "the temporary directory is removed";
  EXPECT_FALSE(fs::exists(record)) << "nothing was launched";
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(x.xdotool("search --onlyvisible --name 'Slowpoke$'"), "") << "a cancellation shows no alert";
}

TEST_F(Window, HiddenProgressWindowStillStartsTheApplication) {
  runtimeArchive(2);
  std::string app = bundle({{"bwk.initialProgress", false}});
  auto feeder = feedArchive(app, "0.04");  // about 1.3 s
  Background launcher({app + "/Contents/MacOS/Slowpoke"}, env({"BRACKWOOD_LOG=yes"}));
  bool seen = false;
  while (!fs::exists(record) && secondsSince(launcher.started()) < 20) {
    seen |= !x.xdotool("search --onlyvisible --name 'Slowpoke'").empty();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
  }
  Background::Result r = launcher.finish(20);
  EXPECT_FALSE(seen) << "no window is shown";
  EXPECT_EQ(r.status, 7) << r.err;
  EXPECT_TRUE(text::contains(readFile(record), "-Dbwk.jreBundle=")) << readFile(record);
  EXPECT_EQ(entriesIn(tmp / "t"), 0u);
}

TEST_F(Window, WithoutUsableDisplayOrGtkTheSameBundleRunsInCommandLineMode) {
  runtimeArchive(1);
  std::string app = bundle();
  shell("mkdir -p " + app + "/Contents/Resources/app && cp " + tmp / "rt.tar.gz " + app + "/Contents/Resources/app/jre.tar.gz");
  // A library of GTK's name without GTK's functions, found first through the search path.
  fs::createDirectory(tmp / "brokengtk", false);
  std::filesystem::copy_file(BWK_FAKE_JLI, tmp / "brokengtk/libgtk-3.so.0");
  struct Case {
    const char* name;
    std::vector<std::string> env;
    bool triesWindow;
  };
  const std::vector<Case> cases = {
      {"no display", {"DISPLAY"}, false},
      {"display that cannot be opened", {"DISPLAY=:4242"}, true},
      {"GTK unusable", {"LD_LIBRARY_PATH=" + tmp / "brokengtk"}, true},
  };
  for (const Case& c : cases) {
    std::filesystem::remove(record);
    std::vector<std::string> extra = c.env;
    extra.push_back("BRACKWOOD_LOG=yes");
    Background launcher({app + "/Contents/MacOS/Slowpoke"}, env(extra));
    Background::Result r = launcher.finish(30);
    EXPECT_EQ(r.status, 7) << c.name << "\n" << r.err;
    EXPECT_TRUE(text::contains(r.err, "cli mode")) << c.name;
    EXPECT_EQ(text::contains(r.err, "no window front end"), c.triesWindow) << c.name << "\n" << r.err;
    EXPECT_TRUE(fs::exists(record)) << c.name;
  }
}

// GTK is loaded only by a start that shows the window, and then without a GL driver. The
// stand-in runtime holds the process while its mappings are read.
TEST_F(Window, OnlyAStartThatShowsTheWindowLoadsGtk) {
  runtimeArchive(1);
  const std::tuple<const char*, bool, std::optional<bool>, bool> cases[] = {
      // name, archive, bwk.initialProgress, loads GTK
      {"no archive, window shown", false, std::nullopt, true},
      {"no archive, window hidden", false, false, false},
      {"archive, window hidden", true, false, false},
      {"archive, window shown", true, std::nullopt, true},
  };
  for (const auto& [name, archive, initialProgress, loadsGtk] : cases) {
    shell("rm -rf " + tmp / "Slowpoke.app " + record);
    PlistDict extra;
    if (initialProgress) extra["bwk.initialProgress"] = *initialProgress;
    std::string app = bundle(extra);
    if (archive) shell("mkdir -p " + app + "/Contents/Resources/app && cp " + tmp / "rt.tar.gz " + app + "/Contents/Resources/app/jre.tar.gz");
    else makeFakeRuntime(app + "/Contents/Resources/jre.bundle", "17.0.2", "bundle");
    Background launcher({app + "/Contents/MacOS/Slowpoke"}, env({"FAKE_JLI_SLEEP_MS=3000"}));
    while (!fs::exists(record) && secondsSince(launcher.started()) < 20) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::string maps = readFile("/proc/" + std::to_string(launcher.pid()) + "/maps");
    Background::Result r = launcher.finish(20);
    EXPECT_EQ(r.status, 7) << name << "\n" << r.err;
    EXPECT_EQ(text::contains(maps, "/libgtk-3.so"), loadsGtk) << name;
    EXPECT_FALSE(text::contains(maps, "/libGL") || text::contains(maps, "_dri.so")) << name;
  }
}

TEST_F(Window, MissingRuntimeLeavesAnAlertThatOutlivesTheLauncher) {
  std::string app = bundle({{"bwk.minVersion", "99"},
                            {"JavaVM", PlistValue(PlistDict{{"MainClass", "demo.Main"}, {"SearchSequence", stringArray({"R" + tmp / "none"})}})}});
  Background launcher({app + "/Contents/MacOS/Slowpoke"}, env());
  Background::Result r = launcher.finish(30);
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_TRUE(r.streamsClosed) << "the alert holds the launcher's standard streams";
  EXPECT_TRUE(text::contains(r.err, "ERROR: Java 99 or newer is needed by Slowpoke.")) << r.err;

  std::string alert = x.waitForWindow("^Slowpoke$", 10);
  ASSERT_FALSE(alert.empty()) << "no alert on screen";
  x.screenshot(std::string(BWK_BINARY_DIR) + "/window-test-alert.png");
  pid_t pid = static_cast<pid_t>(std::atoi(x.xdotool("getwindowpid " + alert).c_str()));
  ASSERT_GT(pid, 0);
  EXPECT_NE(pid, launcher.pid());
  EXPECT_EQ(::getsid(pid), pid) << "the alert runs in a session of its own";
  ::kill(pid, SIGTERM);
}

// The archive is extracted behind the window; the runtime that runs is the installed one.
TEST_F(Window, SwingProgramRunsThroughTheWindowPath) {
  const std::string jdk = "/usr/lib/jvm/java-17-openjdk-amd64";
  if (!fs::exists(jdk + "/lib/libawt_xawt.so") || !fs::exists(jdk + "/bin/javac")) GTEST_SKIP() << "no OpenJDK 17 with AWT";
  std::string app = bundle({{"JavaVM", PlistValue(PlistDict{{"MainClass", "SwingCheck"},
                                                            {"ClassPath", "${launcher:sys.appRootDir}/classes"},
                                                            {"VMOptionArray", stringArray({"-jvm=" + jdk})}})}});
  writeFile(tmp / "junk/Contents/placeholder", "x");
  writeFile(tmp / "src/SwingCheck.java", R"(
import javax.swing.*;
public class SwingCheck {
  public static void main(String[] args) throws Exception {
    UIManager.setLookAndFeel("com.sun.java.swing.plaf.gtk.GTKLookAndFeel");
    SwingUtilities.invokeAndWait(() -> {
      JFrame frame = new JFrame("Swing check");
      frame.add(new JFileChooser());
      frame.pack();
      frame.setVisible(true);
    });
    Thread.sleep(2500);
    System.out.println("look and feel " + UIManager.getLookAndFeel().getID());
    System.exit(Integer.parseInt(args[0]));
  }
}
)");
  RunResult made = shell("mkdir -p " + app + "/Contents/Resources/app && tar czf " + app + "/Contents/Resources/app/jre.tar.gz -C " +
                         tmp / "junk Contents && " + jdk + "/bin/javac -d " + app + "/Contents/Resources/app/classes " + tmp / "src/SwingCheck.java");
  ASSERT_EQ(made.status, 0) << made.err;
  Background launcher({app + "/Contents/MacOS/Slowpoke", "23"}, env({"BRACKWOOD_LOG=yes"}));
  EXPECT_FALSE(x.waitForWindow("^Swing check$", 60).empty()) << "the Swing window did not appear";
  Background::Result r = launcher.finish(90);
  EXPECT_EQ(r.status, 23) << r.err;
  EXPECT_TRUE(text::contains(r.out, "look and feel GTK")) << r.out << r.err;
  EXPECT_TRUE(text::contains(r.err, "app finished launching")) << "the window path was not taken";
}

}  // namespace
}  // namespace bwk::test
