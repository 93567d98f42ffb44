#pragma once
// printf-style formatting with the platform's object placeholder "%@", used for the
// launcher's log lines and messages. An absent value shown through "%@" reads "(null)",
// as the platform writes it.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist.h"

namespace bwk {

class FormatArg {
 public:
  FormatArg(const std::string& s) : kind_(Kind::Text), text_(s) {}
  FormatArg(std::string_view s) : kind_(Kind::Text), text_(s) {}
  FormatArg(const char* s) : kind_(s ? Kind::Text : Kind::Null), text_(s ? s : "") {}
  FormatArg(const std::optional<std::string>& s) : kind_(s ? Kind::Text : Kind::Null), text_(s.value_or("")) {}
  FormatArg(std::nullptr_t) : kind_(Kind::Null) {}
  FormatArg(const std::vector<std::string>& list);
  FormatArg(const std::optional<std::vector<std::string>>& list);
  FormatArg(const PlistValue& value) : kind_(Kind::Text), text_(value.description()) {}
  FormatArg(const PlistValue* value)
      : kind_(value ? Kind::Text : Kind::Null), text_(value ? value->description() : "") {}
  FormatArg(bool b) : kind_(Kind::Integer), integer_(b ? 1 : 0) {}
  FormatArg(int i) : kind_(Kind::Integer), integer_(i) {}
  FormatArg(long i) : kind_(Kind::Integer), integer_(i) {}
  FormatArg(long long i) : kind_(Kind::Integer), integer_(i) {}
  FormatArg(unsigned int i) : kind_(Kind::Integer), integer_(static_cast<long long>(i)) {}
  FormatArg(unsigned long i) : kind_(Kind::Integer), integer_(static_cast<long long>(i)) {}
  FormatArg(unsigned long long i) : kind_(Kind::Integer), integer_(static_cast<long long>(i)) {}
  FormatArg(double d) : kind_(Kind::Real), real_(d) {}
  FormatArg(const void* p) : kind_(Kind::Pointer), pointer_(p) {}

  enum class Kind { Text, Null, Integer, Real, Pointer };
  Kind kind() const { return kind_; }
  const std::string& text() const { return text_; }
  long long integer() const { return integer_; }
  double real() const { return real_; }
  const void* pointer() const { return pointer_; }

 private:
  Kind kind_;
  std::string text_;
  long long integer_ = 0;
  double real_ = 0;
  const void* pointer_ = nullptr;
};

// Formats `format` with the arguments in order. Supported conversions: %@ %s %d %i %u %ld %lld
// %lu %llu %x %p %f %g %c %%; a conversion without an argument writes nothing.
std::string formatString(std::string_view format, const std::vector<FormatArg>& args);

template <typename... Args>
std::string format(std::string_view fmt, const Args&... args) {
  return formatString(fmt, std::vector<FormatArg>{FormatArg(args)...});
}

}  // namespace bwk
