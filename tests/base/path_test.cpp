#include "base/path.h"

#include "test_support.h"

#include "base/format.h"
#include "platform/platform.h"

namespace bwk {
namespace {

TEST(Path, StandardizeAppendComponentsParentAndExtension) {
  const std::string home = platform::homeDirectory();
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"/", "/"},
      {"/a//b///c", "/a/b/c"},
      {"/a/b/../c", "/a/c"},
      {"/a/b/../../..", "/"},
      {"/x/App.app/Contents/Resources/app/../../../..", "/x"},
      {"a/../b", "b"},
      {"../a/..", ".."},
      {"~", path::standardize(home)},
      {"~/x/../y", path::standardize(home + "/y")},
      {"~user/x", "~user/x"},
      {"/a/~/b", "/a/~/b"},
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(path::standardize(input), expected) << input;
  const std::vector<std::vector<std::string>> appended = {
      // base, component, result
      {"/a", "b", "/a/b"}, {"/a", "/b", "/a/b"}, {"/", "b", "/b"},          {"", "b", "b"},
      {"", "", ""},        {"a/", "", "a"},      {"/a", "../b", "/a/../b"},
  };
  for (const auto& c : appended) EXPECT_EQ(path::append(c[0], c[1]), c[2]) << c[0] << " + " << c[1];
  EXPECT_EQ(path::join({"/", "a", "b/", "c"}) + " " + path::join({"a", "", "b"}), "/a/b/c a/b");
  // path, last, parent, extension
  const std::tuple<std::string, std::string, std::string, std::string> parts[] = {
      {"/a/b.txt", "b.txt", "/a", "txt"},
      {"/a/b/", "b", "/a", ""},
      {"/a", "a", "/", ""},
      {"/", "/", "/", ""},
      {"", "", "", ""},
      {"b/", "b", "", ""},
      {"//a", "a", "/", ""},
      {"/x/jre.tar.gz", "jre.tar.gz", "/x", "gz"},
      {"/x/.hidden", ".hidden", "/x", ""},
  };
  for (const auto& [input, last, parent, extension] : parts)
    EXPECT_EQ(std::tuple(path::lastComponent(input), path::parent(input), path::extension(input)),
              std::tuple(last, parent, extension))
        << input;
  EXPECT_EQ(path::components("/a//b/"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(std::pair(path::isAbsolute("~/x"), path::isAbsolute("x/~")), std::pair(true, false));
  test::TempDir tmp;  // a file is written whole, or the writing fails
  EXPECT_TRUE(fs::writeFile(tmp / "f", "x") && fs::readFile(tmp / "f") == "x");
  EXPECT_FALSE(fs::writeFile(tmp / "none/f", "x") || fs::writeFile("/dev/full", "x"));
}

TEST(Format, Conversions) {
  const std::optional<std::string> absent;
  const std::optional<std::string> present = "here";
  const void* pointer = reinterpret_cast<const void*>(uintptr_t{0x1f});
  const std::pair<std::string, std::string> cases[] = {
      {format("%@", absent), "(null)"},
      {format("%@", present), "here"},
      {format("%@ and %@", std::string("a"), absent), "a and (null)"},
      {format("%@", static_cast<const PlistValue*>(nullptr)), "(null)"},
      {format("%s [Line %d] x", "int main(int, char **)", 39), "int main(int, char **) [Line 39] x"},
      {format("%p", static_cast<const void*>(nullptr)), "0x0"},
      {format("100%% %s", "sure"), "100% sure"},
      {format("%d and %@"), " and "},  // conversions without arguments write nothing
      {format("tail %"), "tail %"},
      {format("x%l"), "x%l"},
      {format("x%5"), "x%5"},
      {format("%d %x %.1f %g %@ %p %@ %ld %d", 2.9, pointer, 3, 0.25, 1.5, nullptr, pointer, 1LL << 32, 1LL << 32),
       "2 1f 3.0 0.25 1.5 0x0 0x1f 4294967296 0"},  // without an l, the low 32 bits
      {format("%@", PlistValue(PlistDict{{"k", 1}})), "{\n    k = 1;\n}"},
  };
  for (const auto& [got, expected] : cases) EXPECT_EQ(got, expected);
}

}  // namespace
}  // namespace bwk
