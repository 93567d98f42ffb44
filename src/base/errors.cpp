#include "base/errors.h"

#include <execinfo.h>

#include <cstdlib>

namespace bwk {

PlatformException::PlatformException(std::string name, std::string reason, std::optional<std::string> detail)
    : std::runtime_error(reason), name_(std::move(name)), reason_(std::move(reason)), detail_(std::move(detail)) {
  void* frames[64];
  int count = backtrace(frames, 64);
  if (char** symbols = backtrace_symbols(frames, count)) {
    for (int i = 0; i < count; ++i) callStack_.emplace_back(symbols[i]);
    std::free(symbols);
  }
}

}  // namespace bwk
