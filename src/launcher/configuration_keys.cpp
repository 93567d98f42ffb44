#include "launcher/configuration_keys.h"

namespace bwk {

namespace {

using enum KeyScope;
using enum KeyType;

constexpr ConfigurationKey kKeys[] = {
    {"CFBundleName", TopLevel, String},
    {"CFBundleDisplayName", TopLevel, String},
    {"CFBundleExecutable", TopLevel, String},
    {"CFBundleIconFile", TopLevel, String},
    {"CFBundleDevelopmentRegion", TopLevel, String},
    {"bwk.minVersion", TopLevel, String},
    {"bwk.maxVersion", TopLevel, String},
    {"bwk.allowBeta", TopLevel, Boolean},
    {"bwk.appId", TopLevel, String},
    {"bwk.baseDir", TopLevel, String},
    {"bwk.inSingleBundle", TopLevel, Boolean},
    {"bwk.launcherDir", TopLevel, String},
    {"bwk.allowPassthrough", TopLevel, Boolean},
    {"bwk.configFileId", TopLevel, String},
    {"bwk.service", TopLevel, String},
    {"bwk.initialProgress", TopLevel, Boolean},
    {"bwk.jreUncompressedSize", TopLevel, Number},
    {"bwk.reuseUnpackedRuntime", TopLevel, Boolean},
    {"JavaVM", TopLevel, Dictionary},
    {"MainClass", JavaVM, String},
    {"ClassPath", JavaVM, String},
    {"ModulePath", JavaVM, String},
    {"VMOptionArray", JavaVM, StringArray},
    {"VersionSpecificVMOptions", JavaVM, VersionOptions},
    {"ArgumentArray", JavaVM, StringArray},
    {"WorkingDirectory", JavaVM, String},
    {"SplashFile", JavaVM, String},
    {"StartOnMainThread", JavaVM, Boolean},
    {"SearchSequence", JavaVM, SearchSequence},
    {"AotCacheEnabled", JavaVM, Boolean},
    {"AotCacheBuildId", JavaVM, String},
    {"AotCachePath", JavaVM, String},
    {"AotCacheName", JavaVM, String},
    // The operating system's own keys that application bundles commonly carry.
    {"CFBundleIdentifier", TopLevel, String},
    {"CFBundleVersion", TopLevel, String},
    {"CFBundleShortVersionString", TopLevel, String},
    {"CFBundlePackageType", TopLevel, String},
    {"CFBundleInfoDictionaryVersion", TopLevel, String},
    {"CFBundleSignature", TopLevel, String},
    {"CFBundleGetInfoString", TopLevel, String},
    {"CFBundleDocumentTypes", TopLevel, Array},
    {"CFBundleURLTypes", TopLevel, Array},
    {"CFBundleAllowMixedLocalizations", TopLevel, Boolean},
    {"NSHumanReadableCopyright", TopLevel, String},
    {"NSHighResolutionCapable", TopLevel, Boolean},
    {"NSPrincipalClass", TopLevel, String},
    {"NSMainNibFile", TopLevel, String},
    {"NSSupportsAutomaticGraphicsSwitching", TopLevel, Boolean},
    {"LSMinimumSystemVersion", TopLevel, String},
    {"LSApplicationCategoryType", TopLevel, String},
    {"LSUIElement", TopLevel, Boolean},
    {"LSEnvironment", TopLevel, Dictionary},
};

}  // namespace

std::span<const ConfigurationKey> configurationKeys() { return kKeys; }

const ConfigurationKey* findConfigurationKey(KeyScope scope, std::string_view name) {
  for (const ConfigurationKey& key : kKeys)
    if (key.scope == scope && name == key.name) return &key;
  return nullptr;
}

const char* describeKeyType(KeyType type) {
  switch (type) {
    case String: return "a string";
    case Boolean: return "a boolean";
    case Number: return "a number";
    case StringArray: return "an array of strings";
    case VersionOptions: return "an array of pattern strings each followed by an array of strings";
    case SearchSequence: return "an array of strings beginning with Y, I, R or E";
    case Dictionary: return "a dictionary";
    case Array: return "an array";
  }
  return "?";
}

}  // namespace bwk
