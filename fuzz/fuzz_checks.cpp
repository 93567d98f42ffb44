#include "fuzz_checks.h"

#include <cstdlib>

#include "base/strings.h"

namespace bwk::fuzz {

void checkResult(const std::optional<PlistValue>& value, const std::string& error) {
  if (!value) {
    if (error.empty()) std::abort();
    return;
  }
  if (value->description().empty()) std::abort();
}

void checkUtf8(const PlistValue& value) {
  if (const std::string* s = value.asString(); s && !text::isValidUtf8(*s)) std::abort();
  if (const PlistArray* a = value.asArray())
    for (const PlistValue& item : *a) checkUtf8(item);
  if (const PlistDict* d = value.asDictionary()) {
    for (const auto& [key, item] : *d) {
      if (!text::isValidUtf8(key)) std::abort();
      checkUtf8(item);
    }
  }
}

}  // namespace bwk::fuzz
