#pragma once
// Running a program of a JDK (jdeps, jlink) and reading what it printed.
#include <optional>
#include <string>
#include <vector>

namespace bwk::bundle {

struct ProgramOutput {
  int status = 0;  // the exit status; 128 + the signal when one ended it
  std::string out, err;
};

// Absent, with the reason, when the program could not be started.
std::optional<ProgramOutput> runProgram(const std::string& program, const std::vector<std::string>& arguments,
                                        std::string* error);

}  // namespace bwk::bundle
