#include "base/plist.h"

#include <cctype>
#include <cmath>
#include <cstdio>

#include "base/strings.h"

namespace bwk {

const PlistArray* PlistValue::asArray() const {
  auto p = std::get_if<std::shared_ptr<const PlistArray>>(&value_);
  return p ? p->get() : nullptr;
}

const PlistDict* PlistValue::asDictionary() const {
  auto p = std::get_if<std::shared_ptr<const PlistDict>>(&value_);
  return p ? p->get() : nullptr;
}

const PlistValue* PlistValue::find(const std::string& key) const {
  const PlistDict* d = asDictionary();
  if (!d) return nullptr;
  auto it = d->find(key);
  return it == d->end() ? nullptr : &it->second;
}

std::optional<std::string> PlistValue::string(const std::string& key) const {
  const PlistValue* v = find(key);
  if (!v || !v->asString()) return std::nullopt;
  return *v->asString();
}

const PlistDict* PlistValue::dictionary(const std::string& key) const {
  const PlistValue* v = find(key);
  return v ? v->asDictionary() : nullptr;
}

const PlistArray* PlistValue::array(const std::string& key) const {
  const PlistValue* v = find(key);
  return v ? v->asArray() : nullptr;
}

std::optional<std::vector<std::string>> PlistValue::stringArray(const std::string& key) const {
  const PlistArray* a = array(key);
  if (!a) return std::nullopt;
  std::vector<std::string> out;
  for (const PlistValue& v : *a)
    if (v.asString()) out.push_back(*v.asString());
  return out;
}

std::optional<bool> PlistValue::boolean(const std::string& key) const {
  const PlistValue* v = find(key);
  if (!v) return std::nullopt;
  if (auto b = v->asBoolean()) return *b;
  if (auto i = v->asInteger()) return *i != 0;
  if (auto r = v->asReal()) return *r != 0.0;
  if (auto s = v->asString()) {
    size_t i = 0;
    while (i < s->size() && ((*s)[i] == ' ' || (*s)[i] == '\t')) ++i;
    if (i < s->size() && ((*s)[i] == '+' || (*s)[i] == '-')) ++i;
    while (i < s->size() && (*s)[i] == '0') ++i;
    if (i >= s->size()) return false;
    char c = (*s)[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
  }
  return std::nullopt;
}

std::optional<int64_t> PlistValue::integer(const std::string& key) const {
  const PlistValue* v = find(key);
  if (!v) return std::nullopt;
  if (auto i = v->asInteger()) return *i;
  if (auto r = v->asReal()) {
    // Converting a double outside the int64 range is undefined behaviour: clamp instead.
    if (std::isnan(*r)) return 0;
    if (*r >= 9223372036854775807.0) return INT64_MAX;
    if (*r <= -9223372036854775808.0) return INT64_MIN;
    return static_cast<int64_t>(*r);
  }
  if (auto b = v->asBoolean()) return *b ? 1 : 0;
  if (auto s = v->asString()) return text::integerValue(*s);
  return std::nullopt;
}

namespace {

std::string quoteIfNeeded(const std::string& s) {
  bool plain = !s.empty();
  for (unsigned char c : s)
    if (!(std::isalnum(c) || c == '_' || c == '.' || c == '/' || c == '$' || c == ':' || c == '-' || c >= 0x80))
      plain = false;
  if (plain) return s;
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out + "\"";
}

void describe(const PlistValue& v, int indent, std::string& out) {
  std::string pad(static_cast<size_t>(indent) * 4, ' ');
  std::string inner(static_cast<size_t>(indent + 1) * 4, ' ');
  switch (v.type()) {
    case PlistValue::Type::String: out += quoteIfNeeded(*v.asString()); break;
    case PlistValue::Type::Integer: out += std::to_string(*v.asInteger()); break;
    case PlistValue::Type::Real: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%.17g", *v.asReal());
      out += buf;
      break;
    }
    case PlistValue::Type::Boolean: out += *v.asBoolean() ? "1" : "0"; break;
    case PlistValue::Type::Date: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%.3f", v.asDate()->secondsSince2001);
      out += buf;
      break;
    }
    case PlistValue::Type::Data: {
      out += "{length = " + std::to_string(v.asData()->bytes.size()) + "}";
      break;
    }
    case PlistValue::Type::Array: {
      out += "(\n";
      const PlistArray& a = *v.asArray();
      for (size_t i = 0; i < a.size(); ++i) {
        out += inner;
        describe(a[i], indent + 1, out);
        out += i + 1 < a.size() ? ",\n" : "\n";
      }
      out += pad + ")";
      break;
    }
    case PlistValue::Type::Dictionary: {
      out += "{\n";
      for (const auto& [k, val] : *v.asDictionary()) {
        out += inner + quoteIfNeeded(k) + " = ";
        describe(val, indent + 1, out);
        out += ";\n";
      }
      out += pad + "}";
      break;
    }
  }
}

}  // namespace

std::string PlistValue::description() const {
  std::string out;
  describe(*this, 0, out);
  return out;
}

bool PlistValue::operator==(const PlistValue& other) const {
  if (type() != other.type()) return false;
  if (auto a = asArray()) return *a == *other.asArray();
  if (auto d = asDictionary()) return *d == *other.asDictionary();
  return value_ == other.value_;
}

}  // namespace bwk
