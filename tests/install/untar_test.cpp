// Extraction of archives written by Python's tarfile, byte by byte and by GNU tar, hostile
// ones included: the result, the exact system-log messages, what lands in the destination,
// and that nothing outside it changes, each with the archive inflated in one piece and
// streamed.
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <tuple>

#include "base/fs.h"
#include "install/untar.h"
#include "platform/platform.h"
#include "untar_fixture.h"

namespace bwk::test {
namespace {

namespace stdfs = std::filesystem;

struct ArchiveCase {
  const char* name;
  std::string script;                 // body of the archive script
  bool ok;                            // result of untar
  std::vector<std::string> messages = {};  // system-log messages in order ({dest}, {root} expanded)
  // Expected in dest: "text" a file with that content, "/" a directory, "->x" a link to x.
  std::map<std::string, std::string> present = {};
  std::vector<std::string> absent = {};  // must not exist in dest
  std::map<std::string, mode_t> modes = {};
  std::string setup = {};  // shell commands run in the root before extracting
};

void PrintTo(const ArchiveCase& c, std::ostream* os) { *os << c.name; }

const std::string kLong1024 = std::string(200, 'p') + "/" + std::string(200, 'q') + "/" + std::string(200, 'r') + "/" +
                              std::string(200, 's') + "/" + std::string(220, 't');

std::string repeated(const std::string& piece, size_t times) {
  std::string out;
  for (size_t i = 0; i < times; ++i) out += piece;
  return out;
}

std::vector<ArchiveCase> archiveCases() {
  return {
      {"files_directories_links",
       "dir('a'); file('a/b.txt', 'hello'); link('a/l', 'b.txt'); file('a/empty'); file('top', 'x')", true, {},
       {{"a", "/"}, {"a/b.txt", "hello"}, {"a/l", "->b.txt"}, {"a/empty", ""}, {"top", "x"}}},

      // Several megabytes: memory already read is given back while later files are written.
      {"files_over_several_megabytes",
       "file('a', b'0123456789' * 300000); file('b', b'xy' * 1300000); dir('d'); file('d/c', 'end')", true, {},
       {{"a", repeated("0123456789", 300000)}, {"b", repeated("xy", 1300000)}, {"d/c", "end"}}},

      {"names_that_leave_the_destination",
       "dir('a')\n"
       "file(ROOT + '/outside/abs', 'x'); file('~/bwk-untar-test-never', 'x'); file('~', 'x')\n"
       "file('a/../../outside/up', 'x'); file('../dest-evil/x', 'x'); file('a/../..', 'x')\n"
       "dir('./'); raw('.', b'5'); dir('a/..')\n"
       "file('a/./b', 'ab'); file('a/../c', 'c'); file('a//d', 'd')", true,
       {"WARNING: skipping unsafe archive path {root}/outside/abs",
        "WARNING: skipping unsafe archive path ~/bwk-untar-test-never", "WARNING: skipping unsafe archive path ~",
        "WARNING: skipping unsafe archive path a/../../outside/up",
        "WARNING: skipping unsafe archive path ../dest-evil/x", "WARNING: skipping unsafe archive path a/../..",
        "WARNING: skipping unsafe archive path ./", "WARNING: skipping unsafe archive path .",
        "WARNING: skipping unsafe archive path a/../"},
       {{"a/b", "ab"}, {"c", "c"}, {"a/d", "d"}},
       {"x", "abs", "up"}},

      {"entries_through_links",
       "link('lib', ROOT + '/outside'); file('lib/x', 'evil'); dir('lib/sub'); link('lib/y', 'z')\n"
       "link('lib', '/tmp'); file('lib', 'over'); dir('lib')\n"
       "link('up', '..'); file('up/dest-evil2', 'x'); link('self', '.'); file('self/self/x', 'x')\n"
       "file('ok', '1')", true,
       {"WARNING: skipping unsafe archive path lib/x", "WARNING: skipping unsafe archive path lib/sub/",
        "WARNING: skipping unsafe archive path lib/y", "WARNING: skipping unsafe archive path lib",
        "WARNING: skipping unsafe archive path lib", "WARNING: skipping unsafe archive path lib/",
        "WARNING: skipping unsafe archive path up/dest-evil2", "WARNING: skipping unsafe archive path self/self/x"},
       {{"lib", "->{root}/outside"}, {"up", "->.."}, {"self", "->."}, {"ok", "1"}},
       {"x"}},

      {"links_already_in_the_destination",
       "file('pre/x', 'evil'); file('pre', 'evil'); file('hard', 'replaced'); file('ok', '1')", true,
       {"WARNING: skipping unsafe archive path pre/x", "WARNING: skipping unsafe archive path pre"},
       {{"pre", "->{root}/outside"}, {"hard", "replaced"}, {"ok", "1"}}, {}, {},
       "ln -s \"$PWD/outside\" dest/pre && ln outside/keep dest/hard"},

      {"hard_links_devices_and_other_types_create_nothing",
       "file('f', 'data'); hardlink('h', 'f'); special('c', tarfile.CHRTYPE); special('b', tarfile.BLKTYPE)\n"
       "special('p', tarfile.FIFOTYPE); raw('contig', b'7', data=noise(700)); raw('pax', b'x', data=b'30 path=ignored\\n')\n"
       "raw('high', b'\\x80', data=noise(513)); raw('vendor', b'V', data=noise(1)); file('after', 'in step')", true, {},
       {{"f", "data"}, {"after", "in step"}},
       {"h", "c", "b", "p", "contig", "pax", "high", "vendor", "ignored"}},

      {"gnu_long_names_and_link_names",
       "dir('L' * 120); file('L' * 120 + '/' + 'n' * 130, 'long'); link('s' * 110, 't' * 150)\n"
       "longname(('d' * 99 + '/').encode() + b'\\0junk'); raw('short-dir-name', b'5')\n"
       "longname(b'first'); longname(b'second'); raw('field', b'0', data=b'2')\n"
       "longname(b'pax-only'); raw('x', b'x', data=b'9 a=b\\n'); file('own', '3')\n"
       "longname(b'k1', b'K'); longname(b'k2', b'K'); raw('kl', b'2', link=b'field-target')", true, {},
       {{std::string(120, 'L') + "/" + std::string(130, 'n'), "long"},
        {std::string(110, 's'), std::string("->").append(150, 't')},
        {std::string(99, 'd'), "/"},
        {"second", "2"},
        {"own", "3"},
        {"kl", "->k2"}},
       {"short-dir-name", "first", "field", "pax-only", "x"}},

      {"long_name_of_1024_bytes", "longname(b'" + kLong1024 + "'); raw('ignored', b'5'); file('f', '1')", true, {},
       {{kLong1024, "/"}, {"f", "1"}},
       {"ignored"}},

      {"long_name_of_1025_bytes", "longname(b'" + kLong1024 + "x'); raw('ignored', b'5'); file('f', '1')", false,
       {"ERROR: invalid long archive path"}, {}, {"ignored", "f", std::string(200, 'p')}},

      {"long_name_of_0_bytes", "file('before', '0'); longname(b''); file('f', '1')", false,
       {"ERROR: invalid long archive path"},
       {{"before", "0"}},
       {"f"}},

      {"long_name_not_utf8", "longname(b'bad\\xff'); file('f', '1')", false, {"ERROR: invalid long archive path"}, {}, {"f"}},

      {"name_not_utf8", "file('before', '0'); raw(b'bad\\xc3(', data=b'x'); file('f', '1')", false,
       {"ERROR: invalid archive path"},
       {{"before", "0"}},
       {"f"}},

      {"link_targets_that_cannot_be_made",
       "raw('bad', b'2', link=b'\\xc3'); raw('empty', b'2'); link('nodir/l', 'x'); file('f', '1')", true,
       {"ERROR: could not create symlink at {dest}/bad ((null))",
        "ERROR: could not create symlink at {dest}/empty (No such file or directory)",
        "ERROR: could not create symlink at {dest}/nodir/l (No such file or directory)"},
       {{"f", "1"}},
       {"bad", "empty", "nodir"}},

      {"octal_fields_digits_8_and_9_and_spaces",
       "raw('eighteen', size=b'00000000018', data=b'0123456789abcdef')\n"
       "raw('nine', size=b' 9 7', data=b'ninebytes')\n"
       "raw('m755', mode=b'0000755\\0', data=b'a'); raw('m755sp', mode=b' 755 \\0', data=b'b')\n"
       "raw('m18', mode=b'18', data=b'c'); file('ro', 'r', mode=0o444); file('all', 'w', mode=0o777)\n"
       "file('none', 'n', mode=0)", true, {},
       {{"eighteen", "0123456789abcdef"}, {"nine", "ninebytes"}, {"m755", "a"}, {"m755sp", "b"}, {"m18", "c"},
        {"ro", "r"}, {"all", "w"}, {"none", "n"}}, {},
       {{"m755", 0755}, {"m755sp", 0755}, {"m18", 0620}, {"ro", 0644}, {"all", 0777}, {"none", 0600}}},

      {"size_that_would_seek_backwards_on_an_ignored_entry",
       "file('before', '0'); raw('x', b'x', size=b'\\xff' * 11); file('f', '1')", false, {"ERROR: gzseek 2 failed"},
       {{"before", "0"}},
       {"f"}},

      {"size_that_would_seek_backwards_on_an_unsafe_entry", "raw('../x', size=b'\\xff' * 11); file('f', '1')", false,
       {"WARNING: skipping unsafe archive path ../x", "ERROR: gzseek 3 failed"}, {}, {"f"}},

      {"size_beyond_the_end_of_the_stream", "raw('big', size=b'77777777777', data=b'x'); file('f', '1')", false,
       {"ERROR: stream error", "ERROR: extract file failed"}, {}, {"f"}},

      {"only_directories_and_links", "dir('a'); dir('a/b'); link('a/l', 'b')", false, {"ERROR: no magic number"},
       {{"a/b", "/"}, {"a/l", "->b"}}},

      {"resource_fork_companions",
       "file('._top', 'x'); dir('d'); file('d/._x', noise(40000)); dir('._dir'); file('._dir/y', 'y'); file('d/z', 'z')", true, {},
       {{"d/z", "z"}, {"._dir", "/"}},
       {"._top", "d/._x", "._dir/y"}},

      {"regular_file_whose_parent_is_missing", "file('nodir/x', noise(1000)); file('y', 'y')", true,
       {"Could not create file {dest}/nodir/x 2 No such file or directory"},
       {{"y", "y"}},
       {"nodir"}},

      {"entries_over_existing_ones",
       "file('a', '1'); file('a', '22'); dir('d'); file('d', 'x'); link('l', 'a'); link('l', 'b'); link('m', 'a')\n"
       "file('f', 'f'); dir('f')", false,
       {"Could not create file {dest}/d 21 Is a directory", "WARNING: skipping unsafe archive path l",
        "ERROR: extract creating directory"},
       {{"a", "22"}, {"d", "/"}, {"l", "->a"}, {"m", "->a"}, {"f", "f"}}},

      {"tar_stream_without_end_blocks", "END = False; file('a', 'x' * 600)", false, {"ERROR: gzread failed"},
       {{"a", std::string(600, 'x')}}},

      {"gzip_stream_truncated_inside_a_file", "file('a', 'first'); file('big', noise(200000)); GZ_DROP = 100000", false,
       {"ERROR: stream error", "ERROR: extract file failed"},
       {{"a", "first"}}},

      {"gzip_trailer_missing", "file('a', 'complete'); GZ_DROP = 8", false, {}, {{"a", "complete"}}},

      {"gzip_first_block_corrupt", "file('a', 'x'); GZ_BAD_START = True", false, {"ERROR: gzread failed"}, {}, {"a"}},

      {"gzip_member_corrupt_inside_a_file",
       "file('a', 'first'); file('big', noise(200000)); file('c', 'c'); GZ_BAD_AT = 1024 + 100000", false,
       {"ERROR: stream error", "ERROR: extract file failed"},
       {{"a", "first"}},
       {"c"}},

      {"gzip_member_corrupt_at_a_header", "file('a', 'first'); GZ_BAD_AT = 1024; file('c', 'c')", false,
       {"ERROR: gzread failed"},
       {{"a", "first"}},
       {"c"}},

      {"gzip_in_two_members", "file('a', 'first'); GZ_SPLIT_AT = 1024; file('b', 'second')", true, {},
       {{"a", "first"}, {"b", "second"}}},

      {"gzip_with_bytes_after_it", "file('a', 'x'); GZ_TRAILING = b'not gzip' * 20", true, {}, {{"a", "x"}}},

      {"gzip_trailer_with_a_wrong_length", "file('a', noise(5000)); file('b', 'y'); GZ_SIZE = 123", false,
       {"ERROR: gzread failed"}, {}, {"a", "b"}},

      {"not_an_archive", "PLAIN = True; _buf.write(noise(3000)); END = False", false, {"ERROR: no magic number"}},

      {"empty_file", "PLAIN = True; END = False", false, {"ERROR: gzread failed"}},
  };
}

class ArchiveCaseTest : public UntarFixture,
                        public ::testing::WithParamInterface<std::tuple<ArchiveCase, UnTar::Inflation>> {};

// Whether zlib reads the file as exactly one gzip member, intact, with nothing after it:
// the archives that are to be inflated in one piece.
bool isOneIntactGzipMember(const std::string& path) {
  std::string bytes = readFile(path);
  z_stream z{};
  if (inflateInit2(&z, 31) != Z_OK) return false;
  std::vector<unsigned char> out(1 << 16);
  z.next_in = reinterpret_cast<unsigned char*>(bytes.data());
  z.avail_in = static_cast<unsigned>(bytes.size());
  int result = Z_OK;
  while (result == Z_OK) {
    z.next_out = out.data();
    z.avail_out = static_cast<unsigned>(out.size());
    result = inflate(&z, Z_NO_FLUSH);
  }
  inflateEnd(&z);
  return result == Z_STREAM_END && z.avail_in == 0;
}

std::string describe(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return "(missing)";
  if (S_ISDIR(st.st_mode)) return "/";
  if (S_ISLNK(st.st_mode)) return std::string("->").append(stdfs::read_symlink(path).string());
  if (S_ISREG(st.st_mode)) return readFile(path);
  return "(other)";
}

TEST_P(ArchiveCaseTest, ExtractsExactlyWhatIsSafe) {
  const ArchiveCase& c = std::get<0>(GetParam());
  inflation = std::get<1>(GetParam());
  buildArchive(c.script);
  if (!c.setup.empty()) {
    ASSERT_EQ(shell("cd '" + root + "' && " + c.setup).status, 0);
  }

  Outcome outcome = extract();

  EXPECT_EQ(outcome.ok, c.ok);
  bool wholeBuffer = inflation == UnTar::Inflation::WholeBuffer && isOneIntactGzipMember(archive);
  EXPECT_EQ(outcome.used, wholeBuffer ? UnTar::Inflation::WholeBuffer : UnTar::Inflation::Streaming);
  std::vector<std::string> expected;
  for (const std::string& m : c.messages) expected.push_back(expand(m));
  EXPECT_EQ(outcome.messages, expected);
  for (const auto& [relative, what] : c.present) EXPECT_EQ(describe(dest + "/" + relative), expand(what)) << relative;
  for (const std::string& relative : c.absent) EXPECT_FALSE(fs::existsNoFollow(dest + "/" + relative)) << relative;
  for (const auto& [relative, mode] : c.modes) {
    struct stat st {};
    ::lstat((dest + "/" + relative).c_str(), &st);
    EXPECT_EQ(st.st_mode & 07777, mode) << relative;
  }
  EXPECT_FALSE(fs::existsNoFollow(platform::homeDirectory() + "/bwk-untar-test-never"));
  EXPECT_FALSE(fs::existsNoFollow(root + "/dest-evil"));
}

INSTANTIATE_TEST_SUITE_P(Archives, ArchiveCaseTest,
                         ::testing::Combine(::testing::ValuesIn(archiveCases()), ::testing::ValuesIn(kInflations)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + "_" + inflationName(std::get<1>(test.param));
                         });

TEST_F(UntarFixture, MissingArchiveIsReportedBeforeAnyProgress) {
  archive = root + "/missing.tar.gz";
  int calls = 0;
  ProgressCallback progress = [&](double, const char*) { ++calls; };
  Outcome outcome = extract(6000000, &progress);
  EXPECT_FALSE(outcome.ok);
  EXPECT_EQ(outcome.messages,
            std::vector<std::string>{"error reading JRE " + archive + ": No such file or directory"});
  EXPECT_EQ(calls, 0);
}

// The debug log names every entry that reaches the safety check, under the name that
// applies to it: a long name goes to the entry right after it, whatever its type.
TEST_F(UntarFixture, DebugLogNamesEachEntry) {
  buildArchive("longname(b'for-pax'); raw('x', b'x', data=b'9 a=b\\n'); file('own', '1'); file('../up', 'u')");
  ::setenv("BRACKWOOD_LOG", "yes", 1);
  log::resetDebugDecision();
  Outcome outcome = extract();
  ::unsetenv("BRACKWOOD_LOG");
  EXPECT_TRUE(outcome.ok);
  EXPECT_EQ(outcome.messages, (std::vector<std::string>{"extracting for-pax", "extracting own", "extracting ../up",
                                                        "WARNING: skipping unsafe archive path ../up"}));
}

// GNU tar as an independent writer: a tree with long names, links, a hard link, a FIFO and
// a read-only file comes back as it was, minus what the extractor never makes.
TEST_F(UntarFixture, RoundTripOfAGnuTarArchive) {
  std::string src = scripts.path() + "/src";
  std::string longDir = std::string(60, 'a') + "/" + std::string(60, 'b');
  std::string longFile = longDir + "/" + std::string(90, 'c');
  ASSERT_EQ(shell("set -e; mkdir -p '" + src + "/bin' '" + src + "/lib' '" + src + "/" + longDir + "'; cd '" + src +
                  "'; printf run > bin/run; chmod 755 bin/run; ln bin/run bin/run2; ln -s ../bin lib/current;"
                  " printf long > '" + longFile + "'; printf ro > lib/ro; chmod 444 lib/ro; mkfifo lib/pipe;"
                  " head -c 300000 /dev/urandom > lib/blob; tar --format=gnu -czf '" + archive + "' .")
                .status,
            0);

  Outcome outcome = extract();

  EXPECT_TRUE(outcome.ok);
  EXPECT_EQ(outcome.messages, std::vector<std::string>{"WARNING: skipping unsafe archive path ./"});
  EXPECT_EQ(describe(dest + "/" + longFile), "long");
  EXPECT_EQ(describe(dest + "/lib/current"), "->../bin");
  EXPECT_EQ(describe(dest + "/lib/blob"), readFile(src + "/lib/blob"));
  EXPECT_FALSE(fs::existsNoFollow(dest + "/lib/pipe"));
  // GNU tar stores whichever name it meets first as the file and the other as a hard link.
  EXPECT_NE(fs::existsNoFollow(dest + "/bin/run"), fs::existsNoFollow(dest + "/bin/run2"));
  std::string run = fs::existsNoFollow(dest + "/bin/run") ? dest + "/bin/run" : dest + "/bin/run2";
  struct stat st {};
  ::stat(run.c_str(), &st);
  EXPECT_EQ(st.st_mode & 07777, 0755u);
  ::stat((dest + "/lib/ro").c_str(), &st);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

struct OctalCase {
  std::string bytes;
  int length;
  uint64_t value;
};

TEST(ParseOctal, FollowsTheHeaderFieldRules) {
  const std::vector<OctalCase> cases = {
      {"0000755", 8, 0755},
      {" 755 ", 5, 0755},
      {"   0000644 ", 11, 0644},
      {"18", 2, 16},                      // '8' counts as 8
      {"9", 1, 9},                        // and '9' as 9
      {"12 34", 5, 012},                  // a space after a digit ends the number
      {std::string("7\0" "7", 3), 3, 7},  // so does a NUL
      {"1000", 4, 01000},                 // zeros after the first digit are digits
      {"0 0 0", 5, 0},                    // spaces and zeros before any digit are passed over
      {"777", 2, 077},                    // the field ends after `length` bytes
      {"777", 0, 0},
      {"777", -3, 0},
      {"", 1, 0},
      {"00000001750", 12, 01750},
      {":", 1, 10},                       // any byte counts as its code minus '0'
      {"\xff", 1, static_cast<uint64_t>(-49)},  // bytes above 0x7f are negative
  };
  for (const OctalCase& c : cases) {
    std::string field = c.bytes;
    field.resize(16, '\0');
    EXPECT_EQ(parseOctal(field.data(), c.length), c.value) << '"' << c.bytes << "\" " << c.length;
  }
}

}  // namespace
}  // namespace bwk::test
