// Whether a start runs as an application with windows or in command-line mode.

#include "entry/entry.h"
#include "test_support.h"

namespace bwk::test {
namespace {

TEST(GraphicalSession, DisplayOrForcedHeadful) {
  const std::vector<std::tuple<std::optional<std::string>, std::optional<std::string>, bool>> cases = {
      {std::nullopt, std::nullopt, false}, {":0", std::nullopt, true},    {"", std::nullopt, false},
      {std::nullopt, "true", true},        {std::nullopt, "TRUE1", true}, {std::nullopt, "tru", false},
      {std::nullopt, "false", false},      {std::nullopt, "yes", false},
  };
  for (const auto& [display, forced, expected] : cases) {
    ScopedEnvironment env{{"DISPLAY", display}, {"WAYLAND_DISPLAY", std::nullopt}, {"AWT_FORCE_HEADFUL", forced}};
    EXPECT_EQ(isInGraphicalSession(), expected) << display.value_or("-") << " " << forced.value_or("-");
  }
}

}  // namespace
}  // namespace bwk::test
