// The bundle's executable, its strings tables and its icon.
#include <algorithm>

#include "base/fs.h"
#include "base/path.h"
#include "base/plist_reader.h"
#include "base/strings.h"
#include "check_steps.h"
#include "icon.h"
#include "launcher/message_keys.h"

namespace bwk::bundle {

namespace {

// The conversions of a message text: "%@" takes an insert, "%%" is a percent sign; anything
// else is counted and returned separately, since inserts are texts.
struct Conversions {
  int objects = 0;
  std::vector<std::string> others;
};

Conversions conversionsIn(const std::string& text) {
  Conversions found;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%' || i + 1 >= text.size()) continue;
    if (text[i + 1] == '%') {
      ++i;
    } else if (text[i + 1] == '@') {
      ++found.objects;
      ++i;
    } else {
      size_t end = text.find_first_of("diouxXfgescpS@", i + 1);
      found.others.push_back(text.substr(i, end == std::string::npos ? 2 : end - i + 1));
    }
  }
  return found;
}

std::vector<std::string> messageNames() {
  std::vector<std::string> names;
  for (const MessageKey& key : messageKeys()) names.push_back(key.name);
  return names;
}

void checkStringsTable(const std::string& file, bool completeness, Findings& findings) {
  std::string error;
  std::optional<PlistValue> table = readPropertyListFile(file, &error);
  if (!table) {
    findings.add(file, "", "cannot be read: " + error + "; the launcher skips the table");
    return;
  }
  const PlistDict* entries = table->asDictionary();
  if (!entries) {
    findings.add(file, "", "is no table of keys and texts; the launcher skips it");
    return;
  }
  for (const auto& [key, value] : *entries) {
    const MessageKey* message = findMessageKey(key);
    if (!message) {
      findings.add(file, key, "unknown message key: the launcher never shows it").suggestion =
          nearestName(key, messageNames());
      continue;
    }
    const std::string* text = value.asString();
    if (!text) {
      findings.add(file, key, "is no text: the launcher shows the key itself");
      continue;
    }
    Conversions conversions = conversionsIn(*text);
    for (const std::string& other : conversions.others)
      findings.add(file, key, "'" + other + "' in the text: the inserts are texts, written %@");
    if (conversions.objects > message->insertCount())
      findings.add(file, key,
                   "has " + std::to_string(conversions.objects) + " %@ but the message has " +
                       std::to_string(message->insertCount()) + " insert(s): the rest show nothing");
  }
  if (!completeness) return;
  for (const MessageKey& message : messageKeys())
    if (!entries->count(message.name)) findings.add(file, message.name, "missing: the launcher shows the key itself");
}

void checkStrings(const LaunchContext& context, Findings& findings) {
  std::string resources = context.bundle->resourcePath();
  std::vector<std::string> names = fs::listDirectory(resources).value_or(std::vector<std::string>{});
  std::sort(names.begin(), names.end());
  // Complete texts are expected of the table used when no other language matches.
  std::string region = context.configuration.string("CFBundleDevelopmentRegion").value_or("en");
  std::string fallback = path::append(resources, region + ".lproj/Localizable.strings");
  if (!fs::exists(fallback) && !fs::exists(path::append(resources, "en.lproj/Localizable.strings")))
    findings.add(fallback, "", "missing: every message and window text shows its key");
  for (const std::string& name : names) {
    std::string table = path::append(resources, name + "/Localizable.strings");
    if (text::endsWith(name, ".lproj") && fs::exists(table))
      checkStringsTable(table, name == region + ".lproj", findings);
  }
}

void checkExecutable(const LaunchContext& context, Findings& findings) {
  std::string info = path::append(context.bundle->path(), "Contents/Info.plist");
  std::optional<std::string> name = context.configuration.string("CFBundleExecutable");
  if (!name) return;
  std::string executable = path::append(context.bundle->path(), "Contents/MacOS/" + *name);
  if (!fs::isExecutableFile(executable))
    findings.add(info, "CFBundleExecutable",
                 "names " + findings.relative(executable) + ", which is no executable file");
}

void checkIcons(const LaunchContext& context, Findings& findings) {
  std::string resources = context.bundle->resourcePath();
  std::string windowIcon = path::append(resources, "app.icns");
  if (fs::exists(windowIcon)) {
    std::optional<std::string> bytes = fs::readFile(windowIcon);
    std::optional<std::string> problem = bytes ? icnsProblem(*bytes) : std::optional<std::string>("cannot be read");
    if (problem) findings.add(windowIcon, "", *problem);
  }
  if (std::optional<std::string> icon = context.configuration.string("CFBundleIconFile")) {
    std::string file = path::append(resources, *icon);
    if (!fs::exists(file))
      findings.add(path::append(context.bundle->path(), "Contents/Info.plist"), "CFBundleIconFile",
                   "names " + findings.relative(file) + ", which does not exist");
  }
}

}  // namespace

void checkResources(const LaunchContext& context, Findings& findings) {
  checkExecutable(context, findings);
  checkStrings(context, findings);
  checkIcons(context, findings);
}

}  // namespace bwk::bundle
