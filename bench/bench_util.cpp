#include "bench_util.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace bwk::bench {

Sample runMeasured(const std::vector<std::string>& argv, const std::string& outputFile) {
  std::vector<char*> cargv;
  for (const std::string& a : argv) cargv.push_back(const_cast<char*>(a.c_str()));
  cargv.push_back(nullptr);
  auto start = std::chrono::steady_clock::now();
  pid_t pid = fork();
  if (pid == 0) {
    int out = open(outputFile.empty() ? "/dev/null" : outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(out, 2);
    execv(cargv[0], cargv.data());
    _exit(127);
  }
  int status = 0;
  struct rusage usage {};
  wait4(pid, &status, 0, &usage);
  auto end = std::chrono::steady_clock::now();
  Sample s;
  s.seconds = std::chrono::duration<double>(end - start).count();
  s.maxRssKb = usage.ru_maxrss;
  s.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return s;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::string tempDirectory(const std::string& prefix) {
  std::string pattern = "/tmp/" + prefix + "-XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
  return pattern;
}

int shell(const std::string& command) { return std::system(command.c_str()); }

}  // namespace bwk::bench
