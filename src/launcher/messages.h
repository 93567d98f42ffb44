#pragma once
// Messages shown to the user: looked up in the bundle's strings with up to two inserts, and
// shown as an alert, or as a line on standard error without a graphical session.
#include <optional>
#include <string>

#include "base/bundle.h"
#include "base/errors.h"
#include "launcher/launch_context.h"

namespace bwk {

OptionalString getMessage(const Bundle& bundle, const std::string& key, const OptionalString& info1 = std::nullopt,
                          const OptionalString& info2 = std::nullopt);

// The alert's header is the configuration's "CFBundleName".
void displayError(const Bundle& bundle, const PlistValue& configuration, bool reportOnStandardError,
                  const std::string& key, const OptionalString& info1 = std::nullopt,
                  const OptionalString& info2 = std::nullopt);

// "fenmo.InternalError" with the failure's description, and what the system said about it
// (its detail) on a line of its own and in the alert's text.
void displayInternalError(const Bundle& bundle, const PlistValue& configuration, bool reportOnStandardError,
                          const PlatformException& failure);

inline void displayError(const LaunchContext& context, const std::string& key,
                         const OptionalString& info1 = std::nullopt, const OptionalString& info2 = std::nullopt) {
  displayError(*context.bundle, context.configuration, context.reportOnStandardError, key, info1, info2);
}

}  // namespace bwk
