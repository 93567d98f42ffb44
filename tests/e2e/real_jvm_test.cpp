// The launcher starting Debian's OpenJDK 17 (and Temurin 25 where a machine has it) for real.
#include "e2e_support.h"

namespace bwk::test {
namespace {

const std::string kJdk25 = "/usr/lib/jvm/temurin-25-jdk-amd64";

class RealJvm : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(kJdk17 + "/lib/libjli.so")) GTEST_SKIP() << "no OpenJDK 17 here";
    ASSERT_TRUE(fs::exists(helloJar())) << "the demo program is built with the project";
  }
  std::string helloBundle(const std::string& runtime, PlistDict javaVM = {}) {
    return helloApp(tmp.path(), "Hello", runtime, javaVM);
  }
  TempDir tmp;
};

// Through a runtime path with a blank, too.
TEST_F(RealJvm, ArgumentsArriveUnchanged) {
  shell("mkdir -p '" + tmp / "with blank" + "' && ln -s " + kJdk17 + " '" + tmp / "with blank/jdk 17" + "'");
  std::string app = helloBundle(tmp / "with blank/jdk 17");
  writeFile(tmp / "more.args", "from-file\n\"quoted in file\"\n");
  RunResult r = startApp(app, {"a b  c", "it's \"quoted\"", "Grüße 日本", "", "@" + tmp / "more.args"});
  ASSERT_EQ(r.status, 0) << r.err;
  // The runtime's own argument-file rules: one argument a line, quotes removed.
  for (const std::string& line :
       std::vector<std::string>{"arg[0] <a b  c>", "arg[1] <it's \"quoted\">", "arg[2] <Grüße 日本>", "arg[3] <>",
                                "arg[4] <from-file>", "arg[5] <quoted in file>", "property fenmo.moduleName=" + app,
                                "property bwk.jreBundle=" + tmp / "with blank/jdk 17"})
    EXPECT_TRUE(text::contains(r.out, line + "\n")) << line << "\n" << r.out;
}

// The training start writes the cache where the next start looks for it.
TEST_F(RealJvm, AotCacheIsTrained) {
  if (!fs::exists(kJdk25 + "/lib/libjli.so")) GTEST_SKIP() << "no runtime of version 25 here";
  std::string app = helloBundle(
      kJdk25, {{"AotCacheEnabled", true}, {"AotCacheBuildId", "demo1"}, {"AotCachePath", tmp / "aot/hello"}});
  RunResult first = startApp(app);
  ASSERT_EQ(first.status, 0) << first.err;
  auto files = fs::listDirectory(tmp / "aot");
  ASSERT_TRUE(files && files->size() == 1) << "the training run writes the cache";
  EXPECT_TRUE(text::contains(startApp(app).out, "option -XX:AOTCache=" + tmp / "aot/" + (*files)[0]));
}

}  // namespace
}  // namespace bwk::test
