// Extraction of archives, hostile ones included, inflated in one piece and streamed: the result, the system-log
// messages, what lands in the destination and that nothing outside it changes. Also the header numbers.

#include "install/inflated_tar_stream.h"
#include "platform/platform.h"
#include "untar_fixture.h"

namespace bwk::test {
namespace {

namespace stdfs = std::filesystem;

struct Case {
  const char* name;
  std::string script;
  bool ok;
  std::vector<std::string> messages = {};  // "{dest}" and "{root}" stand for those paths
  // Expected in dest: "text" a file with that content, "/" a directory, "->x" a link to x.
  std::map<std::string, std::string> present = {};
  std::vector<std::string> absent = {};
  std::string setup = {};  // shell commands run in the root before extracting
};

const std::string kLong1024 = std::string(200, 'p') + "/" + std::string(200, 'q') + "/" + std::string(200, 'r') + "/" +
                              std::string(200, 's') + "/" + std::string(220, 't');
const std::string kUnsafe = "WARNING: skipping unsafe archive path ";

std::string big() {  // bytes(range(251)) * 12240
  std::string s(251 * 12240, '\0');
  for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<char>(i % 251);
  return s;
}

std::string noise(size_t n) {  // random.Random(1).randbytes(n), as the archive scripts make it
  RunResult r =
      run({"/usr/bin/python3", "-c",
           "import random,sys; sys.stdout.buffer.write(random.Random(1).randbytes(" + std::to_string(n) + "))"});
  return r.out;
}

std::vector<Case> archiveCases() {
  return {
      Case(
          "files_directories_links_and_modes",
          "dir('a'); file('a/b.txt', 'hello'); link('a/l', 'b.txt'); file('a/empty'); file('big', bytes(range(251)) * 12240)\n"
          "file('ro', 'r', mode=0o444); file('all', 'w', mode=0o777); file('none', 'n', mode=0)\n"
          "raw('m755', mode=b' 755 \\0', data=b'b'); dir('d'); file('d/c', 'end')",
          true, {},
          {{"a", "/"},
           {"a/b.txt", "hello"},
           {"a/l", "->b.txt"},
           {"a/empty", ""},
           {"big", big()},
           {"d/c", "end"},
           {"ro", "r"},
           {"all", "w"},
           {"none", "n"},
           {"m755", "b"}}),

      Case("names_that_leave_the_destination",
           "dir('a')\n"
           "file(ROOT + '/outside/abs', 'x'); file('~/bwk-untar-test-never', 'x'); file('~', 'x')\n"
           "file('a/../../outside/up', 'x'); file('../dest-evil/x', 'x'); file('a/../..', 'x')\n"
           "dir('./'); raw('.', b'5'); dir('a/..')\n"
           "file('a/./b', 'ab'); file('a/../c', 'c'); file('a//d', 'd')",
           true,
           {kUnsafe + "{root}/outside/abs", kUnsafe + "~/bwk-untar-test-never", kUnsafe + "~",
            kUnsafe + "a/../../outside/up", kUnsafe + "../dest-evil/x", kUnsafe + "a/../..", kUnsafe + "./",
            kUnsafe + ".", kUnsafe + "a/../"},
           {{"a/b", "ab"}, {"c", "c"}, {"a/d", "d"}}, {"x", "abs", "up"}),

      Case("entries_through_links",
           "link('lib', ROOT + '/outside'); file('lib/x', 'evil'); dir('lib/sub'); link('lib/y', 'z')\n"
           "link('lib', '/tmp'); file('lib', 'over'); dir('lib')\n"
           "link('up', '..'); file('up/dest-evil2', 'x'); link('self', '.'); file('self/self/x', 'x'); file('ok', '1')",
           true,
           {kUnsafe + "lib/x", kUnsafe + "lib/sub/", kUnsafe + "lib/y", kUnsafe + "lib", kUnsafe + "lib",
            kUnsafe + "lib/", kUnsafe + "up/dest-evil2", kUnsafe + "self/self/x"},
           {{"lib", "->{root}/outside"}, {"up", "->.."}, {"self", "->."}, {"ok", "1"}}, {"x"}),

      Case("links_already_in_the_destination", "file('pre/x', 'evil'); file('pre', 'evil'); file('hard', 'new')", true,
           {kUnsafe + "pre/x", kUnsafe + "pre"}, {{"pre", "->{root}/outside"}, {"hard", "new"}}, {},
           "&& ln -s $PWD/outside dest/pre && ln outside/keep dest/hard"),

      Case(
          "hard_links_devices_and_other_types_create_nothing",
          "file('f', 'data'); hardlink('h', 'f'); special('c', tarfile.CHRTYPE); special('p', tarfile.FIFOTYPE)\n"
          "raw('contig', b'7', data=noise(700)); raw('pax', b'x', data=b'30 path=ignored\\n'); raw('high', b'\\x80', data=noise(513))\n"
          "file('after', 'in step')",
          true, {}, {{"f", "data"}, {"after", "in step"}}, {"h", "c", "p", "contig", "pax", "high", "ignored"}),

      Case("gnu_long_names_and_link_names",
           "dir('L' * 120); file('L' * 120 + '/' + 'n' * 130, 'long'); link('s' * 110, 't' * 150)\n"
           "longname(('d' * 99 + '/').encode() + b'\\0junk'); raw('short-dir-name', b'5')\n"
           "longname(b'first'); longname(b'second'); raw('field', b'0', data=b'2')\n"
           "longname(b'pax-only'); raw('x', b'x', data=b'9 a=b\\n'); file('own', '3')\n"
           "longname(b'k1', b'K'); longname(b'k2', b'K'); raw('kl', b'2', link=b'field-target')\n"
           "longname(b'" +
               kLong1024 + "'); raw('ignored', b'5')",
           true, {},
           {{std::string(120, 'L') + "/" + std::string(130, 'n'), "long"},
            {std::string(110, 's'), "->" + std::string(150, 't')},
            {std::string(99, 'd'), "/"},
            {"second", "2"},
            {"own", "3"},
            {"kl", "->k2"},
            {kLong1024, "/"}},
           {"short-dir-name", "first", "field", "pax-only", "x", "ignored"}),

      Case("long_name_of_1025_bytes", "longname(b'" + kLong1024 + "x'); raw('ignored', b'5'); file('f', '1')", false,
           {"ERROR: invalid long archive path"}, {}, {"ignored", "f", std::string(200, 'p')}),
      Case("long_name_of_0_bytes", "file('before', '0'); longname(b''); file('f', '1')", false,
           {"ERROR: invalid long archive path"}, {{"before", "0"}}, {"f"}),
      Case("long_name_cut_short", "file('before', '0'); longname(b'n' * 300); END = False; _buf.truncate(1024 + 600)",
           false, {"ERROR: invalid long archive path"}, {{"before", "0"}}),
      Case("long_name_not_utf8", "longname(b'bad\\xff'); file('f', '1')", false, {"ERROR: invalid long archive path"},
           {}, {"f"}),
      Case("name_not_utf8", "file('before', '0'); raw(b'bad\\xc3(', data=b'x'); file('f', '1')", false,
           {"ERROR: invalid archive path"}, {{"before", "0"}}, {"f"}),

      Case("link_targets_that_cannot_be_made",
           "raw('bad', b'2', link=b'\\xc3'); raw('empty', b'2'); link('no/l', 'x'); file('f', '1')", true,
           {"ERROR: could not create symlink at {dest}/bad ((null))",
            "ERROR: could not create symlink at {dest}/empty (No such file or directory)",
            "ERROR: could not create symlink at {dest}/no/l (No such file or directory)"},
           {{"f", "1"}}, {"bad", "empty", "no"}),

      // Sizes of 0xff bytes would seek backwards, replaying entries for ever.
      Case("size_that_would_seek_backwards_on_an_ignored_entry",
           "file('before', '0'); raw('x', b'x', size=b'\\xff' * 11); file('f', '1')", false, {"ERROR: gzseek 2 failed"},
           {{"before", "0"}}, {"f"}),
      Case("size_that_would_seek_backwards_on_an_unsafe_entry", "raw('../x', size=b'\\xff' * 11); file('f', '1')",
           false, {kUnsafe + "../x", "ERROR: gzseek 3 failed"}, {}, {"f"}),
      Case("size_beyond_the_end_of_the_stream", "raw('big', size=b'77777777777', data=b'x'); file('f', '1')", false,
           {"ERROR: stream error", "ERROR: extract file failed"}, {}, {"big", "f"}),

      Case("only_directories_and_links", "dir('a'); dir('a/b'); link('a/l', 'b')", false, {"ERROR: no magic number"},
           {{"a/b", "/"}, {"a/l", "->b"}}),
      Case(
          "resource_fork_companions",
          "file('._top', 'x'); dir('d'); file('d/._x', noise(40000)); dir('._dir'); file('._dir/y', 'y'); file('d/z', 'z')",
          true, {}, {{"d/z", "z"}, {"._dir", "/"}}, {"._top", "d/._x", "._dir/y"}),
      Case("regular_file_whose_parent_is_missing", "file('nodir/x', noise(1000)); file('y', 'y')", true,
           {"Could not create file {dest}/nodir/x 2 No such file or directory"}, {{"y", "y"}}, {"nodir"}),
      Case("entries_over_existing_ones",
           "file('a', '1'); file('a', '22'); dir('d'); file('d', 'x'); link('l', 'a'); link('l', 'b'); link('m', 'a')\n"
           "file('f', 'f'); dir('f')",
           false,
           {"Could not create file {dest}/d 21 Is a directory", kUnsafe + "l", "ERROR: extract creating directory"},
           {{"a", "22"}, {"d", "/"}, {"l", "->a"}, {"m", "->a"}, {"f", "f"}}),
      Case("tar_stream_without_end_blocks", "END = False; file('a', 'x' * 600)", false, {"ERROR: gzread failed"},
           {{"a", std::string(600, 'x')}}),

      // Damaged gzip: one-piece inflating gives way to the stream, which keeps what came before, not a cut file.
      Case("gzip_truncated_inside_a_file", "file('a', 'first'); file('big', noise(200000)); GZ_DROP = 100000", false,
           {"ERROR: stream error", "ERROR: extract file failed"}, {{"a", "first"}}, {"big"}),
      Case("gzip_trailer_missing", "file('a', 'complete'); GZ_DROP = 8", false, {}, {{"a", "complete"}}),
      Case("gzip_first_block_corrupt", "file('a', 'x'); GZ_BAD_AT = 0", false, {"ERROR: gzread failed"}, {}, {"a"}),
      Case("gzip_in_two_members", "file('a', 'first'); GZ_SPLIT_AT = 1024; file('b', 'second')", true, {},
           {{"a", "first"}, {"b", "second"}}),
      Case("gzip_with_bytes_after_it", "file('a', 'x'); GZ_TRAILING = b'not gzip' * 20", true, {}, {{"a", "x"}}),
      Case("gzip_trailer_with_a_wrong_length", "file('a', noise(5000)); file('b', 'y'); GZ_SIZE = 123", false,
           {"ERROR: gzread failed"}, {}, {"a", "b"}),
      // Members of 4096 tar bytes, the eleventh (inside 'big') with a wrong CRC-32: every way
      // ends as the stream does, with what came before and without the file cut short.
      Case("member_with_a_wrong_crc",
           "MEMBERS = 4096; BAD_CRC_IN = 10; file('a', 'first'); file('big', noise(200000)); file('c', 'after')", false,
           {"ERROR: stream error", "ERROR: extract file failed"}, {{"a", "first"}}, {"big", "c"}),
      Case("member_with_a_wrong_crc_after_whole_files",
           "MEMBERS = 1024; BAD_CRC_IN = 3; file('a', noise(1500)); file('b', 'x'); file('c', noise(3000))", false,
           {"ERROR: gzread failed"}, {{"a", noise(1500)}, {"b", "x"}}, {"c"}),
      Case("members_of_one_block_each",
           "MEMBERS = 512; dir('d'); file('d/a', noise(5000)); link('d/l', 'a'); file('e')", true, {},
           {{"d/a", noise(5000)}, {"d/l", "->a"}, {"e", ""}}),
      Case("member_only_zlib_reads", "MEMBERS = 1000; EMPTY_MEMBER_IN = 3; file('a', noise(5000)); file('b')", true, {},
           {{"a", noise(5000)}, {"b", ""}}),
      Case("not_an_archive", "PLAIN = True; _buf.write(noise(3000)); END = False", false, {"ERROR: no magic number"}),
      Case("empty_file", "PLAIN = True; END = False", false, {"ERROR: gzread failed"}),
  };
}

std::string describe(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return "(missing)";
  if (S_ISDIR(st.st_mode)) return "/";
  if (S_ISLNK(st.st_mode)) return "->" + stdfs::read_symlink(path).string();
  return readFile(path);
}

class ArchiveCaseTest : public UntarFixture, public ::testing::WithParamInterface<std::tuple<Case, UnTar::Inflation>> {
 protected:
  std::string expand(std::string text) const {
    for (auto [key, value] : {std::pair<std::string, std::string>{"{dest}", dest}, {"{root}", root}})
      for (size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, key.size(), value);
    return text;
  }
};

TEST_P(ArchiveCaseTest, ExtractsExactlyWhatIsSafe) {
  const Case& c = std::get<0>(GetParam());
  inflation = std::get<1>(GetParam());
  buildArchive(c.script);
  ASSERT_EQ(shell("cd " + root + " && true " + c.setup).status, 0);

  Outcome outcome = extract();

  EXPECT_EQ(outcome.complete, c.ok);
  // Only one intact gzip member is inflated in one piece, and only intact indexed members in
  // parallel; a member spoilt by a *_IN knob hands over to the stream.
  bool damaged =
      text::contains(c.script, "GZ_") || text::contains(c.script, "PLAIN") || text::contains(c.script, "_IN =");
  bool members = text::contains(c.script, "MEMBERS");
  UnTar::Inflation expectedWay =
      damaged || (members && inflation == UnTar::Inflation::WholeBuffer) ? UnTar::Inflation::Streaming : inflation;
  EXPECT_EQ(outcome.used, expectedWay);
  std::vector<std::string> expected;
  for (const std::string& m : c.messages) expected.push_back(expand(m));
  EXPECT_EQ(outcome.problems, expected);
  for (const auto& [relative, what] : c.present) EXPECT_EQ(describe(dest + "/" + relative), expand(what)) << relative;
  for (const std::string& relative : c.absent) EXPECT_FALSE(fs::existsNoFollow(dest + "/" + relative)) << relative;
  // Owner read and write are always granted; the umask does not apply.
  for (const auto& [file, mode] : {std::pair{"ro", 0644u}, {"all", 0777u}, {"none", 0600u}, {"m755", 0755u}}) {
    struct stat st {};
    EXPECT_EQ(::lstat((dest + "/" + file).c_str(), &st) == 0 ? st.st_mode & 07777 : mode, mode) << file;
  }
  EXPECT_FALSE(fs::existsNoFollow(platform::homeDirectory() + "/bwk-untar-test-never"));
  EXPECT_FALSE(fs::existsNoFollow(root + "/dest-evil"));
}

INSTANTIATE_TEST_SUITE_P(Archives, ArchiveCaseTest,
                         ::testing::Combine(::testing::ValuesIn(archiveCases()), ::testing::ValuesIn(kInflations)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + "_" +
                                  inflationName(std::get<1>(test.param));
                         });

// With one thread the reading thread inflates each member itself: the same files, and a
// damaged member hands over to the stream as with several.
class OneInflatingThread : public UntarFixture {};
TEST_F(OneInflatingThread, SameResultAndHandOver) {
  env.set("BRACKWOOD_UNPACK_THREADS", "1");
  inflation = UnTar::Inflation::Indexed;
  for (const char* damage : {"", "BAD_CRC_IN = 5; "}) {
    std::filesystem::remove_all(dest);
    std::filesystem::create_directory(dest);
    buildArchive(std::string("MEMBERS = 1000; ") + damage +
                 "file('a', noise(3000)); dir('d'); file('d/b', noise(9000))");
    Outcome outcome = extract();
    const bool damaged = *damage != '\0';
    EXPECT_EQ(outcome.complete, !damaged) << damage;
    EXPECT_EQ(outcome.used, damaged ? UnTar::Inflation::Streaming : UnTar::Inflation::Indexed) << damage;
    EXPECT_EQ(describe(dest + "/a"), noise(3000)) << damage;
    EXPECT_EQ(describe(dest + "/d/b"), damaged ? "(missing)" : noise(9000)) << damage;
  }
}

// zlib also checks the gzip header's own CRC, which libdeflate passes over: such an archive is
// read whole from the inflated copy, whether zlib started beside the inflating or not.
class OneMemberBesideZlib : public UntarFixture {};
TEST_F(OneMemberBesideZlib, AHeaderCheckOnlyZlibMakesDoesNotStopIt) {
  buildArchive("HEADER_CRC = True; file('a', noise(3000))");
  inflation = UnTar::Inflation::Streaming;
  EXPECT_FALSE(extract().complete);
  inflation = UnTar::Inflation::WholeBuffer;
  for (const char* threads : {"1", "2"}) {
    env.set("BRACKWOOD_UNPACK_THREADS", threads);
    Outcome outcome = extract();
    EXPECT_TRUE(outcome.complete) << threads;
    EXPECT_EQ(outcome.used, UnTar::Inflation::WholeBuffer) << threads;
    EXPECT_EQ(describe(dest + "/a"), noise(3000)) << threads;
  }
}

// The size to inflate into, from the gzip trailer: anything implausible is left to the stream. A number of a header:
// leading blanks and zeros skipped; it ends at the field's end, a NUL or a blank after its digits; no range check.
TEST(TarHeaderNumber, EndsAtTheFieldANulOrABlank) {
  const std::tuple<const char*, int, uint64_t> cases[] = {
      {" 0017 5", 7, 017}, {"123", 2, 012}, {"12\0003", 4, 012}, {"19", 2, 17}, {"", 0, 0}};
  for (const auto& [field, length, value] : cases) EXPECT_EQ(parseOctal(field, length), value) << field;
}

TEST(WholeBufferSize, TakesOnlyPlausibleSizesUpToTheLimit) {
  constexpr uint32_t kGiB = 1u << 30;
  const std::vector<std::tuple<uint64_t, uint32_t, std::optional<size_t>>> cases = {
      {1000, 900, 900},  // stored, larger than the tar stream
      {2000000, kGiB + 1, std::nullopt},
      {1018, 1032000, 1032000},  // the most deflate makes of 1000 bytes
      {1018, 1033032, std::nullopt},
      {18, 1, std::nullopt},  // too short for a gzip header and trailer
      {19, 1, 1},
      {300u << 20, kGiB, kGiB},  // the limit, of an archive of any size: only the tar stream counts
  };
  for (const auto& [fileSize, trailer, expected] : cases)
    EXPECT_EQ(wholeBufferSize(fileSize, trailer), expected) << fileSize << " " << trailer;
}

}  // namespace
}  // namespace bwk::test
