#include "plist_writer.h"

#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace bwk::bundle {

namespace {

std::string escapeXml(const std::string& text) {
  std::string out;
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 && c != '\t' && c != '\n' && c != '\r')
      throw std::invalid_argument("a control character cannot be written into a property list");
    if (c == '&')
      out += "&amp;";
    else if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else
      out += c;
  }
  return out;
}

std::string base64(const std::vector<uint8_t>& bytes) {
  static const char* const kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t chunk = static_cast<uint32_t>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) chunk |= static_cast<uint32_t>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) chunk |= bytes[i + 2];
    out += kDigits[(chunk >> 18) & 63];
    out += kDigits[(chunk >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(chunk >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kDigits[chunk & 63] : '=';
  }
  return out;
}

void writeValue(const PlistValue& value, int depth, std::string& out) {
  std::string indent(static_cast<size_t>(depth) * 2, ' ');
  switch (value.type()) {
    case PlistValue::Type::String: out += indent + "<string>" + escapeXml(*value.asString()) + "</string>\n"; break;
    case PlistValue::Type::Integer:
      out += indent + "<integer>" + std::to_string(*value.asInteger()) + "</integer>\n";
      break;
    case PlistValue::Type::Real: {
      char text[64];
      std::snprintf(text, sizeof text, "%.17g", *value.asReal());
      out += indent + "<real>" + text + "</real>\n";
      break;
    }
    case PlistValue::Type::Boolean: out += indent + (*value.asBoolean() ? "<true/>\n" : "<false/>\n"); break;
    case PlistValue::Type::Date: {
      // Seconds since 2001-01-01 as the ISO 8601 text the format wants.
      time_t seconds = static_cast<time_t>(value.asDate()->secondsSince2001) + 978307200;
      struct tm utc {};
      gmtime_r(&seconds, &utc);
      char text[32];
      std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
      out += indent + "<date>" + text + "</date>\n";
      break;
    }
    case PlistValue::Type::Data: out += indent + "<data>" + base64(value.asData()->bytes) + "</data>\n"; break;
    case PlistValue::Type::Array:
      out += indent + "<array>\n";
      for (const PlistValue& entry : *value.asArray()) writeValue(entry, depth + 1, out);
      out += indent + "</array>\n";
      break;
    case PlistValue::Type::Dictionary:
      out += indent + "<dict>\n";
      for (const auto& [key, entry] : *value.asDictionary()) {
        out += indent + "  <key>" + escapeXml(key) + "</key>\n";
        writeValue(entry, depth + 1, out);
      }
      out += indent + "</dict>\n";
      break;
  }
}

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out + "\"";
}

}  // namespace

std::string xmlPropertyList(const PlistValue& value) {
  std::string out =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n";
  writeValue(value, 0, out);
  return out + "</plist>\n";
}

std::string stringsTable(const std::vector<StringsEntry>& entries) {
  std::string out;
  for (const StringsEntry& entry : entries) {
    if (!entry.comment.empty()) out += "/* " + entry.comment + " */\n";
    out += quoted(entry.key) + " = " + quoted(entry.value) + ";\n";
  }
  return out;
}

}  // namespace bwk::bundle
