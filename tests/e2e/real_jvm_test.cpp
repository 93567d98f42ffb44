// The launcher starting Debian's OpenJDK 17 (and Temurin 25 where a machine has it) for real.
#include <unistd.h>

#include "base/fs.h"
#include "e2e_support.h"

namespace bwk::test {
namespace {

const std::string kJdk17 = "/usr/lib/jvm/java-17-openjdk-amd64";
const std::string kJdk25 = "/usr/lib/jvm/temurin-25-jdk-amd64";

class RealJvm : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(kJdk17 + "/lib/libjli.so")) GTEST_SKIP() << "no OpenJDK 17 here";
    ASSERT_TRUE(fs::exists(helloJar())) << "the demo program is built with the project";
  }
  std::string helloBundle(const std::string& runtime, PlistDict extraJavaVM = {}) {
    PlistDict javaVM{{"MainClass", "Hello"},
                     {"ClassPath", "${launcher:sys.appRootDir}/lib/*"},
                     {"SearchSequence", stringArray({"R" + runtime})}};
    for (auto& [k, v] : extraJavaVM) javaVM[k] = v;
    std::string app = makeBundle(tmp.path(), "Hello", PlistValue(PlistDict{{"CFBundleName", "Hello"}, {"JavaVM", PlistValue(javaVM)}}));
    shell("mkdir -p " + app + "/Contents/Resources/app/lib && cp " + helloJar() + " " + app + "/Contents/Resources/app/lib/");
    return app;
  }
  RunResult start(const std::string& app, std::vector<std::string> args, std::vector<std::string> env = {}) {
    std::vector<std::string> argv{app + "/Contents/MacOS/Hello"};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv, launcherEnvironment(env));
  }
  TempDir tmp;
};

TEST_F(RealJvm, ExitStatusIsTheProcessStatus) {
  std::string app = helloBundle(kJdk17);
  for (int status : {0, 3, 255}) {
    RunResult r = start(app, {"--exit=" + std::to_string(status)});
    EXPECT_EQ(r.status, status) << r.err;
    EXPECT_TRUE(text::contains(r.out, "Hello from Java 17")) << r.out << r.err;
  }
}

TEST_F(RealJvm, ArgumentsArriveUnchanged) {
  std::string app = helloBundle(kJdk17);
  writeFile(tmp / "more.args", "from-file\n\"quoted in file\"\n");
  RunResult r = start(app, {"a b  c", "it's \"quoted\"", "Grüße 日本", "", "@" + tmp / "more.args"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(text::contains(r.out, "arg[0] <a b  c>\n")) << r.out;
  EXPECT_TRUE(text::contains(r.out, "arg[1] <it's \"quoted\">\n"));
  EXPECT_TRUE(text::contains(r.out, "arg[2] <Grüße 日本>\n"));
  EXPECT_TRUE(text::contains(r.out, "arg[3] <>\n"));
  // The runtime's own argument-file rules: one argument a line, quotes removed.
  EXPECT_TRUE(text::contains(r.out, "arg[4] <from-file>\n"));
  EXPECT_TRUE(text::contains(r.out, "arg[5] <quoted in file>\n"));
  EXPECT_TRUE(text::contains(r.out, "property bwk.jreBundle=" + kJdk17 + "\n"));
  EXPECT_TRUE(text::contains(r.out, "property fenmo.moduleName=" + app + "\n"));
}

TEST_F(RealJvm, RuntimePathWithABlank) {
  shell("mkdir -p '" + tmp / "with blank" + "' && ln -s " + kJdk17 + " '" + tmp / "with blank/jdk 17" + "'");
  std::string runtime = tmp / "with blank/jdk 17";
  std::string app = helloBundle(runtime);
  RunResult r = start(app, {"x"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(text::contains(r.out, "property bwk.jreBundle=" + runtime + "\n")) << r.out;
}

TEST_F(RealJvm, AotCacheTrainsThenIsUsed) {
  if (!fs::exists(kJdk25 + "/lib/libjli.so")) GTEST_SKIP() << "no runtime of version 25 here";
  std::string app = helloBundle(kJdk25, {{"AotCacheEnabled", true}, {"AotCacheBuildId", "demo1"}, {"AotCachePath", tmp / "aot/hello"}});
  RunResult first = start(app, {});
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_TRUE(text::contains(first.out, "option -XX:AOTCacheOutput=" + tmp / "aot/hello-demo1-")) << first.out;
  auto files = fs::listDirectory(tmp / "aot");
  ASSERT_TRUE(files && files->size() == 1) << "the training run writes the cache";
  RunResult second = start(app, {});
  ASSERT_EQ(second.status, 0) << second.err;
  EXPECT_TRUE(text::contains(second.out, "option -XX:AOTCache=" + tmp / "aot/" + (*files)[0])) << second.out;
}

}  // namespace
}  // namespace bwk::test
