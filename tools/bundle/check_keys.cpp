// Configuration keys against the launcher's table: unknown ones, and values of a type the
// launcher reads as missing (or misreads).
#include <algorithm>
#include <cctype>

#include "base/strings.h"
#include "check_steps.h"
#include "launcher/configuration_keys.h"

namespace bwk::bundle {

namespace {

const char* typeName(const PlistValue& value) {
  switch (value.type()) {
    case PlistValue::Type::String: return "a string";
    case PlistValue::Type::Integer: return "an integer";
    case PlistValue::Type::Real: return "a real number";
    case PlistValue::Type::Boolean: return "a boolean";
    case PlistValue::Type::Date: return "a date";
    case PlistValue::Type::Data: return "data";
    case PlistValue::Type::Array: return "an array";
    case PlistValue::Type::Dictionary: return "a dictionary";
  }
  return "?";
}

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The operating system's keys begin with two capitals ("CFBundle...", "NSHigh...", "LSMin...").
bool looksLikeSystemKey(const std::string& key) {
  return key.size() > 2 && std::isupper(static_cast<unsigned char>(key[0])) &&
         std::isupper(static_cast<unsigned char>(key[1]));
}

class KeyChecker {
 public:
  KeyChecker(const std::string& file, Findings& findings) : file_(file), findings_(findings) {}

  void checkDictionary(const PlistDict& dict, KeyScope scope, const std::string& prefix) {
    for (const auto& [key, value] : dict) {
      std::string where = prefix + key;
      const ConfigurationKey* known = findConfigurationKey(scope, key);
      KeyScope other = scope == KeyScope::TopLevel ? KeyScope::JavaVM : KeyScope::TopLevel;
      if (!known) {
        if (const ConfigurationKey* misplaced = findConfigurationKey(other, key); misplaced) {
          findings_.add(file_, where,
                        scope == KeyScope::TopLevel ? "belongs in the JavaVM dictionary: ignored here"
                                                    : "belongs at the top level: ignored here");
          continue;
        }
        std::optional<std::string> suggestion = nearestName(key, namesIn(scope));
        if (looksLikeSystemKey(key) && !suggestion) continue;
        findings_.add(file_, where, "unknown key: the launcher does not read it").suggestion = suggestion;
        continue;
      }
      checkValue(*known, value, where);
      if (known->type == KeyType::Dictionary && key == "JavaVM" && value.asDictionary())
        checkDictionary(*value.asDictionary(), KeyScope::JavaVM, "JavaVM.");
    }
  }

 private:
  static std::vector<std::string> namesIn(KeyScope scope) {
    std::vector<std::string> names;
    for (const ConfigurationKey& key : configurationKeys())
      if (key.scope == scope) names.push_back(key.name);
    return names;
  }

  void wrongType(const std::string& where, const PlistValue& value, KeyType wanted, const std::string& effect) {
    findings_.add(file_, where,
                  std::string("is ") + typeName(value) + ", not " + describeKeyType(wanted) + ": " + effect);
  }

  // Entries of a list that the launcher leaves out.
  void checkStrings(const PlistArray& list, const std::string& where) {
    for (size_t i = 0; i < list.size(); ++i)
      if (!list[i].isString())
        findings_.add(file_, where + "[" + std::to_string(i) + "]",
                      std::string("is ") + typeName(list[i]) + ", not a string: left out");
  }

  void checkValue(const ConfigurationKey& key, const PlistValue& value, const std::string& where) {
    const PlistDict wrapped{{key.name, value}};
    const PlistValue holder(wrapped);
    switch (key.type) {
      case KeyType::String:
        if (!value.isString()) wrongType(where, value, key.type, "read as missing");
        break;
      case KeyType::Boolean:
        if (!holder.boolean(key.name)) {
          wrongType(where, value, key.type, "read as missing");
        } else if (const std::string* s = value.asString()) {
          std::string word = lower(text::trimHorizontal(*s));
          if (word != "yes" && word != "no" && word != "true" && word != "false" && word != "1" && word != "0")
            findings_.add(file_, where,
                          "the string '" + *s + "' is read by its first letter, as " +
                              (*holder.boolean(key.name) ? "true" : "false") + "; write <true/> or <false/>");
        }
        break;
      case KeyType::Number:
        if (!holder.integer(key.name)) {
          wrongType(where, value, key.type, "read as missing");
        } else if (const std::string* s = value.asString()) {
          std::string digits = text::trimHorizontal(*s);
          if (digits.empty() ||
              !std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isdigit(c); }))
            findings_.add(file_, where,
                          "the string '" + *s + "' is read as the number " + std::to_string(*holder.integer(key.name)) +
                              "; write an <integer>");
        }
        break;
      case KeyType::StringArray:
        if (!value.asArray())
          wrongType(where, value, key.type, "read as missing");
        else
          checkStrings(*value.asArray(), where);
        break;
      case KeyType::VersionOptions: checkVersionOptions(value, where); break;
      case KeyType::SearchSequence: checkSearchSequence(value, where); break;
      case KeyType::Dictionary:
        if (!value.isDictionary()) wrongType(where, value, key.type, "read as missing");
        break;
      case KeyType::Array:
        if (!value.isArray()) wrongType(where, value, key.type, "the system ignores it");
        break;
    }
  }

  void checkVersionOptions(const PlistValue& value, const std::string& where) {
    const PlistArray* list = value.asArray();
    if (!list) return wrongType(where, value, KeyType::VersionOptions, "read as missing");
    if (list->size() % 2) findings_.add(file_, where, "has an odd number of entries: the last one is ignored");
    for (size_t i = 0; i + 1 < list->size(); i += 2) {
      std::string at = where + "[" + std::to_string(i) + "]";
      const std::string* pattern = (*list)[i].asString();
      if (!pattern) {
        findings_.add(file_, at,
                      std::string("is ") + typeName((*list)[i]) + ", not a pattern string: the pair is skipped");
      } else if (!text::startsWith(*pattern, "*") && text::split(*pattern, "-").size() != 2) {
        findings_.add(file_, at,
                      "'" + *pattern + "' is neither a range like 11-17 nor a '*' match: the pair is skipped");
      }
      std::string optionsAt = where + "[" + std::to_string(i + 1) + "]";
      if (const PlistArray* options = (*list)[i + 1].asArray())
        checkStrings(*options, optionsAt);
      else
        findings_.add(file_, optionsAt,
                      std::string("is ") + typeName((*list)[i + 1]) + ", not an array of options: no options");
    }
  }

  void checkSearchSequence(const PlistValue& value, const std::string& where) {
    const PlistArray* list = value.asArray();
    if (!list) return wrongType(where, value, KeyType::SearchSequence, "the default search is used");
    for (size_t i = 0; i < list->size(); ++i) {
      const std::string* entry = (*list)[i].asString();
      if (!entry || entry->empty() || std::string("YIRE").find((*entry)[0]) == std::string::npos)
        findings_.add(file_, where + "[" + std::to_string(i) + "]", "is no Y, I, R<dir> or E<variable> entry: skipped");
    }
  }

  const std::string& file_;
  Findings& findings_;
};

}  // namespace

std::optional<std::string> nearestName(const std::string& name, const std::vector<std::string>& known) {
  std::optional<std::string> best;
  size_t bestDistance = 0;
  for (const std::string& candidate : known) {
    size_t distance = editDistance(lower(name), lower(candidate));
    if (!best || distance < bestDistance) {
      best = candidate;
      bestDistance = distance;
    }
  }
  if (!best || bestDistance > std::max<size_t>(2, name.size() / 4)) return std::nullopt;
  return best;
}

void checkConfigurationKeys(const PlistValue& configuration, const std::string& file, Findings& findings) {
  const PlistDict* dict = configuration.asDictionary();
  if (!dict) return;
  KeyChecker(file, findings).checkDictionary(*dict, KeyScope::TopLevel, "");
  if (!configuration.find("CFBundleName"))
    findings.add(file, "CFBundleName", "missing: messages and the window name the application '(null)'");
  if (!configuration.find("JavaVM")) findings.add(file, "JavaVM", "missing: no main class, class path or options");
}

}  // namespace bwk::bundle
