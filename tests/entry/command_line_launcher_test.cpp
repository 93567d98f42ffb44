// A launcher made by brackwood-embed, restarted for authorization: a configuration it cannot read stops it.

#include "../e2e/e2e_support.h"
#include "platform/elf_note.h"

namespace bwk::test {
namespace {

class CommandLineLauncher : public ::testing::Test {
 protected:
  void SetUp() override { makeFakeRuntime(tmp / "jdk", "17.0.2+8"); }

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

  TempDir tmp;
  const std::string record = tmp / "record";
};

// A configuration that cannot be read stops the launch; a region of four bytes holds none,
// and the Info dictionary of the bundle around the tool applies.
TEST_F(CommandLineLauncher, UnreadableConfigurations) {
  PlistDict bundleVM{{"MainClass", "com.example.FromBundle"}};
  std::string app = makeBundle(tmp.path(), "Tool", PlistValue(PlistDict{{"JavaVM", PlistValue(bundleVM)}}));
  writePlist(tmp / "config.plist",
             PlistValue(PlistDict{{"JavaVM", PlistValue(PlistDict{{"MainClass", "com.example.Tool"}})}}));
  const std::string made = tmp / "tool";
  // name, descriptor size and length L (no size: the property list's end tag is broken), launches
  const std::tuple<const char*, std::optional<uint32_t>, std::optional<uint32_t>, bool> cases[] = {
      {"broken property list", {}, {}, false},
      {"length zero in a region of 5 bytes", 5, 0, false},
      {"a region of 4 bytes", 4, {}, true},
  };
  for (const auto& [name, descriptorSize, length, launches] : cases) {
    std::filesystem::remove(record);
    ASSERT_EQ(run({BWK_EMBED, BWK_LAUNCHER, tmp / "config.plist", made}).status, 0);
    if (descriptorSize) {
      patchRegion(made, *descriptorSize, length);
    } else {
      std::string bytes = readFile(made);
      writeFile(made, bytes.replace(bytes.rfind("</plist>"), 8, "</plixx>"));  // the note comes last
    }
    std::filesystem::copy_file(made, app + "/Contents/MacOS/Tool", std::filesystem::copy_options::overwrite_existing);
    RunResult r = run({app + "/Contents/MacOS/Tool", "__bwk_auth_restart", tmp / "jdk"},
                      launcherEnvironment({"FAKE_JLI_RECORD=" + record}));
    EXPECT_EQ(r.status, launches ? 0 : 1) << name << ": " << r.err;
    EXPECT_EQ(text::contains(r.err, "] Failed to parse plist: "), !launches) << name << ": " << r.err;
    EXPECT_EQ(text::endsWith(r.err, "ERROR: Could not load embedded plist.\n"), !launches) << name << ": " << r.err;
    std::vector<std::string> argv = readRecord(record).argv;
    EXPECT_EQ(std::find(argv.begin(), argv.end(), "com.example.FromBundle") != argv.end(), launches) << name;
  }
}

}  // namespace
}  // namespace bwk::test
