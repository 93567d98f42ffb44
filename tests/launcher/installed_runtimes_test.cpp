// Installed runtimes: runtimes the tests make, mounted over the system's runtime directory in a private namespace.
#include <grp.h>

#include <cstdio>

#include "base/path.h"
#include "launch_fixture.h"
#include "platform/platform.h"

namespace bwk::test {
namespace {

// Lines of a child's output that begin with "chosen: ", without that prefix.
std::vector<std::string> chosen(const std::string& output) {
  std::vector<std::string> out;
  for (const std::string& line : text::split(output, "\n"))
    if (text::startsWith(line, "chosen: ")) out.push_back(line.substr(8));
  return out;
}

class InstalledRuntimes : public LaunchFixture {
 protected:
  // Runs `body` with `runtimes` mounted over the installed-runtimes directory.
  RunResult withInstalledRuntimes(const std::string& runtimes, const std::function<int()>& body) {
    return inPrivateMount(runtimes, platform::installedRuntimesDirectory(), body);
  }
};

// Names decide the order (newest name first), then the first runtime within the range wins;
// taking the chosen one away each time reveals the whole order.
TEST_F(InstalledRuntimes, FirstInOrderWithinTheRangeOfThoseReadable) {
  std::string jvm = tmp / "jvm";
  const std::pair<const char*, const char*> runtimes[] = {
      {"jdk1.8.0_291.jdk", "1.8.0_291"}, {"jdk-17.0.2.jdk", "17.0.2"}, {"openjdk-11.jdk", "11.0.1"},
      {"temurin-21.jdk", "21.0.1"},      {"zulu-17.jdk", "17.0.9"},    {"jdk-11.0.12.jdk", "11.0.12"},
      {"openjdk-17.0.1.jdk", "17.0.1"},  {"jdk-22-ea.jdk", "22-ea"}};
  for (const auto& [name, version] : runtimes)
    makeFakeRuntime(jvm + "/" + name, version, name[0] == 'o' ? "home" : "bundle");
  // Entries that are never chosen.
  writeFile(jvm + "/.DS_Store", "");
  writeFile(jvm + "/99-malformed/Contents/Info.plist", "<plist><dict><key>JavaVM</key>");
  writeFile(jvm + "/98-no-version/release", "IMPLEMENTOR=\"x\"\n");
  ASSERT_EQ(symlink((tmp / "nowhere").c_str(), (jvm + "/97-broken").c_str()), 0);
  const std::tuple<const char*, const char*, bool, const char*> cases[] = {
      // min, max, beta, chosen
      {nullptr, nullptr, false, "jdk-17.0.2.jdk 17.0.2"},  // not temurin-21: names decide the order
      {nullptr, nullptr, true, "jdk-22-ea.jdk 22-ea"},
      {"18", nullptr, false, "temurin-21.jdk 21.0.1"},
      {nullptr, "17.0.1", false, "openjdk-17.0.1.jdk 17.0.1"},
      {nullptr, "1.8", false, "jdk1.8.0_291.jdk 1.8.0"},
      {"22", nullptr, false, "none"},
  };
  std::vector<std::string> expected;
  for (const auto& c : cases) expected.push_back(std::get<3>(c));
  for (const char* name : {"jdk-17.0.2.jdk", "openjdk-17.0.1.jdk", "jdk-11.0.12.jdk", "openjdk-11.jdk",
                           "jdk1.8.0_291.jdk", "zulu-17.jdk", "temurin-21.jdk"})
    expected.push_back(name);
  RunResult outcome = withInstalledRuntimes(jvm, [&] {
    for (const auto& [min, max, beta, _] : cases) {
      PlistDict info{{"bwk.allowBeta", beta}};
      if (min) info["bwk.minVersion"] = min;
      if (max) info["bwk.maxVersion"] = max;
      std::optional<ChosenRuntime> found = findJavaBundle(bundleLaunch(std::move(info)), std::nullopt);
      std::printf("chosen: %s\n",
                  found ? (path::lastComponent(found->path) + " " + found->shortVersion).c_str() : "none");
    }
    const LaunchContext& context = bundleLaunch({});
    OptionalString found;
    for (int round = 0; round < 20 && (found = chosenPath(context)); ++round, fs::removeItem(*found))
      std::printf("chosen: %s\n", path::lastComponent(*found).c_str());
    return 0;
  });
  ASSERT_EQ(outcome.status, 0) << outcome.out;
  EXPECT_EQ(chosen(outcome.out), expected);
  // Unreadable runtimes are skipped, checked as an ordinary user: the superuser reads everything.
  jvm = tmp / "unreadable";
  makeFakeRuntime(jvm + "/jdk-99", "99", "home");
  makeFakeRuntime(jvm + "/jdk-98", "98", "bundle");
  makeFakeRuntime(jvm + "/jdk-1.8", "1.8.0_291", "home");
  ASSERT_EQ(chmod((jvm + "/jdk-99").c_str(), 0), 0);
  ASSERT_EQ(chmod((jvm + "/jdk-98/Contents/Info.plist").c_str(), 0), 0);
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755), 0);
  const LaunchContext& context = bundleLaunch({});
  outcome = withInstalledRuntimes(jvm, [&] {
    const uid_t nobody = 65534;
    if (setgroups(0, nullptr) != 0 || setresgid(nobody, nobody, nobody) != 0 ||
        setresuid(nobody, nobody, nobody) != 0) {
      std::perror("dropping privileges");
      return 92;
    }
    const std::string installed = platform::installedRuntimesDirectory();
    std::printf("chosen: %s\n", RuntimeBundle::open(installed + "/jdk-99") ? "opened" : "not opened");
    std::printf("chosen: %zu keys\n",
                RuntimeBundle::open(installed + "/jdk-98")->infoDictionary().asDictionary()->size());
    OptionalString found = chosenPath(context);
    std::printf("chosen: %s\n", found ? path::lastComponent(*found).c_str() : "none");
    return 0;
  });
  ASSERT_EQ(outcome.status, 0) << outcome.out;
  EXPECT_EQ(chosen(outcome.out), (std::vector<std::string>{"not opened", "0 keys", "jdk-1.8"}));
}

}  // namespace
}  // namespace bwk::test
