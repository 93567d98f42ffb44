// The launcher's own command line, handed on to the Java application.
#include "launcher/command_line.h"

#include "base/log.h"
#include "base/strings.h"

namespace bwk {

void addCommandLineParameters(const LaunchContext& context, std::vector<std::string>& options,
                              std::vector<std::string>& args) {
  bool passthrough = context.configuration.boolean("bwk.allowPassthrough").value_or(false);
  const std::vector<std::string>& words = context.arguments;
  for (size_t position = 1; position < words.size(); ++position) {
    const std::string& word = words[position];
    // The process serial number the system adds when it opens a bundle.
    if (position == 1 && text::startsWith(word, "-psn_")) continue;
    BWK_DLOG("%s [Line %d] cl arg: %@ ", word);
    if (passthrough && text::startsWith(word, "-J")) {
      options.push_back(word.substr(2));
    } else if (position == 1 && context.commandLineLauncher && context.serviceMode) {
      args.insert(args.begin(), word);  // the service action leads the arguments
    } else {
      args.push_back(word);
    }
  }
}

}  // namespace bwk
