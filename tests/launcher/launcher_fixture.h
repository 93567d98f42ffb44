#pragma once
// A clean process-wide launch state around each test, with a bundle laid out in a
// temporary directory: <tmp>/Apps/Tool.app.
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/log.h"
#include "launcher/launcher.h"
#include "platform/platform.h"
#include "test_support.h"

namespace bwk::test {

class LauncherFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    resetLaunchState();
    platform::setProcessArguments(std::vector<std::string>{"/prog"});
    bundle = tmp / "Apps/Tool.app";
    writeFile(bundle + "/Contents/Info.plist", "");
  }
  void TearDown() override {
    resetLaunchState();
    platform::setProcessArguments(std::vector<std::string>{});
  }

  // A bundle launch of <tmp>/Apps/Tool.app with this configuration.
  std::unique_ptr<Launcher> bundleLaunch(PlistDict info) {
    s_infoDictionary = PlistValue(std::move(info));
    s_mainBundlePath = bundle;
    s_launcherDirInApp = tmp / "Apps";
    s_launcherDirAndName = tmp / "Apps/Tool";
    return std::make_unique<Launcher>();
  }

  static PlistValue strings(std::initializer_list<const char*> list) {
    PlistArray a;
    for (const char* s : list) a.emplace_back(s);
    return PlistValue(std::move(a));
  }

  TempDir tmp;
  std::string bundle;
};

}  // namespace bwk::test
