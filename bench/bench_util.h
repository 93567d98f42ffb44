#pragma once
// Timing helpers shared by the benchmarks: run a command to completion, take medians.
#include <string>
#include <vector>

namespace bwk::bench {

struct Sample {
  double seconds = 0;
  long maxRssKb = 0;
  int status = -1;
};

// Runs argv with standard output and error on /dev/null (or a file when given), waits, and
// measures wall time and the child's peak resident set.
Sample runMeasured(const std::vector<std::string>& argv, const std::string& outputFile = "");
double median(std::vector<double> values);
std::string tempDirectory(const std::string& prefix);
int shell(const std::string& command);

}  // namespace bwk::bench
