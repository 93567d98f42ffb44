// brackwood-bundle: builds an application bundle around the launcher in one command, and
// checks a bundle the way the launcher will read it.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "commands.h"
#include "tool_error.h"

namespace {

constexpr const char* kUsage =
    "usage: brackwood-bundle create --name NAME --main-class CLASS --jar PATH... --output DIR [options]\n"
    "       brackwood-bundle check APP [--json]\n"
    "       brackwood-bundle COMMAND --help\n";

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  std::span<const std::string> rest(words.data() + 1, words.size() - 1);
  try {
    if (words[0] == "create") return bwk::bundle::runCreate(rest);
    if (words[0] == "check") return bwk::bundle::runCheck(rest);
    std::fprintf(stderr, "brackwood-bundle: unknown command %s\n%s", words[0].c_str(), kUsage);
    return 2;
  } catch (const bwk::bundle::ToolError& e) {
    std::fprintf(stderr, "brackwood-bundle %s: %s\n", words[0].c_str(), e.what());
    if (e.status() == 2) std::fprintf(stderr, "(brackwood-bundle %s --help lists the options)\n", words[0].c_str());
    return e.status();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "brackwood-bundle %s: %s\n", words[0].c_str(), e.what());
    return 1;
  }
}
