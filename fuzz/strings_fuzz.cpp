// Any bytes as a text property list or .strings table (UTF-8, UTF-16, Latin-1).
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/plist_reader.h"
#include "fuzz_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::string error;
  std::optional<bwk::PlistValue> value = bwk::readTextPropertyList(bytes, &error);
  bwk::fuzz::checkResult(value, error);
  if (value) bwk::fuzz::checkUtf8(*value);
  return 0;
}
