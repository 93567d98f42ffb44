// brackwood-embed: copies of real executables and of Mach-O files built here carry the
// configuration, read back exactly as the launcher reads it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "base/strings.h"
#include "platform/macho_note.h"
#include "macho_image.h"
#include "platform/linux/elf_note.h"
#include "test_support.h"

namespace bwk::test {
namespace {

const std::string kConfig =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>JavaVM</key><dict>"
    "<key>MainClass</key><string>com.example.Tool</string></dict></dict></plist>\n";
const std::string kOtherConfig = "{ \"bwk.service\" = legacy; }\n";

Bytes bytesOf(const std::string& s) { return Bytes(s.begin(), s.end()); }
Bytes fileBytes(const std::string& path) { return bytesOf(readFile(path)); }
Bytes region(const std::string& plist) {
  Bytes r(4);
  elf::putLe32(r.data(), static_cast<uint32_t>(plist.size()));
  r.insert(r.end(), plist.begin(), plist.end());
  return r;
}

RunResult embed(const std::string& input, const std::string& config, const std::string& output) {
  return run({BWK_EMBED, input, config, output});
}
RunResult print(const std::string& executable) { return run({BWK_EMBED, "--print", executable}); }

class EmbedTool : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(tmp / "config.plist", kConfig);
    writeFile(tmp / "other.plist", kOtherConfig);
  }
  TempDir tmp;
};

TEST_F(EmbedTool, ElfCopiesCarryTheConfigurationAndStillRun) {
  for (const std::string& source : {std::string("/bin/true"), std::string(BWK_LAUNCHER)}) {
    std::string input = tmp / "input", output = tmp / "output";
    std::filesystem::copy_file(source, input, std::filesystem::copy_options::overwrite_existing);
    const std::string before = readFile(input);

    RunResult r = embed(input, tmp / "config.plist", output);
    ASSERT_EQ(r.status, 0) << source << ": " << r.err;
    EXPECT_EQ(readFile(input), before) << source;
    struct stat st;
    ASSERT_EQ(stat(output.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);

    Bytes out = fileBytes(output);
    EXPECT_EQ(elf::findNoteDescriptor(elf::readFromMemory(out), out.size()), region(kConfig)) << source;
    RunResult printed = print(output);
    EXPECT_EQ(printed.status, 0) << printed.err;
    EXPECT_EQ(printed.out, kConfig);

    // The system's own tools accept the file and see the note.
    RunResult notes = run({"/usr/bin/readelf", "-W", "-S", "-n", output});
    EXPECT_EQ(notes.status, 0) << notes.err;
    EXPECT_TRUE(text::contains(notes.out, ".note.brackwood")) << notes.out;
    EXPECT_TRUE(text::contains(notes.out, "com.brackwood")) << notes.out;
    EXPECT_TRUE(notes.err.empty()) << notes.err;

    if (source == "/bin/true") {
      EXPECT_EQ(run({output}).status, 0);
    }
  }
}

TEST_F(EmbedTool, EmbeddingAgainReplacesTheConfiguration) {
  std::string first = tmp / "first", second = tmp / "second", third = tmp / "third", fourth = tmp / "fourth";
  ASSERT_EQ(embed("/bin/true", tmp / "config.plist", first).status, 0);
  RunResult r = embed(first, tmp / "other.plist", second);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(print(second).out, kOtherConfig);
  RunResult sections = run({"/usr/bin/readelf", "-W", "-S", second});
  EXPECT_EQ(text::split(sections.out, ".note.brackwood").size(), 2u) << sections.out;
  // What an embedding appended is dropped the next time, not stacked.
  ASSERT_EQ(embed(second, tmp / "config.plist", third).status, 0);
  ASSERT_EQ(embed(third, tmp / "config.plist", fourth).status, 0);
  EXPECT_LE(readFile(third).size(), readFile(first).size());
  EXPECT_EQ(readFile(fourth), readFile(third));
  EXPECT_EQ(print(third).out, kConfig);
  EXPECT_EQ(run({third}).status, 0);
}

TEST_F(EmbedTool, PrintWithoutAConfiguration) {
  RunResult r = print("/bin/true");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(r.out.empty());
  EXPECT_TRUE(text::contains(r.err, "carries no configuration")) << r.err;
}

TEST_F(EmbedTool, RefusalsLeaveNothingBehind) {
  writeFile(tmp / "broken.plist", "<?xml version=\"1.0\"?><plist><dict><key>a</key></plist>");
  writeFile(tmp / "array.plist", "( a, b )");
  writeFile(tmp / "text.txt", "#!/bin/sh\necho hello\n");
  std::filesystem::copy_file("/bin/true", tmp / "input");
  const std::string before = readFile(tmp / "input");
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  std::vector<Case> cases = {
      {{tmp / "input", tmp / "broken.plist", tmp / "out"}, "not a property list"},
      {{tmp / "input", tmp / "array.plist", tmp / "out"}, "must be a dictionary"},
      {{tmp / "input", tmp / "missing.plist", tmp / "out"}, "No such file"},
      {{tmp / "missing", tmp / "config.plist", tmp / "out"}, "No such file"},
      {{tmp / "text.txt", tmp / "config.plist", tmp / "out"}, "neither an ELF nor a Mach-O"},
      {{tmp / "input", tmp / "config.plist", tmp / "input"}, "must not be the input"},
      {{tmp / "input", tmp / "config.plist", tmp / "no/such/dir/out"}, "No such file"},
      {{tmp / "input", tmp / "config.plist"}, "usage"},
      {{"--print"}, "usage"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> argv{BWK_EMBED};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    RunResult r = run(argv);
    EXPECT_EQ(r.status, 1) << c.message;
    EXPECT_TRUE(text::contains(r.err, c.message)) << c.message << ": " << r.err;
    EXPECT_FALSE(std::filesystem::exists(tmp / "out")) << c.message;
  }
  EXPECT_EQ(readFile(tmp / "input"), before);
  for (const auto& entry : std::filesystem::directory_iterator(tmp.path()))
    EXPECT_FALSE(text::contains(entry.path().filename().string(), "out")) << entry.path();
}

// --- Mach-O ------------------------------------------------------------------------------

constexpr uint64_t kBase = 0x100000000;

Bytes machOExecutable(uint32_t firstSectionOffset = 0x800, bool withLinkedit = true) {
  std::vector<Bytes> commands = {
      segmentCommand("__PAGEZERO", 0, kBase, 0, 0),
      segmentCommand("__TEXT", kBase, 0x1000, 0, 0x1000,
                     {{"__text", kBase + firstSectionOffset, 0x100, firstSectionOffset, 0x80000400}}),
      segmentCommand("__DATA", kBase + 0x1000, 0x4000, 0x1000, 0x1000,
                     {{"__data", kBase + 0x1000, 0x10, 0x1000, 0}, {"__bss", kBase + 0x2000, 0x100, 0, 1}}),
  };
  if (withLinkedit) commands.push_back(segmentCommand("__LINKEDIT", kBase + 0x5000, 0x1000, 0x2000, 0x123));
  Bytes file = machOFile(commands, 0x2123);
  for (size_t i = firstSectionOffset; i < file.size(); ++i) file[i] = static_cast<uint8_t>(i * 31 + 7);
  return file;
}

// The region the launcher would find once the file is mapped: segments at vmaddr + slide.
// The test maps by letting every segment's file bytes stand at their file offset.
std::optional<Bytes> mappedRegion(const Bytes& file) {
  std::optional<macho::NoteLocation> note = macho::findNote(file);
  if (!note) return std::nullopt;
  intptr_t slide = static_cast<intptr_t>(reinterpret_cast<uintptr_t>(file.data()) + note->segmentFileoff -
                                         note->segmentVmaddr);
  std::optional<platform::EmbeddedRegion> region = macho::findEmbeddedRegion(file.data(), slide);
  if (!region || region->address < file.data() || region->address + region->size > file.data() + file.size())
    return std::nullopt;
  return Bytes(region->address, region->address + region->size);
}

TEST_F(EmbedTool, MachOCopiesCarryTheConfiguration) {
  Bytes original = machOExecutable();
  writeFile(tmp / "tool", std::string(original.begin(), original.end()));
  ASSERT_EQ(embed(tmp / "tool", tmp / "config.plist", tmp / "out").status, 0);
  Bytes out = fileBytes(tmp / "out");
  EXPECT_EQ(mappedRegion(out), region(kConfig));
  EXPECT_EQ(print(tmp / "out").out, kConfig);

  // The commands before __LINKEDIT's and every byte of the original contents are kept.
  EXPECT_EQ(get32(out, 16), get32(original, 16) + 1);
  EXPECT_EQ(get32(out, 20), get32(original, 20) + 40);
  size_t linkedit = 32 + 72 + (72 + 80) + (72 + 160);
  EXPECT_TRUE(std::equal(original.begin() + 32, original.begin() + static_cast<std::ptrdiff_t>(linkedit), out.begin() + 32));
  EXPECT_TRUE(std::equal(original.begin() + 0x800, original.end(), out.begin() + 0x800));
  // __LINKEDIT now covers the data, in the file and in memory.
  std::optional<macho::NoteLocation> note = macho::findNote(out);
  ASSERT_TRUE(note);
  EXPECT_EQ(note->segmentFileoff, 0x2000u);
  EXPECT_EQ(0x2000 + get64(out, linkedit + 48), out.size());
  EXPECT_GE(get64(out, linkedit + 32), get64(out, linkedit + 48));

  // Again with another configuration: the note is rewritten, not added, and the old data
  // at the end of the file is replaced.
  ASSERT_EQ(embed(tmp / "out", tmp / "other.plist", tmp / "again").status, 0);
  Bytes again = fileBytes(tmp / "again");
  EXPECT_EQ(get32(again, 16), get32(out, 16));
  EXPECT_EQ(mappedRegion(again), region(kOtherConfig));
  EXPECT_EQ(again.size(), (note->dataOffset + region(kOtherConfig).size() + 7) / 8 * 8);
}

TEST_F(EmbedTool, MachORefusals) {
  struct Case {
    const char* name;
    Bytes file;
    std::string message;
  };
  Bytes fat = machOExecutable();
  put32(fat, 0, 0xbebafeca);
  Bytes busy = machOExecutable();
  busy[32 + get32(busy, 20) + 5] = 1;
  std::vector<Case> cases = {
      {"no room", machOExecutable(32 + 72 + 152 + 232 + 72 + 39), "no room"},
      {"no __LINKEDIT", machOExecutable(0x800, false), "__LINKEDIT"},
      {"universal", fat, "universal"},
      {"padding in use", busy, "in use"},
  };
  for (const Case& c : cases) {
    writeFile(tmp / "tool", std::string(c.file.begin(), c.file.end()));
    RunResult r = embed(tmp / "tool", tmp / "config.plist", tmp / "out");
    EXPECT_EQ(r.status, 1) << c.name;
    EXPECT_TRUE(text::contains(r.err, c.message)) << c.name << ": " << r.err;
    EXPECT_FALSE(std::filesystem::exists(tmp / "out")) << c.name;
  }
  // Exactly enough room.
  Bytes tight = machOExecutable(32 + 72 + 152 + 232 + 72 + 40);
  writeFile(tmp / "tool", std::string(tight.begin(), tight.end()));
  RunResult r = embed(tmp / "tool", tmp / "config.plist", tmp / "out");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(mappedRegion(fileBytes(tmp / "out")), region(kConfig));
}

}  // namespace
}  // namespace bwk::test
