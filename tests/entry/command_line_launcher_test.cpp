// A launcher made by brackwood-embed, started with the authorization-restart marker: its own
// configuration drives the launch, and a configuration that cannot be read stops it.
#include <gtest/gtest.h>

#include <filesystem>

#include "../e2e/e2e_support.h"
#include "base/fs.h"
#include "base/strings.h"
#include "platform/elf_note.h"
#include "test_support.h"

namespace bwk::test {
namespace {

const std::string kJdk17 = "/usr/lib/jvm/java-17-openjdk-amd64";

class CommandLineLauncher : public ::testing::Test {
 protected:
  void SetUp() override {
    makeFakeRuntime(tmp / "jdk", "17.0.2+8");
    record = tmp / "record";
  }

  // tmp/bin/tool carrying `config`.
  std::string makeTool(const PlistValue& config, const std::string& name = "tool") {
    writePlist(tmp / "config.plist", config);
    std::filesystem::create_directories(tmp / "bin");
    std::string tool = tmp / ("bin/" + name);
    RunResult r = run({BWK_EMBED, BWK_LAUNCHER, tmp / "config.plist", tool});
    EXPECT_EQ(r.status, 0) << r.err;
    return tool;
  }

  RunResult start(const std::string& tool, std::vector<std::string> words, std::vector<std::string> env = {}) {
    std::vector<std::string> argv{tool};
    argv.insert(argv.end(), words.begin(), words.end());
    env.push_back("FAKE_JLI_RECORD=" + record);
    return run(argv, launcherEnvironment(env));
  }

  // Rewrites the note's descriptor size, and optionally the length L, in place.
  void patchRegion(const std::string& file, uint32_t descriptorSize, std::optional<uint32_t> length = {}) {
    std::string bytes = readFile(file);
    size_t name = bytes.rfind(std::string("com.brackwood\0\0\0", 16));  // the note comes last
    ASSERT_NE(name, std::string::npos);
    auto* header = reinterpret_cast<uint8_t*>(bytes.data() + name - 12);
    ASSERT_EQ(elf::le32(header), 14u);
    elf::putLe32(header + 4, descriptorSize);
    if (length) elf::putLe32(header + 28, *length);
    writeFile(file, bytes);
  }

  PlistDict javaVM() {
    return PlistDict{{"MainClass", "com.example.Tool"},
                     {"VMOptionArray", stringArray({"-Dfrom.embedded=1"})},
                     {"ArgumentArray", stringArray({"configured"})}};
  }

  TempDir tmp;
  std::string record;
};

// A configuration that cannot be read stops the launch; a region of four bytes holds none,
// and the Info dictionary of the bundle around the tool applies.
TEST_F(CommandLineLauncher, UnreadableConfigurations) {
  PlistDict bundleVM{{"MainClass", "com.example.FromBundle"}};
  std::string app = makeBundle(tmp.path(), "Tool", PlistValue(PlistDict{{"JavaVM", PlistValue(bundleVM)}}));
  struct Case {
    const char* name;
    std::function<void(const std::string&)> damage;
    bool launches;
  };
  const std::vector<Case> cases = {
      {"broken property list",
       [](const std::string& tool) {
         std::string bytes = readFile(tool);
         writeFile(tool, bytes.replace(bytes.rfind("</plist>"), 8, "</plixx>"));  // the note comes last
       },
       false},
      {"length zero in a region of 5 bytes", [this](const std::string& tool) { patchRegion(tool, 5, 0); }, false},
      {"a region of 4 bytes", [this](const std::string& tool) { patchRegion(tool, 4); }, true},
  };
  for (const Case& c : cases) {
    std::filesystem::remove(record);
    std::string tool = makeTool(PlistValue(PlistDict{{"JavaVM", PlistValue(javaVM())}}));
    c.damage(tool);
    std::filesystem::copy_file(tool, app + "/Contents/MacOS/Tool", std::filesystem::copy_options::overwrite_existing);
    RunResult r = start(app + "/Contents/MacOS/Tool", {"__bwk_auth_restart", tmp / "jdk"});
    EXPECT_EQ(r.status, c.launches ? 0 : 1) << c.name << ": " << r.err;
    EXPECT_EQ(text::contains(r.err, "] Failed to parse plist: "), !c.launches) << c.name << ": " << r.err;
    EXPECT_EQ(text::endsWith(r.err, "ERROR: Could not load embedded plist.\n"), !c.launches) << c.name << ": " << r.err;
    std::vector<std::string> argv = readRecord(record).argv;
    EXPECT_EQ(std::find(argv.begin(), argv.end(), "com.example.FromBundle") != argv.end(), c.launches) << c.name;
  }
}

TEST_F(CommandLineLauncher, RealRuntime) {
  if (!fs::exists(kJdk17 + "/lib/libjli.so")) GTEST_SKIP() << "no OpenJDK 17 here";
  ASSERT_TRUE(fs::exists(helloJar())) << "the demo program is built with the project";
  std::filesystem::create_directories(tmp / "bin/lib");
  std::filesystem::copy_file(helloJar(), tmp / "bin/lib/hello.jar");
  PlistDict vm{{"MainClass", "Hello"},
               {"ClassPath", tmp / "bin/lib/hello.jar"},
               {"VMOptionArray", stringArray({"-Dhello.from=embedded"})}};
  std::string tool = makeTool(PlistValue(PlistDict{{"CFBundleName", "Hello"}, {"JavaVM", PlistValue(vm)}}));
  RunResult r = start(tool, {"__bwk_auth_restart", kJdk17, "--exit=4"});
  EXPECT_EQ(r.status, 4) << r.out << r.err;
  EXPECT_TRUE(text::contains(r.out, "Hello from Java 17")) << r.out << r.err;
  EXPECT_TRUE(text::contains(r.out, "property hello.from=embedded\n")) << r.out;
  EXPECT_TRUE(text::contains(r.out, "property bwk.jreBundle=" + kJdk17 + "\n")) << r.out;
  EXPECT_TRUE(text::contains(r.out, "arg[0] <__bwk_auth_restart>\narg[1] <" + kJdk17 + ">\narg[2] <--exit=4>\n")) << r.out;
}

}  // namespace
}  // namespace bwk::test
