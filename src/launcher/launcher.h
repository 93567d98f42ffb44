#pragma once
// The object that carries one launch from the configuration to the started Java runtime.
// Its operations are spread over one source file per concern:
//   launcher_object.cpp      init, messages, error display
//   java_parameters.cpp      readJavaParameters
//   option_files.cpp         readOptionsFile, addPredefinedOptions
//   variables.cpp            replaceVariables, resolveArtifactPath
//   aot_cache.cpp            addAotCacheOption
//   command_line.cpp         addCommandLineParameters
//   version_compare.cpp      version strings and their comparison
//   runtime_checks.cpp       checkJavaVersion, checkBundleVersion, getJavaMinVersion
//   runtime_search.cpp       findJavaBundle, findOverrideJvm
//   previous_installations.cpp, public_runtimes.cpp   the search operations
//   launch.cpp               launcher, setInstallerJreBundle, load, launch
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist.h"
#include "launcher/launch_state.h"
#include "launcher/runtime_bundle.h"

namespace bwk {

using OptionalString = std::optional<std::string>;

class Launcher {
 public:
  // init: fresh fields, and on first use the process-wide paths.
  Launcher();
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  // A new launcher for every call.
  static std::unique_ptr<Launcher> launcher();

  // --- messages and errors -----------------------------------------------------------------
  static OptionalString getMessage(const std::string& key, const OptionalString& info1 = std::nullopt,
                                   const OptionalString& info2 = std::nullopt);
  static void displayError(const std::string& key, const OptionalString& info1 = std::nullopt,
                           const OptionalString& info2 = std::nullopt);

  // --- configuration builders --------------------------------------------------------------
  void readJavaParameters(std::vector<std::string>& options, OptionalString& mainClass,
                          std::vector<std::string>& args, bool* firstThread);
  OptionalString readOptionsFile(const OptionalString& path, std::vector<std::string>& options,
                                 OptionalString classPath);
  OptionalString addPredefinedOptions(const std::optional<std::vector<std::string>>& list,
                                      std::vector<std::string>& options, OptionalString classPath);
  OptionalString replaceVariables(const OptionalString& text) const;
  OptionalString resolveArtifactPath(const OptionalString& pathList) const;
  void addAotCacheOption(std::vector<std::string>& options, const PlistValue* javaVM);
  void addCommandLineParameters(std::vector<std::string>& options, std::vector<std::string>& args);

  // --- version strings ----------------------------------------------------------------------
  static int typeOfCharacter(std::string_view s);
  static std::vector<std::string> splitVersionString(std::string_view s);
  static int compareVersion(std::string_view a, std::string_view b);
  static bool compareVersion(const OptionalString& bound, const std::vector<std::string>& versionList, bool max);
  static bool isBetaVersion(const OptionalString& s);
  static std::string removeJrePrefix(std::string_view name);

  // --- runtime checks and search ------------------------------------------------------------
  // The short version (never freed: it may become launchJavaVersion), or null when refused.
  const char* checkJavaVersion(const OptionalString& min, const OptionalString& max, bool allowBeta, bool plugin);
  const char* checkBundleVersion(const OptionalString& min, const OptionalString& max, bool allowBeta,
                                 bool plugin, const OptionalString& bundleVersion,
                                 const OptionalString& evarVersion, const OptionalString& infoString);
  static OptionalString getJavaMinVersion();
  OptionalString findJavaBundle();
  OptionalString findOverrideJvm();
  void findJavaPreviousInstallation(const PlistValue& infoDictionary, const OptionalString& min,
                                    const OptionalString& max, bool allowBeta);
  void findDirectoryJavaBundle(const OptionalString& path, const OptionalString& min, const OptionalString& max,
                               bool allowBeta);
  void findPublicJavaBundle(const OptionalString& min, const OptionalString& max, bool allowBeta);

  // --- launch -------------------------------------------------------------------------------
  void setInstallerJreBundle(const OptionalString& jreBundle, const OptionalString& tarFile);
  Launcher& load();
  int launch();

  // Fields, in declaration order of the launch object.
  std::shared_ptr<RuntimeBundle> javaBundle;
  OptionalString javaBundlePath;
  OptionalString javaVersion;
  int javaMajorVersion = -1;
  bool pluginUsed = false;
  bool previousJdkUsed = false;
  int argc = 0;
  char** argv = nullptr;  // handed to the runtime; never freed
  OptionalString installerJreBundle;
  OptionalString tarFile;
};

}  // namespace bwk
