#pragma once
// How a command ends early: with a message and the exit status main returns (2 for a command
// line that cannot be used, 1 for everything else).
#include <stdexcept>
#include <string>

namespace bwk::bundle {

class ToolError : public std::runtime_error {
 public:
  ToolError(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

inline ToolError usageError(const std::string& message) { return ToolError(2, message); }
inline ToolError failure(const std::string& message) { return ToolError(1, message); }

}  // namespace bwk::bundle
