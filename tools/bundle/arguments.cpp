#include "arguments.h"

#include <algorithm>

namespace bwk::bundle {

std::optional<std::string> ParsedArguments::value(const std::string& name) const {
  auto found = values.find(name);
  if (found == values.end() || found->second.empty()) return std::nullopt;
  return found->second.back();
}

std::vector<std::string> ParsedArguments::all(const std::string& name) const {
  auto found = values.find(name);
  return found == values.end() ? std::vector<std::string>{} : found->second;
}

std::optional<ParsedArguments> parseArguments(std::span<const OptionDefinition> definitions,
                                              std::span<const std::string> words, std::string* error) {
  ParsedArguments parsed;
  bool optionsEnded = false;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (optionsEnded || word.size() < 2 || word[0] != '-') {
      parsed.words.push_back(word);
      continue;
    }
    if (word == "--") {
      optionsEnded = true;
      continue;
    }
    if (word == "--help" || word == "-h") {
      parsed.help = true;
      continue;
    }
    size_t equals = word.find('=');
    std::string name = word.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
    auto definition =
        std::find_if(definitions.begin(), definitions.end(), [&](const OptionDefinition& s) { return name == s.name; });
    if (word.compare(0, 2, "--") != 0 || definition == definitions.end()) {
      *error = "unknown option " + word;
      return std::nullopt;
    }
    std::vector<std::string>& values = parsed.values[name];
    if (!values.empty() && !definition->repeatable) {
      *error = "--" + name + " is given twice";
      return std::nullopt;
    }
    if (!definition->valueName) {
      if (equals != std::string::npos) {
        *error = "--" + name + " takes no value";
        return std::nullopt;
      }
      values.emplace_back();
    } else if (equals != std::string::npos) {
      values.push_back(word.substr(equals + 1));
    } else if (i + 1 < words.size()) {
      values.push_back(words[++i]);
    } else {
      *error = "--" + name + " needs a value";
      return std::nullopt;
    }
  }
  return parsed;
}

std::string helpText(const std::string& synopsis, std::span<const OptionDefinition> definitions) {
  std::string out = synopsis + "\n\n";
  for (const OptionDefinition& definition : definitions) {
    std::string left =
        std::string("  --") + definition.name + (definition.valueName ? std::string(" ") + definition.valueName : "");
    if (left.size() < 28)
      left.resize(28, ' ');
    else
      left += "\n" + std::string(28, ' ');
    out += left + definition.help + "\n";
  }
  return out;
}

}  // namespace bwk::bundle
