#include "base/path.h"

#include "platform/platform.h"

namespace bwk::path {

bool isAbsolute(std::string_view p) { return !p.empty() && (p[0] == '/' || p[0] == '~'); }

std::string expandTilde(std::string_view p) {
  if (p.empty() || p[0] != '~') return std::string(p);
  if (p.size() > 1 && p[1] != '/') return std::string(p);
  return platform::homeDirectory() + std::string(p.substr(1));
}

std::vector<std::string> components(std::string_view p) {
  std::vector<std::string> out;
  size_t i = 0;
  while (i < p.size()) {
    while (i < p.size() && p[i] == '/') ++i;
    size_t start = i;
    while (i < p.size() && p[i] != '/') ++i;
    if (i > start) out.emplace_back(p.substr(start, i - start));
  }
  return out;
}

std::string standardize(std::string_view input) {
  std::string expanded = expandTilde(input);
  if (expanded.empty()) return expanded;
  bool absolute = expanded[0] == '/';
  std::vector<std::string> kept;
  for (std::string& c : components(expanded)) {
    if (c == ".") continue;
    if (c == "..") {
      if (!kept.empty() && kept.back() != "..") {
        kept.pop_back();
        continue;
      }
      if (absolute) continue;  // ".." of the root is the root
    }
    kept.push_back(std::move(c));
  }
  std::string out = absolute ? "/" : "";
  for (size_t i = 0; i < kept.size(); ++i) {
    if (i) out += '/';
    out += kept[i];
  }
  return out;
}

namespace {
std::string collapseSeparators(std::string_view p) {
  std::string out;
  out.reserve(p.size());
  for (char c : p) {
    if (c == '/' && !out.empty() && out.back() == '/') continue;
    out += c;
  }
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}
}  // namespace

std::string append(std::string_view base, std::string_view component) {
  if (component.empty()) return collapseSeparators(base);
  if (base.empty()) return collapseSeparators(component);
  std::string joined(base);
  joined += '/';
  joined += component;
  return collapseSeparators(joined);
}

std::string join(const std::vector<std::string>& parts) {
  std::string out;
  for (const std::string& part : parts) out = out.empty() ? collapseSeparators(part) : append(out, part);
  return out;
}

std::string lastComponent(std::string_view p) {
  if (p.empty()) return "";
  size_t end = p.size();
  while (end > 1 && p[end - 1] == '/') --end;
  std::string_view trimmed = p.substr(0, end);
  if (trimmed == "/") return "/";
  size_t slash = trimmed.rfind('/');
  return std::string(slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1));
}

std::string parent(std::string_view p) {
  if (p.empty()) return "";
  size_t end = p.size();
  while (end > 1 && p[end - 1] == '/') --end;
  std::string_view trimmed = p.substr(0, end);
  if (trimmed == "/") return "/";
  size_t slash = trimmed.rfind('/');
  if (slash == std::string_view::npos) return "";
  if (slash == 0) return "/";
  return collapseSeparators(trimmed.substr(0, slash));
}

std::string extension(std::string_view p) {
  std::string last = lastComponent(p);
  size_t dot = last.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  return last.substr(dot + 1);
}

}  // namespace bwk::path
