// A launch's context: the directories every path rule of the launcher is built on.
#include "launcher/launch_context.h"

#include "base/log.h"
#include "base/path.h"
#include "launcher/variables.h"

namespace bwk {

namespace {

// The installation root and the launcher directory, from the layout keys.
void resolveLayout(LaunchContext& context) {
  const PlistValue& info = context.configuration;
  LaunchPaths& paths = context.paths;
  // A command-line launcher whose own path is unknown has no directories: none of them is
  // made up from an empty text, which would name the current directory.
  if (OptionalString baseDir = info.string("bwk.baseDir")) {
    if (paths.launcherDirInApp) {
      paths.appRootDir = path::standardize(path::append(*paths.launcherDirInApp, *baseDir));
      if (info.boolean("bwk.inSingleBundle").value_or(false))
        paths.mainBundlePath = path::standardize(path::append(*paths.appRootDir, "../../.."));
    }
  } else if (paths.launcherDirAndName) {
    paths.appRootDir = *paths.launcherDirAndName + ".app/Contents/Resources/app";
    // The launcher directory in the variables is still the one of the bundle at this point.
    OptionalString launcherDir = replaceVariables(info.string("bwk.launcherDir"), VariableScope{paths, std::nullopt});
    paths.launcherDirInApp = launcherDir ? path::append(*paths.appRootDir, *launcherDir) : *paths.appRootDir;
  }
  BWK_DLOG("%s [Line %d] INIT %@ %@ %@ %@", paths.appRootDir, paths.launcherDirInApp, paths.launcherDirAndName,
           paths.mainBundlePath);
}

}  // namespace

const PlistValue& LaunchContext::javaVM() const {
  static const PlistValue empty{PlistDict{}};
  const PlistValue* javaVM = configuration.find("JavaVM");
  return javaVM && javaVM->isDictionary() ? *javaVM : empty;
}

LaunchContext LaunchContext::forBundle(const Bundle& bundle, std::vector<std::string> arguments,
                                       bool reportOnStandardError) {
  LaunchContext context;
  context.bundle = &bundle;
  context.configuration = bundle.infoDictionary();
  context.reportOnStandardError = reportOnStandardError;
  context.arguments = std::move(arguments);
  const std::string& bundlePath = bundle.path();
  context.paths.mainBundlePath = bundlePath;
  context.paths.launcherDirInApp = path::parent(bundlePath);
  // The ".app" suffix is cut by count, unchecked.
  context.paths.launcherDirAndName = bundlePath.substr(0, bundlePath.size() >= 4 ? bundlePath.size() - 4 : 0);
  resolveLayout(context);
  return context;
}

LaunchContext LaunchContext::forEmbeddedConfiguration(const Bundle& bundle, PlistValue configuration,
                                                      const OptionalString& executablePath,
                                                      std::vector<std::string> arguments) {
  LaunchContext context;
  context.bundle = &bundle;
  context.configuration = std::move(configuration);
  context.commandLineLauncher = true;
  context.serviceMode = context.configuration.string("bwk.service");
  context.reportOnStandardError = true;
  context.arguments = std::move(arguments);
  context.paths.launcherDirAndName = executablePath;
  if (executablePath) context.paths.launcherDirInApp = path::parent(*executablePath);
  resolveLayout(context);
  return context;
}

}  // namespace bwk
