#include "default_texts.h"

#include <map>
#include <stdexcept>

#include "launcher/message_keys.h"

namespace bwk::bundle {

std::vector<StringsEntry> defaultStrings(const std::string& applicationName, bool hasMinimumVersion) {
  const std::map<std::string, std::string> texts = {
      {"AppleJavaMinVersionError", hasMinimumVersion ? "Java %@ or later is needed to run %@, and none was found."
                                                     : "No suitable Java runtime was found for this application."},
      {"fenmo.InternalError", "An internal error occurred: %@"},
      {"NonWritablePackDir", "The runtime directory of this application is not writable."},
      {"WizardCaption", applicationName},
      {"PrepareInstaller", "Preparing %@ ..."},
      {"ButtonCancel", "Cancel"},
      {"MacMenuServices", "Services"},
      {"MacMenuHide", "Hide %@"},
      {"MacMenuHideOthers", "Hide Others"},
      {"MacMenuShowAll", "Show All"},
      {"MacMenuQuit", "Quit %@"},
  };
  std::vector<StringsEntry> entries;
  for (const MessageKey& key : messageKeys()) {
    auto text = texts.find(key.name);
    if (text == texts.end()) throw std::logic_error(std::string("no English text for the message ") + key.name);
    std::string comment = key.insertCount() == 0 ? "no inserts" : std::string("%@: ") + key.inserts[0];
    if (key.insertCount() == 2) comment += std::string(", then ") + key.inserts[1];
    entries.push_back({key.name, text->second, comment});
  }
  return entries;
}

}  // namespace bwk::bundle
