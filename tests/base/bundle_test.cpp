#include "base/bundle.h"

#include "test_support.h"

namespace bwk::test {
namespace {

// Clears the locale variables for each test; they are put back as they were afterwards.
class BundleTest : public testing::Test {
 protected:
  void SetUp() override { setLocale(nullptr, nullptr, nullptr, nullptr); }
  void setLocale(const char* language, const char* all, const char* messages, const char* lang) {
    const char* values[] = {language, all, messages, lang};
    for (size_t i = 0; i < 4; ++i)
      env.set(kLocale[i], values[i] ? std::optional<std::string>(values[i]) : std::nullopt);
  }
  static constexpr const char* kLocale[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};
  ScopedEnvironment env;
};

// Info.plist reads back, a missing or unusable one as an empty dictionary; resources by name, localized too.
TEST_F(BundleTest, InfoDictionaryAndResources) {
  TempDir dir;
  const PlistValue info = PlistDict{{"CFBundleName", "Tool"}, {"JavaVM", PlistDict{{"MainClass", "a.Main"}}}};
  writePlist(dir / "Xml.app/Contents/Info.plist", info);
  EXPECT_EQ(Bundle(dir / "Xml.app").infoDictionary(), info);
  writeFile(dir / "Broken.app/Contents/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>a</key>");
  writeFile(dir / "Array.app/Contents/Info.plist", "(a, b)");
  writeFile(dir / "Folder.app/Contents/Info.plist/x", "");
  for (const char* name : {"Missing.app", "Broken.app", "Array.app", "Folder.app"})
    EXPECT_EQ(Bundle(dir / name).infoDictionary(), PlistValue(PlistDict{})) << name;
  Bundle bundle(dir / "Tool.app");
  const std::string resources = dir / "Tool.app/Contents/Resources";
  EXPECT_EQ(bundle.resourcePath(), resources);
  writeFile(resources + "/app/jre.tar.gz", "x");
  writeFile(resources + "/README", "x");
  writeFile(resources + "/de.lproj/Help.html", "x");
  setLocale(nullptr, nullptr, nullptr, "de_DE.UTF-8");
  EXPECT_EQ(bundle.pathForResource("app/jre.tar", "gz"), resources + "/app/jre.tar.gz");
  EXPECT_EQ(bundle.pathForResource("app/jre.tar", ".gz"), resources + "/app/jre.tar.gz");
  EXPECT_EQ(bundle.pathForResource("README", ""), resources + "/README");
  EXPECT_EQ(bundle.pathForResource("Help", "html"), resources + "/de.lproj/Help.html");
  EXPECT_TRUE(!bundle.pathForResource("app/jre", "zip") && !bundle.pathForResource("README", "txt"));
}

TEST_F(BundleTest, LocalizedStringFollowsTheLanguageOrder) {
  TempDir dir;
  const std::string resources = dir / "Tool.app/Contents/Resources/";
  writeFile(resources + "de_DE.lproj/Localizable.strings", "\"Hello\" = \"Hallo (DE)\"; \"Blank\" = \"\";");
  writeFile(resources + "de.lproj/Localizable.strings", "\"Hello\" = \"Hallo\";");
  writeFile(resources + "fr.lproj/Localizable.strings", "/* French */ Hello = Bonjour;");
  writeFile(resources + "en.lproj/Localizable.strings", "\"Hello\" = \"Hello (en)\"; \"OnlyEnglish\" = \"only en\";");
  writeFile(resources + "xx.lproj/Localizable.strings", "\"Hello\" = ");    // does not parse: skipped
  writeFile(resources + "pt.lproj/Other.strings", "\"Hello\" = \"Olá\";");  // no table: skipped

  // LANGUAGE, LC_ALL, LC_MESSAGES, LANG, CFBundleDevelopmentRegion, the text
  using S = const char*;
  const std::tuple<S, S, S, S, S, S> cases[] = {
      {nullptr, nullptr, nullptr, nullptr, nullptr, "Hello (en)"},
      {nullptr, nullptr, nullptr, "de_DE.UTF-8", nullptr, "Hallo (DE)"},
      {"xx:fr", nullptr, nullptr, "de_DE.UTF-8", nullptr, "Bonjour"},
      {"pt:de", nullptr, nullptr, nullptr, nullptr, "Hallo"},
      {nullptr, "fr_FR.UTF-8", "de", "de", nullptr, "Bonjour"},
      {nullptr, nullptr, nullptr, "C.UTF-8", "fr", "Bonjour"},
      {nullptr, nullptr, nullptr, "ja_JP.UTF-8", "sv", "Hello (en)"},
  };
  for (const auto& c : cases) {
    const auto& [language, all, messages, lang, region, expected] = c;
    setLocale(language, all, messages, lang);
    PlistDict info;
    if (region) info["CFBundleDevelopmentRegion"] = region;
    writePlist(dir / "Tool.app/Contents/Info.plist", info);
    EXPECT_EQ(Bundle(dir / "Tool.app").localizedString("Hello"), expected) << "row " << &c - cases;
  }
  // A key missing from the table gives the value asked for, else the key; the first table found
  // is the table: keys are not looked up in the next language.
  setLocale(nullptr, nullptr, nullptr, "de_DE.UTF-8");
  Bundle bundle(dir / "Tool.app");
  EXPECT_EQ(bundle.localizedString("Missing"), "Missing");
  EXPECT_EQ(bundle.localizedString("Missing", std::string("default")), "default");
  EXPECT_EQ(bundle.localizedString("Missing", std::string()), "Missing");
  EXPECT_EQ(bundle.localizedString("Blank", std::string("default")), "");
  EXPECT_EQ(bundle.localizedString("OnlyEnglish"), "OnlyEnglish");
}

}  // namespace
}  // namespace bwk::test
