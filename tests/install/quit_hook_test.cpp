// The quit hook: a support library loaded by the Java side decides whether quitting waits.
#include "frontend/linux/quit_hook.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "test_support.h"

namespace bwk::test {
namespace {

TEST(QuitHook, TheLoadedSupportLibraryDecides) {
  EXPECT_FALSE(callQuitHook()) << "nothing loaded yet: quit now";
  TempDir tmp;
  writeFile(tmp / "hook.c", "#include <stdbool.h>\n#include <stdlib.h>\n"
                            "bool callBrackwoodQuitHandler(void) { return getenv(\"BWK_TEST_HOOK_ANSWER\") != NULL; }\n");
  RunResult cc = shell("cc -shared -fPIC -o " + tmp / "libbwkinst.so" + " " + tmp / "hook.c");
  ASSERT_EQ(cc.status, 0) << cc.err;
  // Found by the end of its path only; the search loads nothing itself.
  ASSERT_NE(dlopen((tmp / "libbwkinst.so").c_str(), RTLD_NOW | RTLD_LOCAL), nullptr) << dlerror();
  for (bool agrees : {false, true, false}) {
    if (agrees) setenv("BWK_TEST_HOOK_ANSWER", "1", 1);
    else unsetenv("BWK_TEST_HOOK_ANSWER");
    EXPECT_EQ(callQuitHook(), agrees);
  }
  unsetenv("BWK_TEST_HOOK_ANSWER");
}

}  // namespace
}  // namespace bwk::test
