// brackwood-bundle check: a sound bundle made by create has no findings; each row copies it, does one damage and
// expects exactly the findings check prints, as lines and as JSON. Unusable command lines give 2; help is on request.
#include "base/plist_reader.h"
#include "bundle_tool.h"

namespace bwk::test {
namespace {

class BundleCheck : public ::testing::Test {
 protected:
  TempDir tmp;
};

const PlistValue kRemoved = PlistDate{-1};  // in a row's keys: the key is taken out

// Sets (or takes out) keys of Info.plist; "JavaVM.X" is X in the JavaVM dictionary.
void editInfo(const std::string& app, const PlistDict& keys) {
  std::string file = app + "/Contents/Info.plist";
  PlistDict info = *readPropertyListFile(file)->asDictionary();
  PlistDict javaVM = *info["JavaVM"].asDictionary();
  for (const auto& [key, value] : keys) {
    bool inJavaVM = text::startsWith(key, "JavaVM.");
    PlistDict& dict = inJavaVM ? javaVM : info;
    dict.erase(inJavaVM ? key.substr(7) : key);
    if (value != kRemoved) dict.emplace(inJavaVM ? key.substr(7) : key, value);
  }
  if (info.count("JavaVM")) info["JavaVM"] = PlistValue(javaVM);
  writePlist(file, PlistValue(info));
}

// The findings of `check --json` as `check` prints them.
constexpr const char* kJsonAsLines = R"py(import json, sys
for f in json.load(sys.stdin)["findings"]:
  line = f["file"] + ": " + (f["key"] + ": " if f["key"] else "") + f["message"]
  line += " (did you mean %s?)" % f["suggestion"] if "suggestion" in f else ""
  runtimes = f.get("runtimes", [])
  seen = ["%s%s: %s" % (r["path"], r["version"] and " (%s)" % r["version"] or "", r["refusal"]) for r in runtimes]
  print(line + ("; seen: " + "; ".join(seen) if seen else "")))py";

TEST_F(BundleCheck, EachDamageGivesExactlyItsFindings) {
  // Runtimes and archives the rows copy in ($T in a row's damage).
  makeFakeRuntime(tmp / "jre17/Contents/Home", "17.0.2-ea");     // shipped, a pre-release is started
  makeFakeRuntime(tmp / "jre-base/Contents/Home", "17.0.2-ea");  // a pre-release too: its modules are checked
  writeFile(tmp / "jre-base/Contents/Home/release", "JAVA_VERSION=\"17.0.2-ea\"\nMODULES=\"java.base\"\n");
  makeFakeRuntime(tmp / "nested/jdk-17", "17.0.2");
  makeFakeRuntime(tmp / "beta", "18-ea", "bundle");
  makeFakeRuntime(tmp / "jdk17", "17.0.2", "bundle");
  makeFakeRuntime(tmp / "evar", "17.0.4", "bundle");
  writePlist(tmp / "evar/Contents/Info.plist",
             PlistValue(PlistDict{{"JavaVM", PlistDict{{"JVMVersion", "17.0.4"}}}, {"EvarVersion", "17.0.4-ea"}}));
  shell("cd " + tmp.path() + " && mkdir empty && touch file && head -c 3000 /dev/urandom >jre17/zz && " +
        "tar -czf good.tar.gz -C jre17 Contents && tar -czf base.tar.gz -C jre-base Contents && " +
        "tar -czf nested.tar.gz -C nested jdk-17 -C .. beta empty evar file jdk17 && " +
        "tar -b1 -cf cut.tar -C jre17 Contents zz && head -c -2000 cut.tar | gzip >cut.tar.gz");
  auto sizeOf = [&](const std::string& archive) {
    return std::stoll(shell("gzip -dc " + tmp / archive + " | wc -c").out);
  };
  const int64_t good = sizeOf("good.tar.gz"), nested = sizeOf("nested.tar.gz"), cut = sizeOf("cut.tar.gz"),
                base = sizeOf("base.tar.gz");
  const std::string L = "Localizable.strings", R = "Hello.app/Contents/Resources", S = R + "/en.lproj/" + L,
                    archive = " " + R + "/app/jre.tar.gz";
  const std::string I = "Contents/Info.plist: ", E = "Contents/Resources/en.lproj/" + L + ": ",
                    F = "Contents/Resources/fr.lproj/" + L + ": ", O = "$D/Hello.vmoptions: ",
                    J = "Contents/Resources/jre.bundle: ", A = "Contents/Resources/app/jre.tar.gz: ";
  const std::string noMain = I + "JavaVM.MainClass: missing: the runtime is asked to start the class '(null)'";
  const std::string noVersion =
      "gives no version (no Contents/Info.plist with JavaVM/JVMVersion, no release file with JAVA_VERSION under "
      "Contents/Home): the launcher refuses it and shows the runtime message";
  const std::string range = "outside the range (bwk.minVersion 21, bwk.maxVersion (none)); it is started all the same";
  const std::string noOption = "is no option: the runtime would take it for the main class";
  const std::string lacks =
      "lacks the module java.management, which the application's classes need (Hello uses "
      "java.lang.management.ManagementFactory): the start ends in NoClassDefFoundError";

  // A row: a damage run in the copy's directory, the findings ($D: that directory, $T: this test's), the keys set
  // in Info.plist before the damage, the environment of the check.
  struct Row {
    std::string damage;
    std::vector<std::string> expected;
    PlistDict keys = {};
    std::vector<std::string> env = {};
  };
  const std::vector<Row> rows = {
      // Info.plist
      {"rm Hello.app/Contents/Info.plist", {I + "missing: the launcher runs with an empty configuration", noMain}},
      {"echo '<plist>' >Hello.app/Contents/Info.plist",
       {I + "cannot be read: $D/Hello.app/Contents/Info.plist: XML property list: Start-end tags mismatch at line 1; "
            "the launcher runs with an empty configuration",
        noMain}},
      {"echo '(a)' >Hello.app/Contents/Info.plist",
       {I + "is no dictionary; the launcher runs with an empty configuration", noMain}},
      // bwk.mVersion is as near to bwk.minVersion as to bwk.maxVersion: the first is named.
      {"",
       {I + "AB: unknown key: the launcher does not read it",
        I + "JavaVMxyz: unknown key: the launcher does not read it",
        I + "Whatever: unknown key: the launcher does not read it",
        I + "bwk.mVersion: unknown key: the launcher does not read it (did you mean bwk.minVersion?)"},
       {{"bwk.mVersion", "11"}, {"Whatever", 1}, {"NSSomething", 1}, {"AB", 1}, {"JavaVMxyz", 1}}},
      {"", {I + "MainClass: belongs in the JavaVM dictionary: ignored here"}, {{"MainClass", "Hello"}}},
      {"",
       {I + "JavaVM.CFBundleIdentifier: belongs at the top level: ignored here",
        I + "JavaVM.bwk.allowBeta: belongs at the top level: ignored here"},
       {{"JavaVM.bwk.allowBeta", true}, {"JavaVM.CFBundleIdentifier", "x"}}},
      {"",
       {I + "CFBundleDocumentTypes: is a string, not an array: the system ignores it",
        I + "CFBundleIdentifier: is an integer, not a string: read as missing",
        I + "JavaVM.SearchSequence: is a string, not an array of strings beginning with Y, I, R or E: the "
            "default search is used",
        I + "JavaVM.VMOptionArray: is a string, not an array of strings: read as missing",
        I + "JavaVM.VersionSpecificVMOptions: is a string, not an array of pattern strings each followed by an "
            "array of strings: read as missing",
        I + "LSEnvironment: is a string, not a dictionary: read as missing",
        I + "bwk.allowPassthrough: is an array, not a boolean: read as missing",
        I + "bwk.jreUncompressedSize: is a date, not a number: read as missing"},
       {{"CFBundleDocumentTypes", "x"},
        {"LSEnvironment", "x"},
        {"bwk.allowPassthrough", PlistArray{}},
        {"bwk.jreUncompressedSize", PlistDate{}},
        {"CFBundleIdentifier", 1},
        {"JavaVM.VMOptionArray", "-Xmx1g"},
        {"JavaVM.SearchSequence", "Y"},
        {"JavaVM.VersionSpecificVMOptions", "x"}}},
      {"",
       {I + "bwk.allowBeta: the string 'sure' is read by its first letter, as false; write <true/> or <false/>",
        I + "bwk.allowPassthrough: the string 'Yep' is read by its first letter, as true; write <true/> or <false/>",
        I + "bwk.jreUncompressedSize: the string '12k' is read as the number 12; write an <integer>"},
       {{"bwk.allowBeta", "sure"},
        {"bwk.allowPassthrough", "Yep"},
        {"bwk.initialProgress", " No"},
        {"bwk.jreUncompressedSize", "12k"}}},
      {"",
       {I + "JavaVM.SearchSequence[1]: is no Y, I, R<dir> or E<variable> entry: skipped",
        I + "JavaVM.SearchSequence[2]: is no Y, I, R<dir> or E<variable> entry: skipped",
        I + "JavaVM.SearchSequence[3]: is no Y, I, R<dir> or E<variable> entry: skipped",
        I + "JavaVM.VMOptionArray[1]: is an integer, not a string: left out",
        I + "JavaVM.VersionSpecificVMOptions: has an odd number of entries: the last one is ignored",
        I + "JavaVM.VersionSpecificVMOptions[2]: is an integer, not a pattern string: the pair is skipped",
        I + "JavaVM.VersionSpecificVMOptions[4]: 'abc' is neither a range like 11-17 nor a '*' match: the pair "
            "is skipped",
        I + "JavaVM.VersionSpecificVMOptions[5]: is a string, not an array of options: no options",
        I + "JavaVM.VersionSpecificVMOptions[7][0]: is an integer, not a string: left out"},
       {{"JavaVM.VMOptionArray", PlistArray{"-Xss2m", 1}},
        {"JavaVM.SearchSequence", PlistArray{"Y", "X", 3, ""}},
        {"JavaVM.VersionSpecificVMOptions",
         PlistArray{"11-17", PlistArray{}, 5, PlistArray{}, "abc", "-Xmx1g", "*", PlistArray{1}, "9"}}}},
      {"",
       {I + "CFBundleName: missing: messages and the window name the application '(null)'"},
       {{"CFBundleName", kRemoved}}},
      {"", {I + "JavaVM: missing: no main class, class path or options", noMain}, {{"JavaVM", kRemoved}}},
      // The executable, strings and icons
      {"rm Hello.app/Contents/MacOS/Hello",
       {I + "CFBundleExecutable: names Contents/MacOS/Hello, which is no executable file"}},
      {"rm -r " + R + "/en.lproj", {E + "missing: every message and window text shows its key"}},
      {"echo '\"a\" = ' >" + S,
       {E + "cannot be read: $D/" + S +
        ": text property list: unexpected end of input at line 2; the launcher skips the table"}},
      {"echo '(a)' >" + S, {E + "is no table of keys and texts; the launcher skips it"}},
      {"sed -i '/\"ButtonCancel\"/d' " + S, {E + "ButtonCancel: missing: the launcher shows the key itself"}},
      {"mkdir " + R +
           "/fr.lproj && printf '%s\\n' '\"ButtomCancol\" = \"x\";' '\"ButtonCancel\" = (a);' "
           "'\"PrepareInstaller\" = \"%d as%s %% %\";' '\"fenmo.InternalError\" = \"%@ %@\";' >" +
           R + "/fr.lproj/" + L,
       {F + "ButtomCancol: unknown message key: the launcher never shows it (did you mean ButtonCancel?)",
        F + "ButtonCancel: is no text: the launcher shows the key itself",
        F + "PrepareInstaller: '%d' in the text: the inserts are texts, written %@",
        F + "PrepareInstaller: '%s' in the text: the inserts are texts, written %@",
        F + "fenmo.InternalError: has 2 %@ but the message has 1 insert(s): the rest show nothing"}},
      {"echo no-icon >" + R + "/app.icns", {"Contents/Resources/app.icns: not an .icns file"}},
      {"mkdir " + R + "/app.icns", {"Contents/Resources/app.icns: cannot be read"}},
      {"",
       {I + "CFBundleIconFile: names Contents/Resources/gone.icns, which does not exist"},
       {{"CFBundleIconFile", "gone.icns"}}},
      // Option lists and files
      {"printf '%s\\n' -Xmx64m -include-options -jvm=/nowhere '-include-options \"no where.txt\"' "
       "'-include-options \"\"' >Hello.vmoptions",
       {I + "JavaVM.VMOptionArray[0]: 'Xss2m' " + noOption,
        O + "line 2: '-include-options' without a value reaches the runtime as an option",
        O + "line 3: names /nowhere, which is no directory: the runtime search goes on without it",
        O + "line 4: includes $D/no where.txt, which does not exist", "$D: cannot be read: the launcher ignores it"},
       {{"JavaVM.VMOptionArray", PlistArray{"Xss2m"}}}},
      {"echo '-include-options Hello.vmoptions' >Hello.vmoptions",
       {O + "line 1: includes $D/Hello.vmoptions again, inside itself: the launcher stops with an internal error"}},
      {"printf '%s\\377\\n' -Dname= >Hello.app/Contents/vmoptions.txt",
       {"Contents/vmoptions.txt: is not UTF-8: the launcher ignores the whole file"}},
      {"mkdir Hello.vmoptions", {O + "cannot be read: the launcher ignores it"}},
      // The class path
      {"",
       {I + "JavaVM.WorkingDirectory: /nowhere is no directory: the start stays where it was"},
       {{"JavaVM.WorkingDirectory", "/nowhere"}}},
      {"",
       {I + "JavaVM.ClassPath: the entry $D/" + R + "/app/plugins/* matches nothing",
        I + "JavaVM.ClassPath: the entry extra.jar does not exist",
        I + "JavaVM.ClassPath: the entry $D/" + R + "/app/../en.lproj/" + L +
            " is neither a directory nor a jar: not a zip file (no end of central directory)"},
       {{"JavaVM.ClassPath",
         "${launcher:sys.appRootDir}/lib/hello.jar:${launcher:sys.appRootDir}/plugins/*:"
         "extra.jar:${launcher:sys.appRootDir}/../en.lproj/Localizable.strings"}}},
      {"", {noMain}, {{"JavaVM.MainClass", kRemoved}}},
      {"",
       {I + "JavaVM.MainClass: hellO is in none of the 1 class-path entries (no hellO.class) (did you mean "
            "Hello?)"},
       {{"JavaVM.MainClass", "hellO"}}},
      {"printf 'Add-Opens: java.base/java.io\\nAdd-Exports: java.base/sun.nio.ch\\n' >m && jar ufm " + R +
           "/app/lib/hello.jar m 2>/dev/null",
       {I + "JavaVM.VMOptionArray[1]: 'java.base/java.io=ALL-UNNAMED' " + noOption,
        I + "JavaVM.VMOptionArray: lacks --add-exports=java.base/sun.nio.ch=ALL-UNNAMED: the manifest of hello.jar "
            "asks for it and `java -jar` applies it"},
       {{"JavaVM.VMOptionArray", PlistArray{"--add-opens", "java.base/java.io=ALL-UNNAMED"}}}},
      // A shipped runtime
      {"touch " + R + "/jre.bundle", {J + "cannot be read as a directory"}},
      {"cd " + R + " && mkdir -p jre.bundle/Contents && echo '{CFBundleVersion=17;}' >jre.bundle/Contents/Info.plist",
       {J + noVersion}},
      {"cp -a $T/jre17 " + R + "/jre.bundle && rm -r " + R + "/jre.bundle/*/*/lib",
       {J + "holds no runtime launcher library (Contents/Home/lib/libjli)"}},
      {"cp -a $T/jre17 " + R + "/jre.bundle", {J + "ships runtime 17.0.2-ea, " + range}, {{"bwk.minVersion", "21"}}},
      {"cp -a $T/jre-base " + R + "/jre.bundle", {J + lacks}},
      // A runtime archive
      {"head -c 300 $T/good.tar.gz >" + archive,
       {A + "is no complete gzip stream: $D/" + R + "/app/jre.tar.gz: unexpected end of file"}},
      {"cp $T/good.tar.gz" + archive,
       {I + "bwk.jreUncompressedSize: missing: the progress bar measures against 6000000 bytes; the archive holds " +
        std::to_string(good)}},
      {"cp $T/good.tar.gz" + archive,
       {I + "bwk.jreUncompressedSize: says 1000; the archive's tar stream is " + std::to_string(good) + " bytes"},
       {{"bwk.jreUncompressedSize", 1000}}},
      {"cp $T/good.tar.gz" + archive,
       {A + "cannot be unpacked for the check: no temporary directory"},
       {{"bwk.jreUncompressedSize", good}},
       {"TMPDIR=/nowhere"}},
      {"cp $T/cut.tar.gz" + archive,
       {A + "the launcher's extraction reports errors (the lines above); a start goes on with what it unpacked"},
       {{"bwk.jreUncompressedSize", cut}}},
      {"cp $T/nested.tar.gz" + archive,
       {A + "wrong layout: unpacked, it " + noVersion +
        ". The archive must hold Contents/Home/...; its top level holds beta, empty, evar, file, jdk-17, jdk17"},
       {{"bwk.jreUncompressedSize", nested}}},
      {"cp $T/good.tar.gz" + archive,
       {A + "ships runtime 17.0.2-ea, " + range},
       {{"bwk.jreUncompressedSize", good}, {"bwk.minVersion", "21"}}},
      {"cp $T/base.tar.gz" + archive,
       {noMain, A + lacks},
       {{"bwk.jreUncompressedSize", base}, {"JavaVM.MainClass", kRemoved}}},
      // The runtime search; a runtime refused for its architecture cannot be made here.
      {"",
       {I + "bwk.minVersion: no runtime was found for the range (bwk.minVersion (none), bwk.maxVersion (none)) "
            "in /usr/lib/jvm or the search sequence"},
       {{"JavaVM.SearchSequence", PlistArray{"R/nowhere"}}}},
      {"echo -jvm=$T/jdk17 >Hello.vmoptions", {}, {{"JavaVM.SearchSequence", PlistArray{"R/nowhere"}}}},
      {"", {}, {{"JavaVM.SearchSequence", PlistArray{"R" + tmp / "jdk17"}}}},
      {"", {}, {{"JavaVM.SearchSequence", PlistArray{"R/nowhere", "EBWK_T_JDK"}}}, {"BWK_T_JDK=" + tmp / "jdk17"}},
      {"",
       {I + "bwk.minVersion: no runtime of the search satisfies the range (bwk.minVersion 17.0.3, "
            "bwk.maxVersion (none)); seen: $T/file: not a readable directory; $T/empty: no version: no "
            "Contents/Info.plist with JavaVM/JVMVersion, no release file; $T/beta (18-ea): a pre-release, and "
            "bwk.allowBeta is not set; $T/evar (17.0.4): a pre-release, and bwk.allowBeta is not set; $T/jdk17 "
            "(17.0.2): below the minimum 17.0.3"},
       {{"bwk.minVersion", "17.0.3"},
        {"JavaVM.SearchSequence",
         PlistArray{"R" + tmp / "file", "R" + tmp / "empty", "R" + tmp / "beta", "EBWK_T_JDK", "R" + tmp / "jdk17"}}},
       {"BWK_T_JDK=" + tmp / "evar"}},
      {"",
       {I + "bwk.maxVersion: no runtime of the search satisfies the range (bwk.minVersion (none), "
            "bwk.maxVersion 11); seen: $T/beta (18-ea): above the maximum 11; $T/jdk17 (17.0.2): above the "
            "maximum 11"},
       {{"bwk.maxVersion", "11"},
        {"bwk.allowBeta", true},
        {"JavaVM.SearchSequence", PlistArray{"R" + tmp / "beta", "R" + tmp / "jdk17"}}}},
  };

  const std::string sound = tmp / "sound", copy = tmp / "copy", app = copy + "/Hello.app";
  ASSERT_EQ(createHello(sound).status, 0);
  EXPECT_EQ(bundleTool({"check", sound + "/Hello.app"}).out, sound + "/Hello.app: no findings\n");
  EXPECT_EQ(bundleTool({"check", "--json", sound + "/Hello.app"}).out,
            "{\"bundle\": \"" + sound + "/Hello.app\", \"findings\": []}\n");
  for (const Row& row : rows) {
    shell("rm -rf " + copy + " && cp -a " + sound + " " + copy);
    editInfo(app, row.keys);
    RunResult damaged =
        shell("cd " + copy + " && T=" + tmp.path() + " && " + (row.damage.empty() ? "true" : row.damage));
    EXPECT_EQ(damaged.status, 0) << row.damage << ": " << damaged.err;
    std::string expected;
    for (const std::string& line : row.expected)
      expected += text::replaceAll(text::replaceAll(line, "$D", copy), "$T", tmp.path()) + "\n";
    size_t count = row.expected.size();
    RunResult human = run({BWK_BUNDLE, "check", app}, launcherEnvironment(row.env));
    std::string counted = count ? std::to_string(count) + (count == 1 ? " finding" : " findings") : "no findings";
    EXPECT_EQ(human.out, expected + app + ": " + counted + "\n") << row.damage;
    EXPECT_EQ(human.status, count ? 1 : 0) << row.damage;
    writeFile(tmp / "json", run({BWK_BUNDLE, "check", "--json", app}, launcherEnvironment(row.env)).out);
    EXPECT_EQ(shell("python3 -c '" + std::string(kJsonAsLines) + "' <" + tmp / "json").out, expected) << row.damage;
  }
}

TEST_F(BundleCheck, CommandLinesItCannotUse) {
  ASSERT_EQ(createHello(tmp / "out").status, 0);
  std::string app = tmp / "out/Hello.app";
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"check"}, "which bundle?"},
      {{"check", tmp / "nothing.app"}, "no such bundle"},
      {{"check", "--", "--json"}, "--json: no such bundle"},
      {{"check", "--jsn", app}, "unknown option --jsn"},
      {{"check", "--json", "--json", app}, "--json is given twice"},
      {{"check", "--json=yes", app}, "--json takes no value"},
      {{"create", "--main-class", "Hello"}, "--name is required"},
      {{"create", "--name", "X", "--main-class=9lives", "--jar", helloJar(), "--output", tmp / "o"},
       "'9lives' is no Java class name"},
      {{"unpack"}, "unknown command"},
      {{}, "usage: brackwood-bundle create"},
  };
  for (const auto& [words, message] : cases) {
    RunResult r = bundleTool(words);
    EXPECT_TRUE(r.status == 2 && text::contains(r.err, message)) << text::join(words, " ") << ": " << r.err;
  }
  EXPECT_FALSE(fs::exists(tmp / "o")) << "nothing is written for a refused command line";
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--help"}, {"-h"}, {"help"}, {"create", "-h"}, {"check", "--help"}}) {
    std::string command = words.size() > 1 ? words[0] + " " : "";
    EXPECT_TRUE(text::startsWith(bundleTool(words).out, "usage: brackwood-bundle " + command)) << words[0];
    EXPECT_EQ(text::contains(bundleTool(words).out, "\n  --"), !command.empty()) << words[0];
  }
}

}  // namespace
}  // namespace bwk::test
