#include "findings.h"

#include <cstdio>

#include "base/strings.h"

namespace bwk::bundle {

namespace {

std::string jsonString(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else if (byte < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      out += escaped;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string describe(const RuntimeSeen& runtime) {
  return runtime.path + (runtime.version ? " (" + *runtime.version + ")" : "") + ": " + runtime.refusal;
}

}  // namespace

Finding& Findings::add(const std::string& file, const std::string& key, const std::string& message) {
  findings_.push_back(Finding{relative(file), key, message, std::nullopt, {}});
  return findings_.back();
}

std::string Findings::relative(const std::string& path) const {
  if (text::startsWith(path, bundle_ + "/")) return path.substr(bundle_.size() + 1);
  return path;
}

std::string humanReport(const Findings& findings) {
  std::string out;
  for (const Finding& f : findings.all()) {
    out += f.file + ": ";
    if (!f.key.empty()) out += f.key + ": ";
    out += f.message;
    if (f.suggestion) out += " (did you mean " + *f.suggestion + "?)";
    if (!f.runtimes.empty()) {
      std::vector<std::string> seen;
      for (const RuntimeSeen& runtime : f.runtimes) seen.push_back(describe(runtime));
      out += "; seen: " + text::join(seen, "; ");
    }
    out += "\n";
  }
  size_t count = findings.all().size();
  out += findings.bundle() + ": " +
         (count ? std::to_string(count) + (count == 1 ? " finding" : " findings") : "no findings") + "\n";
  return out;
}

std::string jsonReport(const Findings& findings) {
  std::string out = "{\"bundle\": " + jsonString(findings.bundle()) + ", \"findings\": [";
  bool first = true;
  for (const Finding& f : findings.all()) {
    out += first ? "\n  " : ",\n  ";
    first = false;
    out += "{\"file\": " + jsonString(f.file) + ", \"key\": " + jsonString(f.key) +
           ", \"message\": " + jsonString(f.message);
    if (f.suggestion) out += ", \"suggestion\": " + jsonString(*f.suggestion);
    if (!f.runtimes.empty()) {
      out += ", \"runtimes\": [";
      for (size_t i = 0; i < f.runtimes.size(); ++i) {
        const RuntimeSeen& r = f.runtimes[i];
        out += (i ? ", " : "") + std::string("{\"path\": ") + jsonString(r.path) +
               ", \"version\": " + (r.version ? jsonString(*r.version) : "null") +
               ", \"refusal\": " + jsonString(r.refusal) + "}";
      }
      out += "]";
    }
    out += "}";
  }
  return out + (first ? "]}\n" : "\n]}\n");
}

}  // namespace bwk::bundle
