#include "launcher/launch_state.h"

namespace bwk {

std::optional<PlistValue> s_infoDictionary;
std::optional<std::string> s_mainBundlePath;
std::optional<std::string> s_launcherDirInApp;
std::optional<std::string> s_launcherDirAndName;
std::optional<std::string> s_appRootDir;
bool s_guiLauncher = false;
std::optional<std::string> s_serviceMode;
bool g_cli = false;
bool g_javaMainInvocation = false;
const char* launchJavaVersion = nullptr;
JLI_Launch_t JLI_LaunchFxnPtr = nullptr;

const PlistValue& infoDictionary() {
  static const PlistValue empty{PlistDict{}};
  return s_infoDictionary ? *s_infoDictionary : empty;
}

const PlistValue* javaVMDictionary() { return infoDictionary().find("JavaVM") && infoDictionary().find("JavaVM")->isDictionary() ? infoDictionary().find("JavaVM") : nullptr; }

void resetLaunchState() {
  s_infoDictionary.reset();
  s_mainBundlePath.reset();
  s_launcherDirInApp.reset();
  s_launcherDirAndName.reset();
  s_appRootDir.reset();
  s_guiLauncher = false;
  s_serviceMode.reset();
  g_cli = false;
  g_javaMainInvocation = false;
  launchJavaVersion = nullptr;
  JLI_LaunchFxnPtr = nullptr;
}

}  // namespace bwk
