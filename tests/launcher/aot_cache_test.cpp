#include <zlib.h>

#include "launch_fixture.h"
#include "launcher/aot_cache.h"

namespace bwk::test {
namespace {

class AotCache : public LaunchFixture {
 protected:
  void SetUp() override {
    env.set("BRACKWOOD_NO_AOT_CACHE", std::nullopt);
    env.set("HOME", tmp / "home");
    makeFakeRuntime(tmp / "jdk-25.jdk", "25.0.1", "bundle");
  }
  std::vector<std::string> optionsFor(PlistDict javaVM, const std::string& version = "25.0.1", int major = 25,
                                      const std::string& runtimePath = "jdk-25.jdk") {
    const LaunchContext& context = bundleLaunch({{"JavaVM", PlistValue(std::move(javaVM))}});
    appRootDir = *context.paths.appRootDir;
    ChosenRuntime runtime{
        tmp / runtimePath, RuntimeBundle::open(tmp / runtimePath), version, major, version, false, false};
    return addAotCacheOption(context, runtime);
  }
  static unsigned long crc(const std::string& s) {
    return crc32(crc32(0, Z_NULL, 0), reinterpret_cast<const Bytef*>(s.data()), static_cast<uInt>(s.size()));
  }
  ScopedEnvironment env;
  std::string appRootDir;
};

const PlistDict enabled{{"AotCacheEnabled", true}, {"AotCacheBuildId", "b1"}};

TEST_F(AotCache, OnlyWhenEveryConditionHoldsTrainsThenUsesTheDefaultLocation) {
  EXPECT_TRUE(optionsFor({{"AotCacheBuildId", "b1"}}).empty() && optionsFor({{"AotCacheEnabled", true}}).empty());
  EXPECT_TRUE(optionsFor(enabled, "24.0.2", 24).empty());
  std::vector<std::string> training = optionsFor(enabled);
  std::string dir = tmp / ("home/Library/Caches/brackwood/aot/" + std::to_string(crc(appRootDir)));
  std::string file = dir + "/Tool-b1-25.0.1-" + std::to_string(crc(tmp / "jdk-25.jdk/Contents/Home")) + ".aot";
  EXPECT_EQ(training, (std::vector<std::string>{"-Xlog:aot=error", "-Dbrackwood.aotTraining=true",
                                                "-XX:AOTCacheOutput=" + file}));
  EXPECT_EQ(readFile(dir + "/install-dir"), appRootDir);
  writeFile(file, "cache");
  EXPECT_EQ(optionsFor(enabled), (std::vector<std::string>{"-XX:AOTCache=" + file}));
  // A runtime moved elsewhere trains a file of its own.
  shell("mv " + tmp / "jdk-25.jdk " + tmp / "moved.jdk");
  std::vector<std::string> moved = optionsFor(enabled, "25.0.1", 25, "moved.jdk");
  ASSERT_EQ(moved.size(), 3u);
  EXPECT_NE(moved.back(), "-XX:AOTCacheOutput=" + file);
  env.set("BRACKWOOD_NO_AOT_CACHE", "");
  EXPECT_TRUE(optionsFor(enabled, "25.0.1", 25, "moved.jdk").empty());
}

}  // namespace
}  // namespace bwk::test
