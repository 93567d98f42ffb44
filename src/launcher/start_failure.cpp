#include "launcher/start_failure.h"

#include <csignal>
#include <vector>

namespace bwk {

namespace {

enum class FailureKind {
  // The runtime could not load or run the main class; it ends the process with status 1.
  MainClass,
  // The virtual machine could not be created; it ends the process with status 1.
  Runtime,
  // main threw: JLI_Launch returns 1 after the stack trace.
  MainException,
};

struct FailureLine {
  std::string_view prefix;
  FailureKind kind;
};

// How the runtime's launcher and its helper class begin the lines of a failed start.
constexpr FailureLine kFailureLines[] = {
    {"Error: Could not find or load main class", FailureKind::MainClass},
    {"Error: Unable to load main class", FailureKind::MainClass},
    {"Error: Unable to initialize main class", FailureKind::MainClass},
    {"Error: LinkageError occurred while loading main class", FailureKind::MainClass},
    {"Error: Main method not found in class", FailureKind::MainClass},
    {"Error: Main method is not ", FailureKind::MainClass},
    {"Error: Main method must return a value of type void", FailureKind::MainClass},
    {"Error: JavaFX runtime components are missing", FailureKind::MainClass},
    {"Error: Invalid or corrupt jarfile", FailureKind::MainClass},
    {"Error: Unable to access jarfile", FailureKind::MainClass},
    {"Error occurred during initialization of VM", FailureKind::Runtime},
    {"Error: Could not create the Java Virtual Machine", FailureKind::Runtime},
    {"Error: A JNI error has occurred", FailureKind::Runtime},
    {"Error: A fatal exception has occurred", FailureKind::Runtime},
    {"Exception in thread \"main\"", FailureKind::MainException},
};

std::optional<FailureKind> failureKind(std::string_view line) {
  for (const FailureLine& failure : kFailureLines)
    if (line.substr(0, failure.prefix.size()) == failure.prefix) return failure.kind;
  return std::nullopt;
}

// "\tat a.B.c(B.java:3)" and "\t... 12 more": where, not what.
bool isStackFrame(std::string_view line) {
  size_t start = line.find_first_not_of(" \t");
  if (start == std::string_view::npos) return false;
  line.remove_prefix(start);
  return line.substr(0, 3) == "at " || line.substr(0, 4) == "... ";
}

bool isBlank(std::string_view line) { return line.find_first_not_of(" \t") == std::string_view::npos; }

std::vector<std::string_view> linesOf(const ProcessEnd& end) {
  std::vector<std::string_view> lines;
  std::string_view rest = end.errorTail;
  while (!rest.empty()) {
    size_t newline = rest.find('\n');
    std::string_view line = rest.substr(0, newline);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
  }
  if (end.tailCut && !lines.empty()) lines.erase(lines.begin());
  return lines;
}

bool endedByUser(int status) { return status == 128 + SIGINT || status == 128 + SIGTERM || status == 128 + SIGHUP; }

const char* whatFailed(FailureKind kind) {
  switch (kind) {
    case FailureKind::MainClass: return "the Java runtime could not load or run its main class";
    case FailureKind::Runtime: return "the Java runtime could not be started";
    case FailureKind::MainException: return "its main method ended with an exception";
  }
  return "";
}

// The most telling lines first: the failure line, the exception and its causes after it, a
// few lines just before it (what the runtime said first, such as an unknown option), then the
// stack frames.
std::vector<std::string_view> tellingLines(const std::vector<std::string_view>& lines, size_t failure) {
  constexpr size_t kLinesBefore = 3;
  constexpr size_t kLineLength = 300;
  std::vector<std::string_view> picked{lines[failure]};
  auto pick = [&](std::string_view line) {
    if (picked.size() < kStartFailureLines) picked.push_back(line.substr(0, kLineLength));
  };
  for (size_t i = failure + 1; i < lines.size(); ++i)
    if (!isStackFrame(lines[i]) && !isBlank(lines[i])) pick(lines[i]);
  for (size_t i = failure > kLinesBefore ? failure - kLinesBefore : 0; i < failure; ++i)
    if (!isStackFrame(lines[i]) && !isBlank(lines[i])) pick(lines[i]);
  for (size_t i = failure + 1; i < lines.size(); ++i)
    if (isStackFrame(lines[i])) pick(lines[i]);
  return picked;
}

}  // namespace

std::optional<std::string> startFailureAlert(const ProcessEnd& end, const std::optional<std::string>& applicationName,
                                             const std::optional<std::string>& executablePath) {
  std::vector<std::string_view> lines = linesOf(end);
  size_t failure = 0;
  std::optional<FailureKind> kind;
  for (; failure < lines.size() && !kind; ++failure) kind = failureKind(lines[failure]);
  if (!kind) return std::nullopt;
  --failure;
  if (end.status) {
    if (*end.status == 0 || endedByUser(*end.status)) return std::nullopt;
  } else if (*kind == FailureKind::MainException) {
    // Without a status an exception in main cannot be told from one in an application that
    // ran for a while and ended otherwise.
    return std::nullopt;
  }

  std::string name = applicationName.value_or("The application");
  std::string text = name + " could not start: " + whatFailed(*kind);
  text += end.status ? " (exit status " + std::to_string(*end.status) + ").\n\n" : ".\n\n";
  for (std::string_view line : tellingLines(lines, failure)) {
    text += line;
    text += '\n';
  }
  text +=
      "\nTo see everything the launcher and the Java runtime write, start it from a terminal with "
      "BRACKWOOD_LOG=yes";
  text += executablePath ? ":\nBRACKWOOD_LOG=yes '" + *executablePath + "'" : ".";
  return text;
}

}  // namespace bwk
