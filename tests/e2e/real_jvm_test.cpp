// The launcher starting a runtime of version 25 for real, where a machine has one.
#include "e2e_support.h"

namespace bwk::test {
namespace {

// The training start writes the cache where the next start looks for it.
TEST(RealJvm, AotCacheIsTrained) {
  const std::string jdk25 = "/usr/lib/jvm/temurin-25-jdk-amd64";
  if (!fs::exists(jdk25 + "/lib/libjli.so")) GTEST_SKIP() << "no runtime of version 25 here";
  TempDir tmp;
  std::string app =
      helloApp(tmp.path(), "Hello", jdk25,
               {{"AotCacheEnabled", true}, {"AotCacheBuildId", "demo1"}, {"AotCachePath", tmp / "aot/hello"}});
  RunResult first = startApp(app);
  ASSERT_EQ(first.status, 0) << first.err;
  auto files = fs::listDirectory(tmp / "aot");
  ASSERT_TRUE(files && files->size() == 1) << "the training run writes the cache";
  EXPECT_TRUE(text::contains(startApp(app).out, "option -XX:AOTCache=" + tmp / "aot/" + (*files)[0]));
}

}  // namespace
}  // namespace bwk::test
