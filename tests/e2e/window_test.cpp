// Application mode on a private X server: the progress window while the runtime archive is
// extracted, Cancel, the hidden window, the fallback to command-line mode, the alert that
// outlives the launcher, and a Swing program started through the window path.
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>

#include "base/fs.h"
#include "gui_support.h"
#include "platform/linux/notice_text.h"

namespace bwk::test {
namespace {

const std::string kJdk17 = "/usr/lib/jvm/java-17-openjdk-amd64";
constexpr unsigned char kMagenta[] = {255, 0, 255};
constexpr unsigned char kGreen[] = {0, 255, 0};

// Writes an archive into a named pipe at a fixed pace, so that extraction takes as long as
// the test needs; stops when the reader goes away.
class PacedFeeder {
 public:
  PacedFeeder(const std::string& fifo, std::string bytes, size_t chunk, int pauseMs)
      : thread_([this, fifo, bytes = std::move(bytes), chunk, pauseMs] {
          int fd = -1;
          while (!stop_ && (fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) == -1)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
          if (fd == -1) return;
          ::fcntl(fd, F_SETFL, 0);  // blocking writes from here on
          for (size_t at = 0; at < bytes.size() && !stop_; at += chunk) {
            if (::write(fd, bytes.data() + at, std::min(chunk, bytes.size() - at)) <= 0) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
          }
          ::close(fd);
        }) {}
  ~PacedFeeder() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

class Window : public ::testing::Test {
 protected:
  void SetUp() override {
    ::signal(SIGPIPE, SIG_IGN);  // the feeder's reader may end at any time
    if (!x.running()) GTEST_SKIP() << "no Xvfb here";
    fs::createDirectory(tmp / "t", false);
    record = tmp / "record.txt";
  }

  // A runtime (release file and the recording launcher library under Contents/Home) padded
  // with `padMegabytes` of random data, as a gzip-compressed tar stream; sets `tarSize`.
  std::string runtimeArchive(int padMegabytes) {
    std::string src = tmp / "runtime-src";
    makeFakeRuntime(src, "17.0.2", "bundle");
    shell("head -c " + std::to_string(padMegabytes) + "M /dev/urandom > " + src + "/Contents/Home/pad.bin");
    shell("tar cf " + tmp / "rt.tar" + " -C " + src + " Contents && gzip -1 -f " + tmp / "rt.tar");
    tarSize = static_cast<int64_t>(std::stoll(shell("gzip -l " + tmp / "rt.tar.gz" + " | awk 'NR==2{print $2}'").out));
    return readFile(tmp / "rt.tar.gz");
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

  // The archive place of the bundle as a named pipe fed at a pace.
  std::unique_ptr<PacedFeeder> feedArchive(const std::string& app, std::string gz, size_t chunk, int pauseMs) {
    std::string archive = app + "/Contents/Resources/app/jre.tar.gz";
    fs::createDirectory(app + "/Contents/Resources/app", true);
    EXPECT_EQ(::mkfifo(archive.c_str(), 0600), 0);
    return std::make_unique<PacedFeeder>(archive, std::move(gz), chunk, pauseMs);
  }

  std::vector<std::string> env(std::vector<std::string> extra = {}) {
    std::vector<std::string> e{"DISPLAY=" + x.display(), "TMPDIR=" + tmp / "t", "FAKE_JLI_RECORD=" + record,
                               "FAKE_JLI_STATUS=7", "LANGUAGE=en"};
    // An extra entry replaces the one of the same name.
    for (const std::string& entry : extra) {
      std::string name = entry.substr(0, entry.find('='));
      std::erase_if(e, [&](const std::string& old) { return old.substr(0, old.find('=')) == name; });
      e.push_back(entry);
    }
    return launcherEnvironment(e);
  }

  int entriesIn(const std::string& dir) {
    int n = 0;
    for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator(dir)) ++n;
    return n;
  }

  Xvfb x;
  TempDir tmp;
  std::string record;
  int64_t tarSize = 0;
};

TEST_F(Window, ShowsProgressAndCancelEndsTheStart) {
  std::string gz = runtimeArchive(24);
  std::string app = bundle();
  auto feeder = feedArchive(app, gz, 64 * 1024, 25);  // about 10 s for the whole archive
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
  EXPECT_GT(changedPixels(first, second, g), 40) << "the bar does not move";
  // The icon is the largest image of the container, scaled to the window's icon size.
  EXPECT_GT(pixelsOfColour(second, g, kMagenta[0], kMagenta[1], kMagenta[2]), 3000);
  EXPECT_EQ(pixelsOfColour(second, g, kGreen[0], kGreen[1], kGreen[2]), 0);
  EXPECT_EQ(entriesIn(tmp / "t"), 1) << "the runtime is being extracted into a temporary directory";

  // Cancel sits at the bottom right, inside the window's border.
  x.xdotool("mousemove " + std::to_string(g.x + g.width - 45) + " " + std::to_string(g.y + g.height - 30) + " click 1");
  Background::Result r = launcher.finish(20);
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(entriesIn(tmp / "t"), 0) << "the temporary directory is removed";
  EXPECT_FALSE(fs::exists(record)) << "nothing was launched";
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(x.xdotool("search --onlyvisible --name '^Slowpoke$'"), "") << "a cancellation shows no alert";
  EXPECT_EQ(x.xdotool("search --onlyvisible --name '^Installing Slowpoke$'"), "");
}

TEST_F(Window, ClosingTheWindowDuringExtractionCancels) {
  std::string gz = runtimeArchive(24);
  std::string app = bundle();
  auto feeder = feedArchive(app, gz, 64 * 1024, 25);
  Background launcher({app + "/Contents/MacOS/Slowpoke"}, env({"BRACKWOOD_LOG=yes"}));
  std::string window = x.waitForWindow("^Installing Slowpoke$", 20);
  ASSERT_FALSE(window.empty());
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  ASSERT_TRUE(x.requestClose(window));
  Background::Result r = launcher.finish(20);
  EXPECT_EQ(r.status, 1) << r.err;
  // No support library is loaded before the runtime starts: the quit is not taken over.
  EXPECT_TRUE(text::contains(r.err, "lib name (null)")) << r.err;
  EXPECT_TRUE(text::contains(r.err, "terminate now")) << r.err;
  EXPECT_EQ(entriesIn(tmp / "t"), 0) << "the temporary directory is removed";
  EXPECT_FALSE(fs::exists(record));
}

TEST_F(Window, HiddenProgressWindowStillStartsTheApplication) {
  std::string gz = runtimeArchive(2);
  std::string app = bundle({{"bwk.initialProgress", false}});
  auto feeder = feedArchive(app, gz, 64 * 1024, 40);  // about 1.3 s
  Background launcher({app + "/Contents/MacOS/Slowpoke"}, env({"BRACKWOOD_LOG=yes"}));
  bool seen = false;
  while (!fs::exists(record) && secondsSince(launcher.started()) < 20) {
    seen |= !x.xdotool("search --onlyvisible --name 'Slowpoke'").empty();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
  }
  Background::Result r = launcher.finish(20);
  EXPECT_FALSE(seen) << "no window is shown";
  EXPECT_EQ(r.status, 7) << r.err;
  EXPECT_TRUE(text::contains(r.err, "hiding progress window")) << r.err;
  EXPECT_TRUE(text::contains(readFile(record), "-Dbwk.jreBundle=")) << readFile(record);
  EXPECT_EQ(entriesIn(tmp / "t"), 0);
}

TEST_F(Window, WithoutUsableDisplayOrGtkTheSameBundleRunsInCommandLineMode) {
  std::string gz = runtimeArchive(1);
  std::string app = bundle();
  writeFile(app + "/Contents/Resources/app/jre.tar.gz", gz);
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
  std::string gz = runtimeArchive(1);
  struct Case {
    const char* name;
    bool archive;
    std::optional<bool> initialProgress;
    bool loadsGtk;
  };
  const Case cases[] = {
      {"no archive, window shown", false, std::nullopt, true},
      {"no archive, window hidden", false, false, false},
      {"archive, window hidden", true, false, false},
      {"archive, window shown", true, std::nullopt, true},
  };
  for (const Case& c : cases) {
    std::filesystem::remove_all(tmp / "Slowpoke.app");
    std::filesystem::remove(record);
    PlistDict extra;
    if (c.initialProgress) extra["bwk.initialProgress"] = *c.initialProgress;
    std::string app = bundle(extra);
    if (c.archive) writeFile(app + "/Contents/Resources/app/jre.tar.gz", gz);
    else makeFakeRuntime(app + "/Contents/Resources/jre.bundle", "17.0.2", "bundle");
    Background launcher({app + "/Contents/MacOS/Slowpoke"}, env({"FAKE_JLI_SLEEP_MS=3000"}));
    while (!fs::exists(record) && secondsSince(launcher.started()) < 20) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::string maps = readFile("/proc/" + std::to_string(launcher.pid()) + "/maps");
    Background::Result r = launcher.finish(20);
    EXPECT_EQ(r.status, 7) << c.name << "\n" << r.err;
    EXPECT_EQ(text::contains(maps, "/libgtk-3.so"), c.loadsGtk) << c.name;
    EXPECT_FALSE(text::contains(maps, "/libGL")) << c.name;
    EXPECT_FALSE(text::contains(maps, "_dri.so")) << c.name;
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
  // What the alert was asked to show, as its process received it.
  std::string environment = readFile("/proc/" + std::to_string(pid) + "/environ");
  std::optional<platform::NoticeText> shown;
  for (const std::string& entry : text::split(environment, std::string(1, '\0')))
    if (text::startsWith(entry, std::string(platform::kNoticeVariable) + "="))
      shown = platform::decodeNotice(entry.substr(std::strlen(platform::kNoticeVariable) + 1));
  ASSERT_TRUE(shown);
  EXPECT_EQ(shown->header, "Slowpoke");
  EXPECT_EQ(shown->message, "Java 99 or newer is needed by Slowpoke.");
  ::kill(pid, SIGTERM);
}

TEST_F(Window, SwingProgramRunsThroughTheWindowPath) {
  if (!fs::exists(kJdk17 + "/lib/libawt_xawt.so") || !fs::exists(kJdk17 + "/bin/javac")) GTEST_SKIP() << "no OpenJDK 17 with AWT";
  // The archive is extracted behind the window; the runtime that runs is the installed one.
  std::string app = bundle({{"JavaVM", PlistValue(PlistDict{{"MainClass", "SwingCheck"},
                                                            {"ClassPath", "${launcher:sys.appRootDir}/classes"},
                                                            {"VMOptionArray", stringArray({"-jvm=" + kJdk17})}})}});
  writeFile(tmp / "junk/Contents/placeholder", "x");
  fs::createDirectory(app + "/Contents/Resources/app", true);
  shell("tar czf " + app + "/Contents/Resources/app/jre.tar.gz -C " + tmp / "junk" + " Contents");
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
  RunResult javac = shell(kJdk17 + "/bin/javac -d " + app + "/Contents/Resources/app/classes " + tmp / "src/SwingCheck.java");
  ASSERT_EQ(javac.status, 0) << javac.err;
  Background launcher({app + "/Contents/MacOS/Slowpoke", "23"}, env({"BRACKWOOD_LOG=yes"}));
  std::string frame = x.waitForWindow("^Swing check$", 60);
  EXPECT_FALSE(frame.empty()) << "the Swing window did not appear";
  if (!frame.empty()) x.screenshot(std::string(BWK_BINARY_DIR) + "/window-test-swing.png");
  Background::Result r = launcher.finish(90);
  EXPECT_EQ(r.status, 23) << r.err;
  EXPECT_TRUE(text::contains(r.out, "look and feel GTK")) << r.out << r.err;
  EXPECT_TRUE(text::contains(r.err, "app finished launching")) << "the window path was not taken";
}

}  // namespace
}  // namespace bwk::test
