#pragma once
// Every key the launcher reads from a configuration (Info.plist, or the one embedded in a
// command-line launcher), with the type its lookup takes, and the bundle keys the operating
// system reads. One table, for the tools that write and check configurations.
#include <span>
#include <string_view>

namespace bwk {

enum class KeyScope { TopLevel, JavaVM };

enum class KeyType {
  String,
  Boolean,         // booleans, numbers, and strings read by their first letter
  Number,          // numbers, and strings read by their leading integer
  StringArray,     // an array of strings; entries of another type are left out
  VersionOptions,  // pairs of a pattern string and an array of strings
  SearchSequence,  // strings beginning with Y, I, R or E
  Dictionary,
  Array,  // (system keys) any array
};

struct ConfigurationKey {
  const char* name;
  KeyScope scope;
  KeyType type;
};

std::span<const ConfigurationKey> configurationKeys();
const ConfigurationKey* findConfigurationKey(KeyScope scope, std::string_view name);
// The text a person reads for a type ("a string", "an array of strings").
const char* describeKeyType(KeyType type);

}  // namespace bwk
