// What jdeps prints, read: the module of each dependence (internal APIs too, missing classes
// and other jars not), the release of a version, the modules runtime options name.
#include "test_support.h"

#include "module_deps.h"
#include "runtime_link.h"

namespace bwk::bundle {
namespace {

TEST(ModuleDeps, ClassUsesFeatureReleaseAndModulesOptionsName) {
  const std::string output =
      "app.jar -> java.base\n"
      "app.jar -> java.desktop\n"
      "   com.example.Main          -> java.lang.Object            java.base\n"
      "   com.example.Main          -> javax.swing.JFrame          java.desktop\n"
      "   com.example.View          -> javax.swing.JPanel          java.desktop\n"
      "   com.example.Fast          -> sun.misc.Unsafe             JDK internal API (jdk.unsupported)\n"
      "   com.example.Main          -> org.gone.Thing              not found\n"
      "   com.example.Main          -> com.example.lib.Util        lib.jar\n"
      "\tcom.example.Sql\t-> java.sql.Connection\tjava.sql\n"
      "   com.example.Main          -> my_lib.Util                 my_lib\n";
  const std::map<std::string, std::string> expected = {
      {"java.base", "com.example.Main uses java.lang.Object"},
      {"java.desktop", "com.example.Main uses javax.swing.JFrame"},
      {"jdk.unsupported", "com.example.Fast uses sun.misc.Unsafe"},
      {"java.sql", "com.example.Sql uses java.sql.Connection"},
      {"my_lib", "com.example.Main uses my_lib.Util"},
  };
  EXPECT_EQ(parseClassUses(output), expected);
  const std::vector<std::pair<std::string, std::optional<int>>> cases = {
      {"17.0.13", 17},      {"25", 25},       {"21-ea", 21},           {"1.8.0_402", 8}, {"", std::nullopt},
      {"ea", std::nullopt}, {"1000.1", 1000}, {"10000", std::nullopt}, {"1.", 1}};
  for (const auto& [version, feature] : cases) EXPECT_EQ(featureRelease(version), feature) << version;
  NamedModules named = modulesInOptions(
      {"--add-opens", "java.desktop/sun.awt=ALL-UNNAMED", "--add-exports=java.base/sun.nio.ch=ALL-UNNAMED",
       "--add-modules=java.sql,jdk.jfr", "-p", "${launcher:sys.appRootDir}/mods}:extra", "--module-path=other",
       "-Dp=--add-modules", "--add-modules"});
  EXPECT_EQ(named.modules, (std::set<std::string>{"java.desktop", "java.base", "java.sql", "jdk.jfr"}));
  EXPECT_EQ(named.modulePath, (std::vector<std::string>{"${launcher:sys.appRootDir}/mods}", "extra", "other"}));
  // The module list is jdeps' last line; entries that name no module are left out, and a list of none fails.
  test::TempDir tmp;
  using Modules = std::optional<std::set<std::string>>;
  for (const auto& [printed, modules] :
       {std::pair<std::string, Modules>{"Warning: x\n java.base, ,9x,java.sql \n",
                                        std::set<std::string>{"java.base", "java.sql"}},
        {"\n", std::nullopt},
        {",\n", std::nullopt}}) {
    test::writeFile(tmp / "jdeps", "#!/bin/sh\nprintf '" + printed + "'\n");
    test::shell("chmod +x " + tmp / "jdeps");
    std::string error;
    EXPECT_EQ(printedModuleDeps(tmp / "jdeps", 17, {"app.jar"}, &error), modules) << printed;
    EXPECT_EQ(error.empty(), modules.has_value()) << error;
  }
  // What a failing jdeps says is quoted, up to 600 characters.
  for (size_t length : {600, 601}) {
    test::writeFile(tmp / "jdeps", "#!/bin/sh\nprintf '%0" + std::to_string(length) + "d' 0 >&2\nexit 3\n");
    test::shell("chmod +x " + tmp / "jdeps");
    std::string error;
    EXPECT_FALSE(printedModuleDeps(tmp / "jdeps", 17, {"app.jar"}, &error));
    EXPECT_EQ(error, "jdeps ended with status 3: " + std::string(600, '0') + (length > 600 ? "..." : ""));
  }
}

}  // namespace
}  // namespace bwk::bundle
