#include "base/format.h"

#include <cstdio>

namespace bwk {

FormatArg::FormatArg(const std::vector<std::string>& list) : kind_(Kind::Text) {
  PlistArray a(list.begin(), list.end());
  text_ = PlistValue(std::move(a)).description();
}

FormatArg::FormatArg(const std::optional<std::vector<std::string>>& list) : kind_(list ? Kind::Text : Kind::Null) {
  if (list) text_ = FormatArg(*list).text();
}

namespace {

std::string asText(const FormatArg& a) {
  switch (a.kind()) {
    case FormatArg::Kind::Text: return a.text();
    case FormatArg::Kind::Null: return "(null)";
    case FormatArg::Kind::Integer: return std::to_string(a.integer());
    case FormatArg::Kind::Real: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%g", a.real());
      return buf;
    }
    case FormatArg::Kind::Pointer: {
      if (!a.pointer()) return "0x0";
      char buf[32];
      std::snprintf(buf, sizeof buf, "%p", a.pointer());
      return buf;
    }
  }
  return {};
}

long long asInteger(const FormatArg& a) {
  if (a.kind() == FormatArg::Kind::Integer) return a.integer();
  if (a.kind() == FormatArg::Kind::Real) return static_cast<long long>(a.real());
  if (a.kind() == FormatArg::Kind::Pointer) return static_cast<long long>(reinterpret_cast<uintptr_t>(a.pointer()));
  return 0;
}

}  // namespace

std::string formatString(std::string_view fmt, const std::vector<FormatArg>& args) {
  std::string out;
  out.reserve(fmt.size() + 32);
  size_t next = 0;
  for (size_t i = 0; i < fmt.size(); ++i) {
    char c = fmt[i];
    if (c != '%' || i + 1 >= fmt.size()) {
      out += c;
      continue;
    }
    size_t j = i + 1;
    if (fmt[j] == '%') {
      out += '%';
      i = j;
      continue;
    }
    // Flags, width and precision are carried through to snprintf for numbers.
    std::string flags = "%";
    while (j < fmt.size() && std::string_view("-+ #0123456789.").find(fmt[j]) != std::string_view::npos)
      flags += fmt[j++];
    int longs = 0;
    while (j < fmt.size() && (fmt[j] == 'l' || fmt[j] == 'h' || fmt[j] == 'z' || fmt[j] == 'q')) {
      if (fmt[j] == 'l' || fmt[j] == 'q' || fmt[j] == 'z') ++longs;
      ++j;
    }
    if (j >= fmt.size()) {
      out.append(fmt.substr(i));
      break;
    }
    char conv = fmt[j];
    i = j;
    const FormatArg* arg = next < args.size() ? &args[next] : nullptr;
    ++next;
    if (!arg) continue;
    char buf[128];
    switch (conv) {
      case '@':
      case 's': out += asText(*arg); break;
      case 'd':
      case 'i':
        std::snprintf(buf, sizeof buf, (flags + "lld").c_str(),
                      longs ? asInteger(*arg) : static_cast<long long>(static_cast<int>(asInteger(*arg))));
        out += buf;
        break;
      case 'u':
      case 'x':
      case 'X':
        std::snprintf(buf, sizeof buf, (flags + "ll" + conv).c_str(),
                      longs ? static_cast<unsigned long long>(asInteger(*arg))
                            : static_cast<unsigned long long>(static_cast<unsigned int>(asInteger(*arg))));
        out += buf;
        break;
      case 'p': out += asText(FormatArg(arg->kind() == FormatArg::Kind::Pointer ? arg->pointer() : nullptr)); break;
      case 'f':
      case 'g':
      case 'e':
        std::snprintf(buf, sizeof buf, (flags + conv).c_str(),
                      arg->kind() == FormatArg::Kind::Real ? arg->real() : static_cast<double>(asInteger(*arg)));
        out += buf;
        break;
      case 'c': out += static_cast<char>(asInteger(*arg)); break;
      default:
        out += flags;
        out += conv;
        break;
    }
  }
  return out;
}

}  // namespace bwk
