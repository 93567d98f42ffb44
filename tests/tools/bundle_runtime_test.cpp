// brackwood-bundle and the runtime a bundle ships: what is left out of a JDK, the runtime
// linked of the modules the application uses, and the keys that decide how a start begins.

#include "base/plist_reader.h"
#include "bundle_tool.h"
#include "install/untar.h"

namespace bwk::test {
namespace {

class BundleRuntime : public ::testing::Test {
 protected:
  PlistDict info(const std::string& app) { return *readPropertyListFile(app + "/Contents/Info.plist")->asDictionary(); }
  // The shipped runtime's home, unpacked first when it is an archive.
  std::string shippedHome(const std::string& app, const std::string& form) {
    if (form == "bundle") return app + "/Contents/Resources/jre.bundle/Contents/Home";
    std::string unpacked = tmp / "unpacked";
    shell("rm -rf " + unpacked + " && mkdir " + unpacked);
    EXPECT_TRUE(UnTar::untar(app + "/Contents/Resources/app/jre.tar.gz", unpacked, 0, nullptr).complete);
    return unpacked + "/Contents/Home";
  }
  TempDir tmp;
};

// In either form the shipped runtime keeps its files, modes and inner links (the archive read
// back by the launcher's own extraction), and leaves out what no start needs.
TEST_F(BundleRuntime, JdkShippedWithoutWhatNoStartNeedsStartChoicesAndBuildIdAsKeys) {
  std::string home = tmp / "jdk";
  makeFakeRuntime(home, "17.0.2");
  const std::string deep = "lib/" + std::string(60, 'd') + "/" + std::string(60, 'e') + "/f";  // over 100 bytes
  const std::vector<std::string> kept{"legal/java.base/LICENSE", "release", "lib/modules", "lib/libjli.so", deep};
  for (const std::string file : {"jmods/java.base.jmod", "include/jni.h", "man/man1/java.1", "demo/README", "src.zip",
                                 "legal/java.base/LICENSE", "lib/modules", deep.c_str()})
    writeFile(home + "/" + file, file + std::string(1000, 'x'));
  writeFile(home + "/bin/tool", "#!/bin/sh\n");
  writeFile(tmp / "outside.properties", "outside");
  const std::string outdir = tmp / "outdir";
  shell("cd " + home + " && echo 'MODULES=\"\"' >>release && chmod 750 bin/tool && ln -s ../bin lib/current" +
        " && ln -s /nonexistent/src.zip lib/src.zip && ln -s " + tmp / "outside.properties lib/outside.properties" +
        " && ln -s /nonexistent lib/broken && mkfifo lib/pipe && mkdir " + outdir + " && ln -s " + outdir +
        " lib/ext && ln -s " + outdir + " " + outdir + "/self");
  for (const std::string form : {"bundle", "archive"}) {
    RunResult r = createHello(tmp / form, {"--runtime", home, "--runtime-as", form});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(text::contains(r.out,
                               "left out of the runtime, as no start needs them: jmods/, src.zip, lib/src.zip, "
                               "include/, man/, demo/ (0.0 MB saved"))
        << r.out;
    EXPECT_EQ(r.err,
              "brackwood-bundle: warning: lib/broken: a broken link, left out\n"
              "brackwood-bundle: warning: lib/ext/self: a link back into its own parents, left out\n"
              "brackwood-bundle: warning: lib/pipe: neither a file, a directory nor a link, left out\n")
        << "none for the sources' broken link";
    std::string shipped = shippedHome(tmp / form + "/Hello.app", form);
    if (form == "archive") {  // the layout's own directories, first and open to all
      EXPECT_EQ(
          shell("tar -tvzf " + tmp / form + "/Hello.app/Contents/Resources/app/jre.tar.gz | head -2 | cut -c1-10").out,
          "drwxr-xr-x\ndrwxr-xr-x\n");
    }
    for (const char* gone : {"jmods", "include", "man", "demo", "src.zip", "lib/src.zip", "lib/broken"})
      EXPECT_FALSE(fs::existsNoFollow(shipped + "/" + gone)) << form << ": " << gone;
    for (const std::string& file : kept)
      EXPECT_TRUE(fs::exists(shipped + "/" + file) && readFile(shipped + "/" + file) == readFile(home + "/" + file))
          << form << ": " << file;
    struct stat st {};
    EXPECT_TRUE(stat((shipped + "/bin/tool").c_str(), &st) == 0 && (st.st_mode & 07777) == 0750) << form;
    EXPECT_TRUE(fs::isSymbolicLink(shipped + "/lib/current") && fs::exists(shipped + "/lib/current/tool")) << form;
    EXPECT_TRUE(!fs::isSymbolicLink(shipped + "/lib/outside.properties") &&
                readFile(shipped + "/lib/outside.properties") == "outside")
        << form << ": a link out of the runtime is replaced by its file";
    RunResult checked = bundleTool({"check", tmp / form + "/Hello.app"});
    EXPECT_TRUE(text::contains(checked.err, "were not checked: its release file names no MODULES"))
        << form << ": " << checked.err;
  }
  makeFakeRuntime(tmp / "jdk", "17.0.2");
  makeFakeRuntime(tmp / "jdk25", "25");
  makeFakeRuntime(tmp / "jdk-ea", "17.0.2-ea");  // shipped, a pre-release is started
  const std::vector<std::string> archive{"--runtime", tmp / "jdk", "--runtime-as", "archive"};
  using B = std::optional<bool>;
  // words; bwk.initialProgress, bwk.reuseUnpackedRuntime, AotCacheEnabled; what the summary says
  using Case = std::tuple<std::vector<std::string>, B, B, B, std::string>;
  const Case cases[] = {
      {{}, false, std::nullopt, std::nullopt, "start: fast, no progress window (nothing to unpack)"},
      {{"--runtime", tmp / "jdk-ea"}, false, std::nullopt, std::nullopt, "no progress window"},
      {archive, true, std::nullopt, std::nullopt, "the progress window shows while the runtime archive is unpacked"},
      Case({"--runtime", tmp / "jdk", "--runtime-as", "archive", "--progress-window", "never",
            "--reuse-unpacked-runtime"},
           false, true, std::nullopt, "unpacked once into the user's cache"),
      Case({"--progress-window", "always", "--aot-cache", "--runtime", tmp / "jdk25"}, true, std::nullopt, true,
           ", written by the first start\n"),
      Case({"--aot-cache", "--runtime", tmp / "jdk", "--min-version", "21"}, false, std::nullopt, true,
           ", written by the first start, used by runtimes from 25 on only: the shipped one is 17.0.2\n"),
      {{"--embed", "--aot-cache", "--service", "legacy"}, std::nullopt, std::nullopt, true, "a command-line launcher"},
  };
  for (const auto& [words, initialProgress, reuse, aot, said] : cases) {
    shell("rm -rf " + tmp / "out");
    RunResult r = createHello(tmp / "out", words);
    ASSERT_EQ(r.status, 0) << said << ": " << r.err;
    EXPECT_TRUE(text::contains(r.out, said)) << r.out;
    EXPECT_EQ(text::contains(r.err, "is outside the range given"), std::ranges::count(words, "--min-version") == 1)
        << said << ": " << r.err;
    // A command-line launcher carries its configuration, with its service mode.
    bool embedded = !words.empty() && words.front() == "--embed";
    PlistValue config =
        embedded ? readPropertyList(run({BWK_EMBED, "--print", tmp / "out/Hello/Hello"}).out).value_or(PlistValue())
                 : PlistValue(info(tmp / "out/Hello.app"));
    const PlistValue* javaVM = config.find("JavaVM");
    ASSERT_TRUE(javaVM) << said;
    EXPECT_EQ(config.string("bwk.service"), embedded ? std::optional<std::string>("legacy") : std::nullopt);
    EXPECT_EQ(std::tuple(config.boolean("bwk.initialProgress"), config.boolean("bwk.reuseUnpackedRuntime")),
              std::tuple(initialProgress, reuse))
        << said;
    EXPECT_EQ(std::pair(javaVM->boolean("AotCacheEnabled"), javaVM->string("AotCacheBuildId").has_value()),
              std::pair(aot, aot.has_value()))
        << said;
  }
  // The identifier names the code shipped: the same jars give the same one, any changed byte another.
  auto buildId = [&](const std::string& jar, const std::string& input = "") {
    shell("rm -rf " + tmp / "out");
    std::vector<std::string> words{"create", "--name", "Hello", "--output", tmp / "out", "--aot-cache"};
    std::vector<std::string> from = {"--main-class", "Hello", "--jar", jar};
    if (!input.empty()) from = {"--input", input, "--main-jar", jar, "--main-class", "Hello"};
    words.insert(words.end(), from.begin(), from.end());
    EXPECT_EQ(bundleTool(words).status, 0);
    return *info(tmp / "out/Hello.app")["JavaVM"].string("AotCacheBuildId");
  };
  shell("mkdir -p " + tmp / "a " + tmp / "b && cp " + helloJar() + " " + tmp / "a/hello.jar && cp " + helloJar() + " " +
        tmp / "b/hello.jar && printf x >> " + tmp / "b/hello.jar");
  std::string first = buildId(tmp / "a/hello.jar");
  EXPECT_TRUE(first.size() == 24u && buildId(tmp / "a/hello.jar") == first);
  EXPECT_NE(buildId(tmp / "b/hello.jar"), first) << "one more byte at the end of the jar";
  writeFile(tmp / "a/notes.txt", "one");
  std::string withNotes = buildId("hello.jar", tmp / "a");
  writeFile(tmp / "a/notes.txt", "two");
  EXPECT_EQ(buildId("hello.jar", tmp / "a"), withNotes) << "a file that is no code does not count";
  shell("cp " + helloJar() + " " + tmp / "a/zz.jar");
  std::string withSecondJar = buildId("hello.jar", tmp / "a");
  shell("printf x >> " + tmp / "a/zz.jar");
  EXPECT_NE(buildId("hello.jar", tmp / "a"), withSecondJar) << "the last jar counts too";
}

// A real JDK links the runtime; check then finds it complete.
TEST_F(BundleRuntime, LinkedRuntimeRunsAndChecksComplete) {
  if (!fs::exists(kJdk17 + "/jmods")) GTEST_SKIP() << "no JDK with jmods at " << kJdk17;
  RunResult r = createHello(tmp / "linked", {"--runtime", kJdk17, "--jlink", "--add-modules", "java.sql",
                                             "--java-option", "--add-opens=java.naming/javax.naming=ALL-UNNAMED"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(text::contains(
      r.out, "java.base,java.management,java.naming,java.sql,jdk.charsets,jdk.crypto.ec,jdk.localedata,jdk.zipfs"))
      << r.out;
  std::string app = tmp / "linked/Hello.app";
  std::string home = shippedHome(app, "bundle");
  std::string release = readFile(home + "/release");
  EXPECT_TRUE(text::contains(release, " java.management ") && !text::contains(release, "java.desktop")) << release;
  EXPECT_FALSE(fs::exists(home + "/jmods") || fs::exists(home + "/include")) << "headers and jmods are not linked";
  EXPECT_TRUE(fs::exists(home + "/lib/server/classes.jsa") && !fs::exists(home + "/lib/server/classes_nocoops.jsa"));
  EXPECT_EQ(shell("readelf -S " + home + "/lib/server/libjvm.so | grep -c symtab").out, "0\n") << "symbols stripped";
  std::vector<std::string> env;
#if defined(__SANITIZE_ADDRESS__)
  // The sanitizer's dlopen hides the caller's search path: libjimage, inflating a class, would not find libzip.
  env.push_back("LD_LIBRARY_PATH=" + home + "/lib");
#endif
  RunResult started = startApp(app, {}, env);
  EXPECT_EQ(started.status, 0) << started.err;
  EXPECT_TRUE(text::contains(started.out, "Hello from Java 17")) << started.out << started.err;
  RunResult checked = bundleTool({"check", app});
  EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
  EXPECT_NE(createHello(tmp / "x", {"--runtime", kJdk17, "--jlink", "--add-modules", "java.nothing"}).status, 0);
}

}  // namespace
}  // namespace bwk::test
