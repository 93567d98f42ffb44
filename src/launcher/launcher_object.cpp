// The launch object's initialisation, which fixes the process-wide directories, and the
// user-visible messages.
#include <cstdio>

#include "base/bundle.h"
#include "base/format.h"
#include "base/log.h"
#include "base/path.h"
#include "launcher/launcher.h"
#include "platform/platform.h"

namespace bwk {

Launcher::Launcher() {
  if (!s_infoDictionary) {
    // Bundle launch: the bundle's Info dictionary and paths. A command-line launch has set
    // these from the executable already.
    const Bundle& bundle = Bundle::main();
    s_infoDictionary = bundle.infoDictionary();
    s_mainBundlePath = bundle.path();
    s_launcherDirInApp = path::parent(bundle.path());
    // The ".app" suffix is cut by count, unchecked.
    const std::string& p = bundle.path();
    s_launcherDirAndName = p.substr(0, p.size() >= 4 ? p.size() - 4 : 0);
  }
  const PlistValue& info = infoDictionary();
  if (auto baseDir = info.string("bwk.baseDir")) {
    s_appRootDir = path::standardize(path::append(s_launcherDirInApp.value_or(""), *baseDir));
    if (info.boolean("bwk.inSingleBundle").value_or(false))
      s_mainBundlePath = path::standardize(path::append(*s_appRootDir, "../../.."));
  } else {
    s_appRootDir = s_launcherDirAndName.value_or("") + ".app/Contents/Resources/app";
    OptionalString launcherDir = replaceVariables(info.string("bwk.launcherDir"));
    s_launcherDirInApp = launcherDir ? path::append(*s_appRootDir, *launcherDir) : *s_appRootDir;
  }
  BWK_DLOG("%s [Line %d] INIT %@ %@ %@ %@", s_appRootDir, s_launcherDirInApp, s_launcherDirAndName, s_mainBundlePath);
}

std::unique_ptr<Launcher> Launcher::launcher() { return std::make_unique<Launcher>(); }

OptionalString Launcher::getMessage(const std::string& key, const OptionalString& info1, const OptionalString& info2) {
  // A missing translation gives the key itself; only a lookup that yields nothing is logged.
  std::string message = Bundle::main().localizedString(key, key);
  if (info1 && info2) return formatString(message, {FormatArg(*info1), FormatArg(*info2)});
  if (info1) return formatString(message, {FormatArg(*info1)});
  return message;
}

void Launcher::displayError(const std::string& key, const OptionalString& info1, const OptionalString& info2) {
  OptionalString message = getMessage(key, info1, info2);
  if (!message) return;
  // The line on standard error is the whole report without a graphical session; with one,
  // a notice is shown as well.
  std::fprintf(stderr, "ERROR: %s\n", message->c_str());
  std::fflush(stderr);
  if (!g_cli) platform::displayNotice(infoDictionary().string("CFBundleName"), *message);
}

}  // namespace bwk
