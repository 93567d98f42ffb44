// The key tables the tools write and check by stay true to the sources: every key the
// launcher looks up in a configuration, and every message it shows, is listed.

#include <regex>
#include <set>

#include "launcher/configuration_keys.h"
#include "launcher/message_keys.h"
#include "test_support.h"

namespace bwk::test {
namespace {

TEST(KeyTables, EveryKeyTheSourcesReadIsListed) {
  const std::regex lookup(R"re(\.(?:string|boolean|integer|array|stringArray|dictionary|find)\("([^"$]+)"\))re");
  const std::regex message(R"re((?:displayError\([^;]*?|ReportedFailure\(|localizedString\()"([A-Za-z.]+)")re");
  // These read other dictionaries: a runtime's own information, the installation records.
  const std::set<std::string> otherDictionaries = {"runtime_checks.cpp", "public_runtimes.cpp",
                                                   "previous_installations.cpp"};
  int configurationLookups = 0, messageLookups = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(std::string(BWK_SOURCE_DIR) + "/src")) {
    std::string name = entry.path().filename().string();
    if (!entry.is_regular_file() || otherDictionaries.count(name) ||
        (!name.ends_with(".cpp") && !name.ends_with(".mm")))
      continue;
    std::string source = readFile(entry.path().string());
    for (std::sregex_iterator m(source.begin(), source.end(), lookup), end; m != end; ++m, ++configurationLookups) {
      std::string key = (*m)[1];
      EXPECT_TRUE(findConfigurationKey(KeyScope::TopLevel, key) || findConfigurationKey(KeyScope::JavaVM, key))
          << name << " reads " << key;
    }
    for (std::sregex_iterator m(source.begin(), source.end(), message), end; m != end; ++m, ++messageLookups)
      EXPECT_TRUE(findMessageKey((*m)[1].str())) << name << " shows " << (*m)[1];
  }
  EXPECT_TRUE(configurationLookups > 30 && messageLookups > 5) << configurationLookups << " " << messageLookups;
}

}  // namespace
}  // namespace bwk::test
