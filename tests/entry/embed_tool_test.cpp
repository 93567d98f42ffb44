// brackwood-embed: copies carry the configuration, read back as the launcher reads it.

#include "macho_image.h"
#include "platform/elf_note.h"
#include "platform/macho_note.h"

namespace bwk::test {
namespace {

const std::string kConfig =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>JavaVM</key><dict>"
    "<key>MainClass</key><string>com.example.Tool</string></dict></dict></plist>\n";
const std::string kOtherConfig = "{ \"bwk.service\" = legacy; }\n";

Bytes bytesOf(const std::string& s) { return Bytes(s.begin(), s.end()); }
Bytes fileBytes(const std::string& path) { return bytesOf(readFile(path)); }
void writeBytes(const std::string& path, const Bytes& b) { writeFile(path, std::string(b.begin(), b.end())); }
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
  // Writes `file` as tmp/tool and embeds tmp/`config` into tmp/`out`.
  RunResult embedBytes(const Bytes& file, const std::string& config = "config.plist", const std::string& out = "out") {
    writeBytes(tmp / "tool", file);
    return embed(tmp / "tool", tmp / config, tmp / out);
  }
  TempDir tmp;
};

// Copies of /bin/true and of the launcher carry the note where the system's tools see it;
// embedding again replaces the configuration instead of stacking another.
TEST_F(EmbedTool, ElfCopiesCarryTheConfigurationAndStillRunRefusalsLeaveNothing) {
  // Extended numbering, as in files of 0xff00 sections or more: section 0 holds the count and the name table's index.
  Bytes ext = fileBytes("/bin/true");
  putEach(ext, get64(ext, 40) + 32, uint64_t{get<uint16_t>(ext, 60)}, uint32_t{get<uint16_t>(ext, 62)});
  putEach(ext, 60, uint16_t{0}, uint16_t{0xffff});
  writeBytes(tmp / "extended", ext);
  for (const std::string& source : {std::string("/bin/true"), std::string(BWK_LAUNCHER), tmp / "extended"}) {
    std::string first = tmp / "first", second = tmp / "second", third = tmp / "third";
    ASSERT_EQ(embed(source, tmp / "config.plist", first).status, 0) << source;
    EXPECT_EQ(std::filesystem::status(first).permissions(), std::filesystem::perms(0755));
    Bytes out = fileBytes(first);
    EXPECT_EQ(get<uint16_t>(out, 60) == 0, source == tmp / "extended") << "the count stays where it was";
    EXPECT_EQ(elf::findNoteDescriptor(elf::readFromMemory(out), out.size()), region(kConfig)) << source;
    RunResult notes = run({"/usr/bin/readelf", "-W", "-S", "-n", first});
    EXPECT_TRUE(notes.status == 0 && notes.err.empty()) << notes.err;
    EXPECT_TRUE(text::contains(notes.out, "com.brackwood")) << notes.out;

    ASSERT_EQ(embed(first, tmp / "other.plist", second).status, 0);
    EXPECT_EQ(print(second).out, kOtherConfig);
    EXPECT_EQ(text::split(run({"/usr/bin/readelf", "-W", "-S", second}).out, ".note.brackwood").size(), 2u);
    ASSERT_EQ(embed(second, tmp / "config.plist", third).status, 0);
    EXPECT_LE(readFile(third).size(), readFile(first).size()) << source;
    EXPECT_TRUE(print(third).out == kConfig && (source == BWK_LAUNCHER || run({third}).status == 0)) << source;
  }
  writeFile(tmp / "broken.plist", "<?xml version=\"1.0\"?><plist><dict><key>a</key></plist>");
  writeFile(tmp / "array.plist", "( a, b )");
  writeFile(tmp / "text.txt", "#!/bin/sh\necho hello\n");
  writeFile(tmp / "elf-header", std::string("\177ELF\2\1\1", 7) + std::string(57, '\0'));  // headers alone
  writeFile(tmp / "macho-header", std::string("\xcf\xfa\xed\xfe", 4) + std::string(28, '\0'));
  std::filesystem::copy_file("/bin/true", tmp / "input");
  const std::string in = tmp / "input", config = tmp / "config.plist", out = tmp / "out", before = readFile(in);
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{in, tmp / "broken.plist", out}, "not a property list"},
      {{in, tmp / "array.plist", out}, "must be a dictionary"},
      {{tmp / "missing", config, out}, "No such file"},
      {{tmp / "text.txt", config, out}, "neither an ELF nor a Mach-O"},
      {{tmp / "elf-header", config, out}, "no section header table"},
      {{tmp / "macho-header", config, out}, "no __LINKEDIT segment"},
      {{in, config, in}, "must not be the input"},
      {{in, config, tmp / "no/such/dir/out"}, "No such file"},
      {{in, config}, "usage"},
      {{"-x", config, out}, "usage"},
      {{in, config, out, "more"}, "usage"},
      {{"--no-sign", "-x", config, out}, "usage"},
      {{"--print", "/bin/true"}, "carries no configuration"},
  };
  for (const auto& [args, message] : cases) {
    std::vector<std::string> argv{BWK_EMBED};
    argv.insert(argv.end(), args.begin(), args.end());
    RunResult r = run(argv);
    EXPECT_TRUE(r.status == 1 && r.out.empty() && text::contains(r.err, message)) << message << ": " << r.err;
  }
  EXPECT_EQ(readFile(in), before);
  for (const auto& entry : std::filesystem::directory_iterator(tmp.path()))
    EXPECT_FALSE(text::contains(entry.path().filename().string(), "out")) << entry.path();
}

constexpr uint64_t kBase = 0x100000000;

// __PAGEZERO and the zero-fill __bss have no file content: their file offsets point at none.
Bytes machOExecutable(uint32_t firstSectionOffset = 0x800, bool withLinkedit = true, uint64_t linkeditSize = 0x123,
                      const Bytes& lastCommand = {}) {
  std::vector<Bytes> commands = {
      segmentCommand("__PAGEZERO", 0, kBase, 0x100, 0),
      segmentCommand("__TEXT", kBase, 0x1000, 0, 0x1000,
                     {{"__text", kBase + firstSectionOffset, 0x100, firstSectionOffset, 0x80000400}}),
      segmentCommand("__DATA", kBase + 0x1000, 0x4000, 0x1000, 0x1000,
                     {{"__data", kBase + 0x1000, 0x10, 0x1000, 0}, {"__bss", kBase + 0x2000, 0x100, 0x100, 1}}),
  };
  if (withLinkedit) commands.push_back(segmentCommand("__LINKEDIT", kBase + 0x5000, 0x1000, 0x2000, linkeditSize));
  if (!lastCommand.empty()) commands.push_back(lastCommand);
  Bytes file = machOFile(commands, 0x2000 + linkeditSize);
  for (size_t i = firstSectionOffset; i < file.size(); ++i) file[i] = static_cast<uint8_t>(i * 31 + 7);
  return file;
}

// The region the launcher would find with every segment's file bytes mapped at their offset.
std::optional<Bytes> mappedRegion(const Bytes& file) {
  std::optional<macho::NoteLocation> note = macho::findNote(file);
  if (!note) return std::nullopt;
  intptr_t slide =
      static_cast<intptr_t>(reinterpret_cast<uintptr_t>(file.data()) + note->segmentFileoff - note->segmentVmaddr);
  std::optional<platform::EmbeddedRegion> region = macho::findEmbeddedRegion(file.data(), slide);
  if (!region || region->address < file.data() || region->address + region->size > file.data() + file.size())
    return std::nullopt;
  return Bytes(region->address, region->address + region->size);
}

TEST_F(EmbedTool, MachOCopiesCarryTheConfigurationOrAreRefused) {
  Bytes original = machOExecutable();
  ASSERT_EQ(embedBytes(original).status, 0);
  Bytes out = fileBytes(tmp / "out");
  EXPECT_TRUE(mappedRegion(out) == region(kConfig) && print(tmp / "out").out == kConfig);

  // The commands before __LINKEDIT's and every byte of the original contents are kept.
  EXPECT_EQ(get32(out, 16), get32(original, 16) + 1);
  size_t linkedit = 32 + 72 + (72 + 80) + (72 + 160);
  EXPECT_TRUE(std::equal(original.begin() + 32, original.begin() + linkedit, out.begin() + 32));
  EXPECT_TRUE(std::equal(original.begin() + 0x800, original.end(), out.begin() + 0x800));
  // __LINKEDIT now covers the data, in the file and in memory.
  std::optional<macho::NoteLocation> note = macho::findNote(out);
  ASSERT_TRUE(note);
  EXPECT_TRUE(note->segmentFileoff == 0x2000u && 0x2000 + get64(out, linkedit + 48) == out.size());

  // Again with another configuration: the note is rewritten and the old data replaced.
  ASSERT_EQ(embed(tmp / "out", tmp / "other.plist", tmp / "again").status, 0);
  Bytes again = fileBytes(tmp / "again");
  EXPECT_TRUE(get32(again, 16) == get32(out, 16) && mappedRegion(again) == region(kOtherConfig));
  EXPECT_EQ(again.size(), (note->dataOffset + region(kOtherConfig).size() + 7) / 8 * 8);
  // Bytes after the old data (another tool's) stay where they are, and the new data follows them.
  Bytes tail = out;
  tail.resize(out.size() + 0x40, 0x5a);
  ASSERT_EQ(embedBytes(tail, "other.plist", "after").status, 0);
  Bytes after = fileBytes(tmp / "after");
  EXPECT_TRUE(after.size() > tail.size() && std::equal(tail.begin() + 0x800, tail.end(), after.begin() + 0x800));
  Bytes fat = machOExecutable();
  put32(fat, 0, 0xbebafeca);
  Bytes busy = machOExecutable();
  busy[32 + get32(busy, 20) + 5] = 1;
  // Data after the signature in __LINKEDIT, or a signature past its end (its command is the last, after __LINKEDIT's).
  Bytes notLast = signedImage(machOExecutable()), pastLinkedit = notLast;
  put64(notLast, linkedit + 48, get64(notLast, linkedit + 48) + 0x20);
  put64(pastLinkedit, linkedit + 48, get64(pastLinkedit, linkedit + 48) - 0x10);
  Bytes twice = signedImage(signedImage(machOExecutable(0x900)));
  Bytes pastEnd = universalFile({{0x01000007, 12, machOExecutable()}}, false);
  putBe32(pastEnd, 8 + 12, static_cast<uint32_t>(pastEnd.size()));
  Bytes badSlice =
      universalFile({{0x01000007, 12, machOExecutable()}, {0x0100000c, 14, machOExecutable(0x800, false)}}, true);
  Bytes foreignNote(40, 0);
  putEach(foreignNote, 0, uint32_t{0x31}, uint32_t{40}, uint64_t{0x726568746f});  // LC_NOTE, owner "other"
  const std::vector<std::pair<Bytes, std::string>> cases = {
      {machOExecutable(32 + 72 + 152 + 232 + 72 + 39), "no room"},
      {machOExecutable(0x800, false), "__LINKEDIT"},
      {fat, "not a well-formed universal file"},
      {busy, "in use"},
      {notLast, "not the end of __LINKEDIT"},
      {pastLinkedit, "not the end of __LINKEDIT"},
      {twice, "more than one code signature"},
      {pastEnd, "x86_64 slice lies past its end"},
      {badSlice, "the arm64 slice: no __LINKEDIT"},
      {machOExecutable(32 + 72 + 152 + 232 + 72 + 40), ""},                         // exactly enough room
      {machOExecutable(0x800, true, 0x123, Bytes{0x99, 0, 0, 0, 8, 0, 0, 0}), ""},  // the shortest command last
      {machOExecutable(0x800, true, 0, foreignNote), ""},  // an empty __LINKEDIT; another tool's note stays
  };
  for (const auto& [file, message] : cases) {
    std::filesystem::remove(tmp / "out");
    RunResult r = embedBytes(file);
    EXPECT_TRUE(r.status == (message.empty() ? 0 : 1) && text::contains(r.err, message)) << message << ": " << r.err;
    EXPECT_EQ(std::filesystem::exists(tmp / "out"), message.empty()) << message;
    if (!message.empty()) continue;
    Bytes embedded = fileBytes(tmp / "out");
    EXPECT_EQ(mappedRegion(embedded), region(kConfig));
    EXPECT_EQ(get32(embedded, 16), get32(file, 16) + 1) << "one load command more, the others kept";
    ASSERT_EQ(embedBytes(embedded, "config.plist", "again").status, 0);
    EXPECT_EQ(fileBytes(tmp / "again"), embedded) << "embedding again replaces the configuration in place";
  }
}

// Linkers sign arm64 output: the signature goes as if the file had never had one.
TEST_F(EmbedTool, MachOSignaturesRemovedSignedAgainAndUniversalFilesCarryItInEachSlice) {
  Bytes plain = machOExecutable(0x800, true, 0x120);
  ASSERT_EQ(embedBytes(plain, "config.plist", "expected").status, 0);
  // Data of 24 bytes: a signature made after it starts 8 bytes past its end.
  writeFile(tmp / "odd.plist", "{ a = bcdef; }\n");
  ASSERT_EQ(embedBytes(plain, "odd.plist", "odd").status, 0);
  const Bytes expected = fileBytes(tmp / "expected");
  // Data of 24 bytes ends exactly at the end of the file: replaced, not kept.
  writeFile(tmp / "even.plist", "{ a = bcdefghijk; }\n");
  ASSERT_EQ(embedBytes(plain, "even.plist", "even").status, 0);
  // A command after the signature's moves up into its place.
  auto withUuid = [](Bytes f) {
    putEach(f, 32 + get32(f, 20), uint32_t{0x1b}, uint32_t{24});
    putEach(f, 16, get32(f, 16) + 1, get32(f, 20) + 24);
    return f;
  };
  ASSERT_EQ(embedBytes(withUuid(plain), "config.plist", "uuid").status, 0);
  RunResult moved = embedBytes(withUuid(signedImage(plain)));
  EXPECT_TRUE(moved.status == 0 && fileBytes(tmp / "out") == fileBytes(tmp / "uuid")) << moved.err;
  for (const Bytes& file : {signedImage(plain, 0x20), signedImage(fileBytes(tmp / "odd")), fileBytes(tmp / "even")}) {
    RunResult r = embedBytes(file);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(text::contains(r.err, "is not signed: sign it")) << r.err;
    EXPECT_EQ(fileBytes(tmp / "out"), expected) << file.size();
  }
  Bytes intel = machOExecutable(), arm = signedImage(machOExecutable(0x900));
  put32(arm, 4, 0x0100000c);
  auto embedded = [&](const Bytes& thin) {
    EXPECT_EQ(embedBytes(thin, "config.plist", "thin-out").status, 0);
    return fileBytes(tmp / "thin-out");
  };
  // Slices aligned up to 2^16 bytes are taken, 2^17 is refused.
  for (bool wide : {false, true}) {
    SCOPED_TRACE(wide ? "FAT_MAGIC_64" : "FAT_MAGIC");
    const uint32_t armAlignment = wide ? 16 : 14;
    ASSERT_EQ(embedBytes(universalFile({{0x01000007, 12, intel}, {0x0100000c, armAlignment, arm}}, wide)).status, 0);
    ASSERT_EQ(embed(tmp / "out", tmp / "other.plist", tmp / "again").status, 0);
    EXPECT_EQ(print(tmp / "again").out, kOtherConfig);
    // Each slice is what embedding into it alone gives, at its own alignment, in order.
    EXPECT_EQ(fileBytes(tmp / "out"),
              universalFile({{0x01000007, 12, embedded(intel)}, {0x0100000c, armAlignment, embedded(arm)}}, wide));
  }
  RunResult refused = embedBytes(universalFile({{0x01000007, 12, intel}, {0x0100000c, 17, arm}}, false));
  EXPECT_TRUE(refused.status == 1 && text::contains(refused.err, "arm64 slice asks for an alignment of 2^17"))
      << refused.err;
  // A slice that is no 64-bit Mach-O file stays as it was, with a warning.
  Bytes old(64, 0);
  put32(old, 0, 0xfeedface);
  RunResult kept = embedBytes(universalFile({{0x01000007, 12, intel}, {7, 12, old}}, false));
  EXPECT_TRUE(kept.status == 0 && text::contains(kept.err, "slice is no 64-bit Mach-O file")) << kept.err;
  EXPECT_EQ(fileBytes(tmp / "out"), universalFile({{0x01000007, 12, embedded(intel)}, {7, 12, old}}, false));
  Bytes magicAlone(4, 0);  // a 64-bit Mach-O file that ends after its magic number
  put32(magicAlone, 0, 0xfeedfacf);
  RunResult cut = embedBytes(universalFile({{0x01000007, 12, intel}, {0x0100000c, 14, magicAlone}}, false));
  EXPECT_TRUE(cut.status == 1 && text::contains(cut.err, "the arm64 slice: ")) << cut.err;
  // Mach-O copies are signed again by codesign on PATH (here its empty entry, the current directory), unless not to.
  writeBytes(tmp / "tool", machOExecutable());
  std::string bin = tmp / "bin";
  // How codesign ends (killed by a signal; none on PATH), --no-sign, the tool's status, its message.
  const std::vector<std::tuple<std::optional<std::string>, bool, int, std::string>> cases = {
      {"exit 0", false, 0, "signed ad hoc"},
      {"exit 0", true, 0, "is not signed: sign it"},
      {"kill -9 $$", false, 1, "ended with status 137"},
      {std::nullopt, false, 0, "is not signed: sign it"}};
  for (const auto& [codesign, noSign, status, message] : cases) {
    shell("rm -rf " + bin + " && mkdir " + bin);
    if (codesign) {
      writeFile(bin + "/codesign", "#!/bin/sh\necho \"$@\" > \"$0.args\"\n" + *codesign + "\n");
      shell("chmod 700 " + bin + "/codesign");
    }
    std::vector<std::string> argv{BWK_EMBED, tmp / "tool", tmp / "config.plist", tmp / "out"};
    if (noSign) argv.insert(argv.begin() + 1, "--no-sign");
    RunResult r = run(argv, {"PATH=/usr/bin:/bin:"}, bin);
    EXPECT_TRUE(r.status == status && text::contains(r.err, message)) << message << ": " << r.status << r.err;
    EXPECT_EQ(print(tmp / "out").out, kConfig) << message;
    bool ran = codesign && !noSign;
    EXPECT_EQ(readFile(bin + "/codesign.args"), ran ? "--force -s - " + (tmp / "out") + "\n" : "") << message;
  }
}

}  // namespace
}  // namespace bwk::test
