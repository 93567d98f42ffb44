// brackwood-bundle check on bundles made by create and then damaged one way each: the
// finding names the file and the key, the status is 1; command lines it cannot use give 2.
#include <functional>
#include <map>

#include "base/fs.h"
#include "base/plist_reader.h"
#include "bundle_tool.h"

namespace bwk::test {
namespace {

class BundleCheck : public ::testing::Test {
 protected:
  // Changes Info.plist through its top-level and JavaVM dictionaries.
  static void editInfo(const std::string& app, const std::function<void(PlistDict&, PlistDict&)>& edit) {
    std::string file = app + "/Contents/Info.plist";
    PlistDict info = *readPropertyListFile(file)->asDictionary();
    PlistDict javaVM = *info["JavaVM"].asDictionary();
    edit(info, javaVM);
    info["JavaVM"] = PlistValue(javaVM);
    writePlist(file, PlistValue(info));
  }
  TempDir tmp;
};

TEST_F(BundleCheck, EachDamageIsOneFindingWithFileAndKey) {
  const std::string info = "Contents/Info.plist: ";
  struct Case {
    std::string name;
    PlistDict top, javaVM;                     // set in Info.plist
    std::map<std::string, std::string> files;  // written, relative to the output directory
    std::vector<std::string> expected;         // lines, or parts of one line
    std::function<void(const std::string& app)> damage = nullptr;
    size_t findings = 0;  // how many, when that is the point
  };
  const std::string app = tmp / "out/Hello.app";
  const std::vector<Case> cases = {
      {"a mistyped key",
       {{"bwk.minVerson", "11"}},
       {},
       {},
       {info + "bwk.minVerson: unknown key: the launcher does not read it (did you mean bwk.minVersion?)\n"}},
      {"a key in the wrong dictionary",
       {},
       {{"bwk.allowBeta", true}},
       {},
       {info + "JavaVM.bwk.allowBeta: belongs at the top level: ignored here\n"}},
      {"values of the wrong type",
       {{"bwk.allowPassthrough", PlistValue(PlistArray{})}},
       {{"VMOptionArray", "-Xmx1g"}},
       {},
       {info + "bwk.allowPassthrough: is an array, not a boolean: read as missing\n",
        info + "JavaVM.VMOptionArray: is a string, not an array of strings: read as missing\n"}},
      {"a main class in none of the jars",
       {},
       {{"MainClass", "com.example.Gone"}},
       {},
       {info +
        "JavaVM.MainClass: com.example.Gone is in none of the 1 class-path entries (no com/example/Gone.class)\n"}},
      {"a main class in the wrong case",
       {},
       {{"MainClass", "hellO"}},
       {},
       {"(no hellO.class) (did you mean Hello?)\n"}},
      {"a shipped runtime outside the range",
       {{"bwk.minVersion", "21"}},
       {},
       {},
       {"Contents/Resources/jre.bundle: ships runtime 17.0.2, outside the range (bwk.minVersion 21, "},
       [](const std::string& bundle) {
         makeFakeRuntime(bundle + "/Contents/Resources/jre.bundle/Contents/Home", "17.0.2");
       }},
      {"manifest options the configuration leaves out",
       {},
       {{"VMOptionArray", stringArray({"--add-opens", "java.base/java.io=ALL-UNNAMED"})}},
       {},
       {info +
        "JavaVM.VMOptionArray: lacks --add-exports=java.base/sun.nio.ch=ALL-UNNAMED: the manifest of hello.jar asks"},
       [this](const std::string& bundle) {
         writeFile(tmp / "stage/m", "Add-Opens: java.base/java.io\nAdd-Exports: java.base/sun.nio.ch\n");
         shell("jar ufm " + bundle + "/Contents/Resources/app/lib/hello.jar " + tmp / "stage/m 2>/dev/null");
       },
       2},  // the option given as two words counts (the other finding is about those two words)
      {"class-path entries that match nothing",
       {},
       {},
       {},
       {info + "JavaVM.ClassPath: the entry " + app + "/Contents/Resources/app/plugins/* matches nothing\n",
        info + "JavaVM.ClassPath: the entry extra.jar does not exist\n"},
       [](const std::string& bundle) {
         editInfo(bundle, [](PlistDict&, PlistDict& vm) {
           vm["ClassPath"] = *vm["ClassPath"].asString() + ":${launcher:sys.appRootDir}/plugins/*:extra.jar";
         });
       }},
      {"malformed option files",
       {},
       {},
       {{"Hello.vmoptions", "-Xmx64m\nXss2m\n-include-options nowhere.txt\n-classpath\n"},
        {"Hello.app/Contents/vmoptions.txt", "-Dname=\xff\xfe\n"}},
       {tmp / "out/Hello.vmoptions: line 2: 'Xss2m' is no option: the runtime would take it for the main class\n",
        tmp / "out/Hello.vmoptions: line 3: includes " + tmp / "out/nowhere.txt, which does not exist\n",
        tmp / "out/Hello.vmoptions: line 4: '-classpath' without a value reaches the runtime as an option\n",
        "Contents/vmoptions.txt: is not UTF-8: the launcher ignores the whole file\n"}},
      {"an archive holding a top-level folder",
       {},
       {},
       {},
       {info + "bwk.jreUncompressedSize: missing: the progress bar measures against 6000000 bytes; the archive holds ",
        "Contents/Resources/app/jre.tar.gz: wrong layout: unpacked, it gives no version",
        "The archive must hold Contents/Home/...; its top level holds jdk-17\n"},
       [this](const std::string& bundle) {
         makeFakeRuntime(tmp / "stage/jdk-17", "17.0.2");
         shell("tar -czf " + bundle + "/Contents/Resources/app/jre.tar.gz -C " + tmp / "stage jdk-17");
       }},
      {"an archive of another size than configured",
       {{"bwk.jreUncompressedSize", 1000}},
       {},
       {},
       {info + "bwk.jreUncompressedSize: says 1000; the archive's tar stream is "},
       [this](const std::string& bundle) {
         makeFakeRuntime(tmp / "stage/Contents/Home", "17.0.2");
         shell("tar -czf " + bundle + "/Contents/Resources/app/jre.tar.gz -C " + tmp / "stage Contents");
       }},
  };
  for (const Case& c : cases) {
    shell("rm -rf " + tmp / "out " + tmp / "stage");
    ASSERT_EQ(createHello(tmp / "out").status, 0) << c.name;
    editInfo(app, [&](PlistDict& i, PlistDict& vm) {
      for (const auto& [key, value] : c.top) i[key] = value;
      for (const auto& [key, value] : c.javaVM) vm[key] = value;
    });
    for (const auto& [file, content] : c.files) writeFile(tmp / "out/" + file, content);
    if (c.damage) c.damage(app);
    RunResult r = bundleTool({"check", app});
    EXPECT_EQ(r.status, 1) << c.name << ": " << r.out << r.err;
    for (const std::string& part : c.expected)
      EXPECT_TRUE(text::contains(r.out, part)) << c.name << ": " << part << "\n" << r.out;
    if (c.findings) {
      EXPECT_TRUE(text::contains(r.out, ": " + std::to_string(c.findings) + " finding")) << c.name << ": " << r.out;
    }
    // As many JSON findings as lines.
    RunResult counted = shell(std::string(BWK_BUNDLE) + " check --json " + app +
                              " | python3 -c 'import json,sys; print(len(json.load(sys.stdin)[\"findings\"]))'");
    EXPECT_EQ(counted.out, std::to_string(text::split(r.out, "\n").size() - 2) + "\n") << c.name << ": " << counted.err;
  }
}

TEST_F(BundleCheck, CommandLinesItCannotUse) {
  ASSERT_EQ(createHello(tmp / "out").status, 0);
  std::string app = tmp / "out/Hello.app";
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"check"}, "which bundle?"},
      {{"check", tmp / "nothing.app"}, "no such bundle"},
      {{"check", "--jsn", app}, "unknown option --jsn"},
      {{"create", "--main-class", "Hello"}, "--name is required"},
      {{"create", "--name", "X", "--main-class", "9lives", "--jar", helloJar(), "--output", tmp / "o"},
       "no Java class name"},
      {{"create", "--name", "X", "--main-class", "Hello", "--jar", helloJar(), "--output", tmp / "o", "--min-version",
        "17", "--max-version", "11"},
       "--max-version 11 is below --min-version 17"},
      {{"unpack"}, "unknown command"},
  };
  for (const auto& [words, message] : cases) {
    RunResult r = bundleTool(words);
    EXPECT_EQ(r.status, 2) << words[0] << " " << message;
    EXPECT_TRUE(text::contains(r.err, message)) << r.err;
  }
  EXPECT_FALSE(fs::exists(tmp / "o")) << "nothing is written for a refused command line";
}

}  // namespace
}  // namespace bwk::test
