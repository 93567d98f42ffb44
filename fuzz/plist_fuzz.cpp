// Any bytes through the format dispatch: XML, binary and text property lists.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/plist_reader.h"
#include "base/strings.h"
#include "fuzz_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::string error;
  std::optional<bwk::PlistValue> value = bwk::readPropertyList(bytes, &error);
  bwk::fuzz::checkResult(value, error);
  // The binary reader makes every string UTF-8 itself (XML passes its text through).
  if (value && bwk::text::startsWith(bytes, "bplist00")) bwk::fuzz::checkUtf8(*value);
  return 0;
}
