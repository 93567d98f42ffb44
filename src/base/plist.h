#pragma once
// The property-list value: what Info.plist files, embedded configurations, the
// installation records and .strings tables hold once read.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace bwk {

class PlistValue;
using PlistArray = std::vector<PlistValue>;
using PlistDict = std::map<std::string, PlistValue>;

struct PlistDate {
  double secondsSince2001 = 0;  // the reference date of the platform, UTC
  bool operator==(const PlistDate&) const = default;
};
struct PlistData {
  std::vector<uint8_t> bytes;
  bool operator==(const PlistData&) const = default;
};

class PlistValue {
 public:
  enum class Type { String, Integer, Real, Boolean, Date, Data, Array, Dictionary };

  PlistValue() : value_(std::string()) {}
  PlistValue(std::string s) : value_(std::move(s)) {}
  PlistValue(const char* s) : value_(std::string(s)) {}
  PlistValue(int64_t i) : value_(i) {}
  PlistValue(int i) : value_(int64_t{i}) {}
  PlistValue(double d) : value_(d) {}
  PlistValue(bool b) : value_(b) {}
  PlistValue(PlistDate d) : value_(d) {}
  PlistValue(PlistData d) : value_(std::move(d)) {}
  PlistValue(PlistArray a) : value_(std::make_shared<const PlistArray>(std::move(a))) {}
  PlistValue(PlistDict d) : value_(std::make_shared<const PlistDict>(std::move(d))) {}

  Type type() const { return static_cast<Type>(value_.index()); }
  bool isString() const { return type() == Type::String; }
  bool isDictionary() const { return type() == Type::Dictionary; }
  bool isArray() const { return type() == Type::Array; }

  // Direct access; each returns null when the value has another type.
  const std::string* asString() const { return std::get_if<std::string>(&value_); }
  const int64_t* asInteger() const { return std::get_if<int64_t>(&value_); }
  const double* asReal() const { return std::get_if<double>(&value_); }
  const bool* asBoolean() const { return std::get_if<bool>(&value_); }
  const PlistDate* asDate() const { return std::get_if<PlistDate>(&value_); }
  const PlistData* asData() const { return std::get_if<PlistData>(&value_); }
  const PlistArray* asArray() const;
  const PlistDict* asDictionary() const;

  // Typed lookups in a dictionary value. A missing key, a value of another type, or a
  // receiver that is no dictionary all give "absent": the "a value of another type
  // counts as missing" rule of the configuration lives here.
  const PlistValue* find(const std::string& key) const;
  std::optional<std::string> string(const std::string& key) const;
  const PlistDict* dictionary(const std::string& key) const;
  const PlistArray* array(const std::string& key) const;
  // An array of strings; entries of another type are left out.
  std::optional<std::vector<std::string>> stringArray(const std::string& key) const;
  // The platform's boolValue: booleans as they are, numbers when non-zero, strings that
  // begin with Y, y, T, t or a digit 1-9 after blanks. Absent for other types.
  std::optional<bool> boolean(const std::string& key) const;
  // The platform's intValue/integerValue: numbers (reals truncated) and the leading integer of
  // strings. Absent for other types.
  std::optional<int64_t> integer(const std::string& key) const;

  // The platform's description text, used where "%@" shows a value in a log line.
  std::string description() const;

  bool operator==(const PlistValue& other) const;

 private:
  std::variant<std::string, int64_t, double, bool, PlistDate, PlistData, std::shared_ptr<const PlistArray>,
               std::shared_ptr<const PlistDict>>
      value_;
};

}  // namespace bwk
