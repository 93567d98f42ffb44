// brackwood-bundle create: refusals leave the output as it was; the parts it is built of.
#include <dlfcn.h>

#include <cstring>
#include <regex>
#include <sstream>

#include "../install/icon_files.h"
#include "base/plist_reader.h"
#include "bundle_tool.h"
#include "elf_strip.h"
#include "icon.h"
#include "install/archive_index.h"
#include "install/untar.h"
#include "jar_class_path.h"
#include "plist_writer.h"
#include "tar_writer.h"
#include "zip_directory.h"

namespace bwk::test {
namespace {

// Refused command lines (2) and inputs (1) leave an existing output as it was.
TEST(BundleCreate, RefusalsLeaveTheOutputAsItWas) {
  TempDir tmp;
  writeFile(tmp / "not-a-jar.jar", "plain text");
  writeFile(tmp / "broken.icns", std::string("icns\0\0\0\x09x", 9));
  shell("cd " + tmp.path() + " && mkdir dir.jar && echo '(a)' >a.strings && echo '{ButtonCancel=(x);}' >b.strings && " +
        "echo '{ButtonCancel=Stop; Nope=x;}' >c.strings && echo '{ButtonCancel=Stop;}' >ok.strings");
  makeFakeRuntime(tmp / "jdk", "17.0.2");
  const std::vector<std::tuple<std::vector<std::string>, int, std::string>> cases = {
      {{}, 1, "Hello.app exists (--force replaces it)"},
      {{"--jar", tmp / "missing.jar"}, 1, "missing.jar: no such file or directory"},
      {{"--jar", tmp.path()}, 1, "not-a-jar.jar: not a jar: "},  // of a folder, its .jar files
      {{"--runtime", tmp / "dir.jar", "--force"}, 1, "not a Java runtime the launcher can use"},
      {{"--icon", tmp / "broken.icns", "--force"}, 1, "broken.icns: "},  // fails while the bundle is built
      {{"--strings", tmp / "a.strings", "--force"}, 1, "a.strings: not a strings table"},
      {{"--strings", tmp / "b.strings", "--force"}, 1, "b.strings: ButtonCancel is no text"},
      {{"--strings", tmp / "c.strings", "--force"}, 1, "c.strings: Nope is no message of the launcher"},
      {{"--min-version", "9", "--max-version", "8"}, 2, "--max-version 8 is below --min-version 9"},
      {{"--min-version", "x"}, 2, "--min-version: 'x' is no version"},
      {{"--reuse-unpacked-runtime"}, 2, "--reuse-unpacked-runtime needs --runtime-as archive"},
      {{"--progress-window", "sometimes"}, 2, "--progress-window takes auto, always or never"},
      {{"--embed", "--progress-window", "never"}, 2, "--progress-window needs a bundle"},
      {{"--jlink"}, 2, "--jlink needs --runtime"},
      {{"--add-modules", "java.sql", "--add-modules", "java.xml"}, 2, "--add-modules needs --jlink"},
      {{"--jlink", "--runtime", tmp / "jdk", "--force"}, 1, "no bin/jlink"},
  };
  for (const auto& [words, status, message] : cases) {
    shell("rm -rf " + tmp / "out && mkdir -p " + tmp / "out/Hello.app && echo old > " + tmp / "out/Hello.app/marker");
    RunResult r = createHello(tmp / "out", words);
    EXPECT_TRUE(r.status == status && text::contains(r.err, message)) << message << ": " << r.status << r.err;
    EXPECT_EQ(shell("cd " + tmp / "out && find . && cat Hello.app/marker").out,
              ".\n./Hello.app\n./Hello.app/marker\nold\n")
        << message;
  }
  // A space may be part of a name, a control character, a / or .. not, nor may it be empty; a class name is of Java
  // letters (every byte of UTF-8 from 0x80 up), and digits, _ and $ after the first of each part.
  int output = 0;
  for (const auto& [name, mainClass, status] :
       {std::tuple("A\x1f", "Hello", 2), std::tuple("A B", "Hello", 0), std::tuple("M", "p\xC3\x80.Hello", 0),
        std::tuple("M", "a1._$", 0), std::tuple("M", "a-b", 2), std::tuple("a/b", "Hello", 2),
        std::tuple("..", "Hello", 2), std::tuple("", "Hello", 2), std::tuple("M", "app.0day", 2)}) {
    RunResult r = bundleTool({"create", "--name", name, "--main-class", mainClass, "--jar", helloJar(), "--output",
                              tmp / ("m" + std::to_string(++output))});
    EXPECT_EQ(r.status, status) << name << " " << mainClass << ": " << r.err;
  }
  // An option its help does not call repeatable is refused when given twice.
  std::istringstream help(bundleTool({"create", "--help"}).out);
  std::smatch option;
  for (std::string line; std::getline(help, line);) {
    if (!std::regex_match(line, option, std::regex("  --([a-z-]+)( \\S+)?(  .*)?"))) continue;
    std::vector<std::string> twice{"create", "--" + option[1].str(), "x", "--" + option[1].str(), "x"};
    if (!option[2].matched) twice = {"create", twice[1], twice[1]};
    RunResult r = bundleTool(twice);
    EXPECT_EQ(text::contains(r.err, " is given twice"), !text::contains(line, "(repeatable")) << line << r.err;
  }
  RunResult forced = createHello(tmp / "out", {"--force", "--strings", tmp / "ok.strings"});
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_EQ(std::filesystem::status(tmp / "out/Hello.app").permissions(), std::filesystem::perms(0755));
  EXPECT_EQ(
      shell("cd " + tmp / "out && find . -maxdepth 2 && grep -h Cancel */*/*/en.lproj/*; grep -c native */*/I*").out,
      ".\n./Hello.app\n./Hello.app/Contents\n\"ButtonCancel\" = \"Stop\";\n0\n");  // no native access unasked
}

// Stripping keeps every section but the debugging information and the symbol tables, each
// where it was loaded, and the library still loads and resolves its dynamic symbols.
TEST(ElfStrip, KeepsWhatIsLoaded) {
  TempDir tmp;
  const std::string original = BWK_FAKE_JLI, stripped = tmp / "libjli.so";
  std::string bytes = readFile(original), error;
  auto out = bundle::stripElf({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, &error);
  ASSERT_TRUE(out) << error;
  writeFile(stripped, std::string(out->begin(), out->end()));
  // Each section's line without its index and its file offset.
  auto sections = [](const std::string& file, const std::string& filter) {
    return shell("readelf -SW " + file + " | sed -nE 's/^ *\\[ *[0-9]+\\] (.*)$/\\1/p' | awk '{ $4 = \"\"; print }'" +
                 filter)
        .out;
  };
  std::string kept = sections(original, " | grep -Ev '^[.]z?debug|^[.]symtab |^[.]strtab '");
  EXPECT_EQ(sections(stripped, ""), kept);
  EXPECT_EQ(shell("cmp -i 64 -n 8128 " + original + " " + stripped).status, 0) << "what follows the file header";
  void* library = dlopen(stripped.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  EXPECT_NE(dlsym(library, "JLI_Launch"), nullptr);
  dlclose(library);
  EXPECT_FALSE(bundle::stripElf({reinterpret_cast<const uint8_t*>("#!/bin/sh\n"), 10}, &error));
  // A kept section that reaches the end of the file exactly, or lies past it.
  uint64_t table = 0, offset = 0, end = bytes.size(),
           comment = std::stoul(
               shell("readelf -SW " + original + " | sed -nE 's/^ *\\[ *([0-9]+)\\] \\.comment .*/\\1/p'").out);
  std::memcpy(&table, bytes.data() + 40, 8);
  char* header = bytes.data() + table + comment * 64;
  std::memcpy(&offset, header + 24, 8);
  for (auto [at, size, accepted] :
       {std::tuple(end, uint64_t{0}, true), std::tuple(end + 1, uint64_t{0}, false),
        std::tuple(offset, end - offset, true), std::tuple(offset, end - offset + 1, false)}) {
    std::memcpy(header + 24, &at, 8);
    std::memcpy(header + 32, &size, 8);
    error.clear();
    EXPECT_EQ(bundle::stripElf({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, &error).has_value(),
              accepted);
    EXPECT_EQ(error, accepted ? "" : "a section lies outside the file") << at << " " << size;
  }
}

// A PNG image's signature and header chunk: all the wrapping reads.
std::string pngOf(uint32_t width, uint32_t height) {
  return std::string("\x89PNG\r\n\x1a\n", 8) + be32(13) + "IHDR" + be32(width) + be32(height) +
         std::string("\x08\x06\0\0\0", 5) + be32(0);
}

// A PNG image becomes the one chunk of an .icns container, of the type of the smallest
// standard size that holds it; other sizes than the standard squares are said.
TEST(PngIcon, WrappedByItsSize) {
  const std::tuple<uint32_t, uint32_t, const char*, bool> cases[] = {
      {16, 16, "icp4", false},   {32, 32, "icp5", false},   {64, 64, "icp6", false},     {128, 128, "ic07", false},
      {256, 256, "ic08", false}, {512, 512, "ic09", false}, {1024, 1024, "ic10", false}, {100, 100, "ic07", true},
      {17, 16, "icp5", true},    {32, 64, "icp6", true},    {2048, 2048, "ic10", true}};
  std::string error;
  for (const auto& [width, height, type, warns] : cases) {
    std::string png = pngOf(width, height);
    std::optional<bundle::WrappedIcon> icon = bundle::icnsFromPng(png, &error);
    ASSERT_TRUE(icon) << error;
    EXPECT_EQ(icon->icns, "icns" + be32(16 + png.size()) + type + be32(8 + png.size()) + png) << width;
    EXPECT_EQ(icon->warning.empty(), !warns) << width << "x" << height << ": " << icon->warning;
    EXPECT_EQ(bundle::icnsProblem(icon->icns), std::nullopt) << width;
  }
  EXPECT_EQ(bundle::icnsFromPng(pngOf(0x1000064, 90), &error)->warning,
            "the image is 16777316x90 pixels; macOS expects a square of 16, 32, 64, 128, 256, 512 or 1024");
  EXPECT_FALSE(bundle::icnsFromPng("GIF89a" + pngOf(16, 16).substr(6), &error));
  EXPECT_EQ(error, "not a PNG image");

  const std::string chunk = "ic07" + be32(8 + 33) + pngOf(128, 128);
  const std::vector<std::pair<std::string, std::string>> problems = {
      {"icns", "not an .icns file"},
      {"icns" + be32(8), "it holds no PNG image, which the Linux progress window needs"},
      {"icns" + be32(9) + chunk, "its header gives 9 bytes, the file has 49"},
      {"icns" + be32(52) + chunk + "ic0", "a chunk header runs past the end"},
      {"icns" + be32(57) + chunk + "ic08" + be32(9), "chunk 'ic08' runs past the end"},
      {"icns" + be32(16) + "ic07" + be32(8), "it holds no PNG image, which the Linux progress window needs"},
  };
  for (const auto& [container, problem] : problems) EXPECT_EQ(bundle::icnsProblem(container), problem) << problem;
}

// Every kind of value the configuration writer writes reads back as it was.
TEST(XmlPropertyListWriter, ReadsBackAsWritten) {
  PlistArray values{"a<&>\"'z", int64_t{-7}, 0.1, -2.5e300, true, false, PlistDate{-26524800}, PlistDate{31536001}};
  std::vector<uint8_t> bytes;
  for (int length = 0; length <= 5; ++length) {
    values.push_back(PlistValue(PlistData{bytes}));
    bytes.push_back(static_cast<uint8_t>(0xff - 0x33 * length));
  }
  values.push_back(PlistValue(PlistDict{{"k", PlistArray{}}, {"l", PlistDict{}}}));
  std::string error;
  std::optional<PlistValue> read = readXmlPropertyList(bundle::xmlPropertyList(PlistValue(values)), &error);
  ASSERT_TRUE(read) << error;
  EXPECT_EQ(*read, PlistValue(values)) << bundle::xmlPropertyList(PlistValue(values));
}

// Class-Path entries are URLs: %XX escapes of either case decoded, only local file URLs taken.
TEST(JarReading, ClassPathUrlsRelativeToTheJarEntriesAndDamage) {
  TempDir tmp;
  shell(
      "cd " + tmp.path() + " && mkdir -p 'd~~ZZ++09?_' && python3 -c \"import zipfile; " +
      "zipfile.ZipFile('main.jar', 'w').writestr('META-INF/MANIFEST.MF', 'Manifest-Version: 1.0\\r\\nClass-Path: " +
      "d%7e%7E%5a%5A%2b%2B%30%39%3f%5F/ file://host/x.jar\\fhttp://h/y.jar file:///gone%41%09.jar m%zz.jar\\r\\n\\r\\n')\"");
  bundle::JarClassPath resolved = bundle::resolveJarClassPath({tmp / "main.jar"});
  ASSERT_EQ(resolved.items.size(), 2u);
  EXPECT_TRUE(resolved.items[1].path == tmp / "d~~ZZ++09?_" && resolved.items[1].directory);
  const std::string by = " (Class-Path of " + tmp / "main.jar" + "): ";
  EXPECT_EQ(resolved.warnings,
            (std::vector<std::string>{"file://host/x.jar" + by + "not a file URL, left out as the runtime skips it",
                                      "http://h/y.jar" + by + "not a file URL, left out as the runtime skips it",
                                      "/goneA\t.jar" + by + "no such file, left out as the runtime skips it",
                                      tmp / "m%zz.jar" + by + "no such file, left out as the runtime skips it"}));
  // Jars as the tool reads them: entries stored or deflated, zip64 end records, and each kind of damage named.
  // zip.py NAME [patches]: a.txt deflated and b.txt stored; each patch "SIGNATURE+OFFSET=HEX"
  // overwrites bytes after the first record with that signature (L local, C central, E end, 6 zip64 end).
  writeFile(tmp / "zip.py", R"(import io, sys, zipfile
name, patches = sys.argv[1], sys.argv[2:]
if name.split('/')[-1].startswith('64'): zipfile.ZIP_FILECOUNT_LIMIT = 1
out = io.BytesIO()
with zipfile.ZipFile(out, 'w') as z:
    z.writestr('a.txt', 'hello ' * 50, zipfile.ZIP_DEFLATED)
    z.writestr('b.txt', 'stored', zipfile.ZIP_STORED)
data = bytearray(out.getvalue())
for patch in patches:
    where, value = patch.split('=')
    kind, offset = where[0], int(where[1:])
    at = data.find({'L': b'PK\3\4', 'C': b'PK\1\2', 'E': b'PK\5\6', '6': b'PK\6\6'}[kind]) + offset
    data[at:at + len(value) // 2] = bytes.fromhex(value)
open(name, 'wb').write(data)
)");
  std::string hello;
  for (int i = 0; i < 50; ++i) hello += "hello ";
  // name, patches, the entries' content (or none), the reason a.txt is not read
  using S = std::optional<std::string>;
  const std::tuple<std::string, std::vector<std::string>, S, S, std::string> cases[] = {
      {"plain", {}, hello, "stored", ""},
      {"64", {"E10=ffff"}, hello, "stored", ""},
      {"local header", {"L0=00"}, {}, "stored", "a.txt: its local header is damaged"},
      {"method", {"C10=0c00"}, {}, "stored", "a.txt: compressed with method 12"},
      {"deflated data", {"L30=ffffffffffffffff"}, {}, "stored", "a.txt: its compressed data is damaged"},
      {"too large", {"C24=ffffff7f"}, {}, "stored", "a.txt: too large"},
      {"64 MiB, the most it reads", {"C24=00000004"}, {}, "stored", "a.txt: its compressed data is damaged"},
      {"64 MiB packed", {"C20=00000004"}, {}, "stored", "a.txt: cannot be read"},
      {"data past the end", {"C20=00ffff00"}, {}, "stored", "a.txt: cannot be read"},
      {"entry", {"C0=00"}, {}, {}, "its central directory is damaged"},
      {"name length", {"C28=ffff"}, {}, {}, "its central directory is damaged"},
      {"directory outside", {"E16=ffffff7f"}, {}, {}, "its central directory lies outside the file"},
      {"directory to the end of the file", {"E12=7c000000"}, hello, "stored", ""},
      {"no end", {"E0=00"}, {}, {}, "not a zip file (no end of central directory)"},
      {"64 locator", {"E10=ffff", "E-20=00"}, {}, {}, "a zip64 archive without its locator"},
      {"64 end", {"E10=ffff", "60=00"}, {}, {}, "a zip64 archive without its end record"},
  };
  for (const auto& [name, patches, a, b, reason] : cases) {
    std::string file = tmp / name;
    ASSERT_EQ(shell("cd " + tmp.path() + " && python3 zip.py '" + file + "' " + text::join(patches, " ")).status, 0);
    std::string error;
    auto readA = bundle::zipEntryContent(file, "a.txt", &error);
    EXPECT_EQ(std::pair(readA ? *readA : S(), a ? "" : error), std::pair(a, reason)) << name;
    auto readB = bundle::zipEntryContent(file, "b.txt", &error);
    EXPECT_EQ(readB ? *readB : S(), b) << name;
    EXPECT_EQ(bundle::zipEntryNames(file, &error).has_value(), b.has_value()) << name;
  }
  std::string error;
  EXPECT_EQ(bundle::zipEntryContent(tmp / "plain", "c.txt", &error), std::optional<S>(S()));
  writeFile(tmp / "short", "PK");
  for (const auto& [file, message] :
       {std::pair(tmp / "short", "too short for a zip file"), std::pair(tmp.path(), "not a regular file"),
        std::pair(tmp / "none", "No such file or directory")}) {
    EXPECT_FALSE(bundle::zipEntryNames(file, &error)) << message;
    EXPECT_EQ(error, message);
  }
}

// Members of the chosen size and their index; every other reader sees one .tar.gz with the
// same entries; the launcher takes the indexed way and gets the same files.
TEST(TarGzWriter, IndexedMembersThatEveryReaderReads) {
  TempDir tmp;
  std::string big;
  for (uint32_t x = 1; big.size() < 9u << 20; x = x * 1103515245u + 12345u) big.push_back(static_cast<char>(x >> 16));
  writeFile(tmp / "big", big);
  writeFile(tmp / "small", "small");
  bundle::TarGzWriter writer;
  ASSERT_TRUE(writer.open(tmp / "a.tar.gz"));
  ASSERT_TRUE(writer.addDirectory("d", 0755, 0) && writer.addFile("d/big", tmp / "big", big.size(), 0644, 0) &&
              writer.addFile("d/small", tmp / "small", 5, 0600, 0) && writer.addSymlink("d/l", "small", 0) &&
              writer.finish());

  std::string archive = readFile(tmp / "a.tar.gz");
  auto members = readArchiveIndex(archive.data(), archive.size());
  std::vector<uint64_t> sizes;
  for (const IndexedMember& m : members.value_or(std::vector<IndexedMember>{})) sizes.push_back(m.size);
  const uint64_t full = bundle::TarGzWriter::kMemberSize;
  EXPECT_EQ(sizes, (std::vector<uint64_t>{full, full, writer.uncompressedSize() - 2 * full}));

  const std::string names = "d/\nd/big\nd/small\nd/l\n";
  EXPECT_EQ(
      shell("cd " + tmp.path() + " && gzip -t a.tar.gz && tar -tzf a.tar.gz && bsdtar -tf a.tar.gz && python3 -c " +
            "'import tarfile; [print(m.name + (\"/\" if m.isdir() else \"\")) for m in tarfile.open(\"a.tar.gz\")]'")
          .out,
      names + names + names);

  shell("mkdir " + tmp / "out");
  UnTar::Outcome outcome = UnTar::untarWith(UnTar::Inflation::Indexed, tmp / "a.tar.gz", tmp / "out", 0, nullptr);
  EXPECT_EQ(outcome, (UnTar::Outcome{true, UnTar::Inflation::Indexed, 0, {}}));
  EXPECT_TRUE(readFile(tmp / "out/d/big") == big && readFile(tmp / "out/d/small") == "small");

  bundle::TarGzWriter shortened;  // a file shorter than when it was listed ends the archive with a reason
  ASSERT_TRUE(shortened.open(tmp / "b.tar.gz"));
  EXPECT_FALSE(shortened.addFile("small", tmp / "small", 100, 0644, 0));
  EXPECT_TRUE(text::contains(shortened.error(), "shorter than when it was listed")) << shortened.error();
}

// A name or link target of up to 100 bytes fits its header; a longer one, up to 1023 bytes, an entry before it.
TEST(TarGzWriter, LongNamesAndTargets) {
  TempDir tmp;
  writeFile(tmp / "f", "f");
  bundle::TarGzWriter writer;
  ASSERT_TRUE(writer.open(tmp / "a.tar.gz"));
  ASSERT_TRUE(writer.addFile(std::string(100, 'n'), tmp / "f", 1, 0644, 0) &&
              writer.addSymlink("l", std::string(100, 't'), 0) &&
              writer.addFile(std::string(1023, 'm'), tmp / "f", 1, 0644, 0) && writer.finish());
  bundle::TarGzWriter refusing, notUtf8;  // a name too long; a link target that is no UTF-8
  ASSERT_TRUE(refusing.open(tmp / "b.tar.gz") && notUtf8.open(tmp / "c.tar.gz"));
  EXPECT_FALSE(refusing.addFile(std::string(1024, 'm'), tmp / "f", 1, 0644, 0) || notUtf8.addSymlink("l", "\xff", 0));
  EXPECT_TRUE(text::contains(refusing.error(), "longer than the 1023 bytes")) << refusing.error();
  // The type and mode of each header in turn, up to the end of the archive.
  std::string tar = shell("gzip -dc " + tmp / "a.tar.gz").out, types;
  for (size_t at = 0; at + 512 <= tar.size() && tar[at] != '\0';) {
    types += tar.substr(at + 156, 1) + tar.substr(at + 103, 4) + " ";
    at += 512 + (std::stoull(tar.substr(at + 124, 11), nullptr, 8) + 511) / 512 * 512;
  }
  EXPECT_EQ(types, "00644 20777 L0644 00644 ");
}

}  // namespace
}  // namespace bwk::test
