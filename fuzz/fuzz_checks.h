#pragma once
// What every reader must hold to, whatever the input.
#include <optional>
#include <string>

#include "base/plist.h"

namespace bwk::fuzz {

// A refusal always carries a reason; a value can be described (walks all of it).
void checkResult(const std::optional<PlistValue>& value, const std::string& error);
// Every string and key of the value is valid UTF-8.
void checkUtf8(const PlistValue& value);

}  // namespace bwk::fuzz
