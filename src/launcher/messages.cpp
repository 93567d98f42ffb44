#include "launcher/messages.h"

#include <cstdio>

#include "base/format.h"
#include "base/log.h"
#include "platform/platform.h"

namespace bwk {

OptionalString getMessage(const Bundle& bundle, const std::string& key, const OptionalString& info1,
                          const OptionalString& info2) {
  // A missing translation gives the key itself.
  std::string message = bundle.localizedString(key, key);
  if (info1 && info2) return formatString(message, {FormatArg(*info1), FormatArg(*info2)});
  if (info1) return formatString(message, {FormatArg(*info1)});
  return message;
}

namespace {

// The line on standard error is the whole report without a graphical session; with one, a
// notice is shown as well.
void show(const PlistValue& configuration, bool reportOnStandardError, const std::string& message,
          const OptionalString& detail) {
  std::fprintf(stderr, "ERROR: %s\n", message.c_str());
  if (detail) std::fprintf(stderr, "ERROR: %s\n", detail->c_str());
  std::fflush(stderr);
  if (reportOnStandardError) return;
  std::string text = detail ? message + "\n\n" + *detail : message;
  if (!platform::displayNotice(configuration.string("CFBundleName"), text)) BWK_DLOG("%s [Line %d] notice not started");
}

}  // namespace

void displayError(const Bundle& bundle, const PlistValue& configuration, bool reportOnStandardError,
                  const std::string& key, const OptionalString& info1, const OptionalString& info2) {
  if (OptionalString message = getMessage(bundle, key, info1, info2))
    show(configuration, reportOnStandardError, *message, std::nullopt);
}

void displayInternalError(const Bundle& bundle, const PlistValue& configuration, bool reportOnStandardError,
                          const PlatformException& failure) {
  if (OptionalString message = getMessage(bundle, "fenmo.InternalError", failure.description()))
    show(configuration, reportOnStandardError, *message, failure.detail());
}

}  // namespace bwk
