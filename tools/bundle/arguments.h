#pragma once
// The command line of a command: "--name value" or "--name=value" options from a table, and
// the words that are no options.
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bwk::bundle {

struct OptionDefinition {
  const char* name;       // without the leading "--"
  const char* valueName;  // null for a flag
  bool repeatable;
  const char* help;
};

struct ParsedArguments {
  std::map<std::string, std::vector<std::string>> values;  // a flag given holds one empty value
  std::vector<std::string> words;
  bool help = false;

  bool has(const std::string& name) const { return values.count(name) != 0; }
  std::optional<std::string> value(const std::string& name) const;
  std::vector<std::string> all(const std::string& name) const;
};

// Absent, with the reason, for an unknown option, a missing value or an option given twice
// that may be given once. "--help" or "-h" anywhere sets `help`. "--" ends the options.
std::optional<ParsedArguments> parseArguments(std::span<const OptionDefinition> definitions,
                                              std::span<const std::string> words, std::string* error);

// The help text: the synopsis, then one line per option.
std::string helpText(const std::string& synopsis, std::span<const OptionDefinition> definitions);

}  // namespace bwk::bundle
