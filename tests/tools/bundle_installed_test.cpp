// create --input --main-jar: an installed application started from its bundle gets what `java -jar` gives it on the
// same runtime (main class, class path in order, opened packages, files beside its jar, the caller's directory).
#include "base/path.h"
#include "bundle_tool.h"
#include "jar_manifest.h"

namespace bwk::test {
namespace {

const std::string kJdk = "/usr/lib/jvm/java-17-openjdk-amd64/bin/";

// Prints what the runtime gave it: one line each, comparable between two starts.
const char* const kProbe = R"(package p;
import java.nio.file.*;
import java.util.*;
public class Probe {
  public static void main(String[] args) throws Exception {
    Set<String> jars = new LinkedHashSet<>();  // an entry listed twice is still searched once
    for (var e = ClassLoader.getSystemResources("marker.txt"); e.hasMoreElements();)
      jars.add(new String(e.nextElement().openStream().readAllBytes()).trim());
    System.out.println("main " + Probe.class.getName() + "\njars " + jars);
    System.out.println("opens " + Object.class.getModule().isOpen("java.lang", Probe.class.getModule()));
    Path home = Path.of(Probe.class.getProtectionDomain().getCodeSource().getLocation().toURI()).getParent();
    System.out.println("beside " + Files.readString(home.resolve("data/greeting.txt")).trim());
    for (String a : args) System.out.println("file " + a + ": " + Files.readString(Path.of(a)).trim());
  }
}
)";

TEST(JarManifest, ReadAsTheJdkReadsIt) {
  const std::vector<std::tuple<std::string, std::string, std::optional<std::string>>> cases = {
      {"Main-Class: a.B\r\nClass-Path: x.jar\r\n", "class-path", "x.jar"},
      {"Class-Path: lib/a.jar lib/\r\n b.jar\r\n", "Class-Path",
       "lib/a.jar lib/b.jar"},  // continued in the middle of a name
      {"Main-Class: a.B\rAdd-Opens: m/p\r", "add-opens", "m/p"},
      {"Main-Class: a.B\n\nName: x\nAdd-Opens: m/p\n", "Add-Opens", std::nullopt},  // a per-entry section
      {"Main-Class: a.B\nMain-Class: c.D\n", "Main-Class", "c.D"},
      {"Main-Class:a.B\nMain-Class\n", "Main-Class", std::nullopt},  // no space after the colon, no colon
  };
  for (const auto& [text, name, expected] : cases)
    EXPECT_EQ(bundle::JarManifest::parse(text).value(name), expected) << text;
}

class InstalledApplication : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(kJdk + "javac") || !fs::exists(kJdk + "jlink")) GTEST_SKIP() << "no OpenJDK 17 here";
    runtime = jlinkStage() + "/Contents/Home";  // without java.desktop
    writeFile(tmp / "src/p/Probe.java", kProbe);
    ASSERT_EQ(shell(kJdk + "javac -d " + tmp / "classes " + tmp / "src/p/Probe.java").status, 0);
  }
  // A jar holding marker.txt that names it, with a manifest of `manifest`.
  void jar(const std::string& file, const std::string& manifest, bool probe = false) {
    shell("rm -rf " + tmp / "stage && mkdir -p " + tmp / "stage && cp -r " + tmp / "classes/p " + tmp / "stage/");
    writeFile(tmp / "stage/marker.txt", path::lastComponent(file));
    writeFile(tmp / "stage.mf", manifest);
    shell("mkdir -p \"$(dirname '" + file + "')\" && " + kJdk + "jar cfm '" + file + "' " + tmp / "stage.mf -C " +
          tmp / "stage marker.txt" + (probe ? " -C " + tmp / "stage p" : ""));
  }
  TempDir tmp;
  std::string runtime;
};

TEST_F(InstalledApplication, StartsAsJavaJarDoesAndWhatCreateSays) {
  // name, the main jar's manifest, lines of both starts
  const std::tuple<std::string, std::string, std::vector<std::string>> cases[] = {
      {"class path of every kind",
       "Main-Class: p/Probe \nClass-Path: lib/a.jar lib/linked.jar file:lib/sp%20ace.jar missing.jar ../outside/up.jar " +
           tmp / "outside/abs.jar" + "\nAdd-Opens: java.base/java.lang java.desktop/java.awt\n",
       {"jars [main.jar, a.jar, c.jar, linked.jar, sp ace.jar, up.jar, abs.jar]", "opens true",
        "Add-Opens java.desktop/java.awt left out: the runtime has no module java.desktop",
        "missing.jar (Class-Path of ", "2 class-path entries from outside"}},
      {"main class only", "Main-Class: p.Probe\n", {"jars [main.jar]", "opens false"}},
  };
  for (const auto& [name, manifest, expected] : cases) {
    shell("rm -rf " + tmp / "app " + tmp / "outside " + tmp / "out");
    std::string app = tmp / "app";
    jar(app + "/main.jar", manifest, true);
    jar(app + "/lib/a.jar", "Class-Path: c.jar\n");
    jar(app + "/lib/c.jar", "Class-Path: a.jar\n");  // a cycle back
    jar(app + "/lib/sp ace.jar", "");
    jar(tmp / "outside/linked.jar", "");
    jar(tmp / "outside/abs.jar", "");
    jar(tmp / "outside/up.jar", "");
    writeFile(app + "/data/greeting.txt", "hello from beside the jar");
    shell("ln -s " + tmp / "outside/linked.jar " + app + "/lib/linked.jar && ln -s nowhere " + app + "/lib/broken.jar");
    writeFile(tmp / "caller/notes.txt", "the user's notes");

    RunResult direct = run({runtime + "/bin/java", "-jar", app + "/main.jar", "notes.txt"}, {}, tmp / "caller");
    ASSERT_EQ(direct.status, 0) << name << ": " << direct.err;
    RunResult created = bundleTool({"create", "--name", "App", "--input", app, "--main-jar", "main.jar", "--runtime",
                                    runtime, "--output", tmp / "out"});
    ASSERT_EQ(created.status, 0) << name << ": " << created.err;
    EXPECT_TRUE(text::contains(created.err, "lib/broken.jar: a broken link, left out")) << created.err;
    shell("rm -rf " + app + " " + tmp / "outside");  // the bundle needs nothing of the installation
    RunResult started = startApp(tmp / "out/App.app", {"notes.txt"}, {}, tmp / "caller");
    EXPECT_EQ(started.status, 0) << name << ": " << started.err;
    EXPECT_EQ(started.out, direct.out) << name;
    for (const std::string& line : expected)
      EXPECT_TRUE(text::contains(direct.out + created.out + created.err, line)) << line << direct.out << created.err;
    EXPECT_TRUE(text::contains(started.out, "beside hello from beside the jar\nfile notes.txt: the user's notes\n"))
        << started.out;
    EXPECT_EQ(bundleTool({"check", tmp / "out/App.app"}).out, tmp / "out/App.app: no findings\n") << name;
  }
  // What create refuses (nothing written), and what it writes or warns about without a JVM.
  const std::string main = "Main-Class: p.Probe\n";
  // the main jar's manifest, status, the message (in the error output, or else in Info.plist), more words
  using Case = std::tuple<std::string, int, std::string, std::vector<std::string>>;
  const Case says[] = {
      {"Launcher-Agent-Class: p.Probe\n" + main, 1, "Launcher-Agent-Class p.Probe: the launcher cannot start", {}},
      {"Created-By: hand\n", 2, "names no Main-Class in its manifest: give --main-class", {}},
      {main, 2, "with --input, further jars lie inside it", {"--jar", tmp / "elsewhere.jar"}},
      {main, 2, "lies inside --input", {"--output", tmp / "app/out"}},
      {main, 1, "/app/lib: no such jar", {"--main-jar", "lib"}},
      {main + "Class-Path: " + tmp / "abs.jar lib/x.jar\n", 0, "abs.jar is searched after lib/x.jar in the bundle", {}},
      {main, 0, "main.jar:${launcher:sys.appRootDir}/lib/x.jar<", {"--jar", "lib"}},  // of a folder its jars only
      {main + "Implementation-Version: 4.2\n", 0, "<key>CFBundleShortVersionString</key>\n  <string>4.2<", {}},
      Case(main + "Enable-Native-Access: ALL-UNNAMED\n", 0,
           "<string>22-9999</string>\n      <array>\n        <string>--enable-native-access=ALL-UNNAMED</string>", {}),
  };
  jar(tmp / "abs.jar", "");
  for (const auto& [manifest, status, message, more] : says) {
    shell("rm -rf " + tmp / "app " + tmp / "out");
    jar(tmp / "app/main.jar", manifest, true);
    jar(tmp / "app/lib/x.jar", "");
    jar(tmp / "app/lib/notes.txt", "");  // a jar by its content only
    std::vector<std::string> words{"create", "--name", "App", "--input", tmp / "app"};
    words.insert(words.end(), more.begin(), more.end());
    for (const char* option : {"--main-jar", "--output"})
      if (std::find(more.begin(), more.end(), option) == more.end())
        words.insert(words.end(), {option, option == std::string("--output") ? tmp / "out" : "main.jar"});
    RunResult r = bundleTool(words);
    EXPECT_EQ(r.status, status) << message << ": " << r.err;
    std::string said = status ? r.err : r.err + readFile(tmp / "out/App.app/Contents/Info.plist");
    EXPECT_TRUE(text::contains(said, message)) << message << ": " << said;
    EXPECT_EQ(fs::exists(tmp / "out/App.app"), status == 0) << message;
  }
}

// The jars an application loads later (plugins) count for the modules of a linked runtime.
TEST_F(InstalledApplication, PluginJarsCountForTheLinkedRuntime) {
  jar(tmp / "app/main.jar", "Main-Class: p.Probe\n", true);
  writeFile(tmp / "plugin/q/Plugin.java", "package q; public class Plugin { java.sql.Connection connection; }");
  ASSERT_EQ(shell(kJdk + "javac -d " + tmp / "plugin " + tmp / "plugin/q/Plugin.java && mkdir " +
                  tmp / "app/plugins && " + kJdk + "jar cf " + tmp / "app/plugins/plugin.jar -C " + tmp / "plugin q")
                .status,
            0);
  RunResult r = bundleTool({"create", "--name", "App", "--input", tmp / "app", "--main-jar", "main.jar", "--runtime",
                            kJdk + "..", "--jlink", "--output", tmp / "out"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(text::contains(r.out, ": java.base,java.sql,")) << r.out;
}

}  // namespace
}  // namespace bwk::test
