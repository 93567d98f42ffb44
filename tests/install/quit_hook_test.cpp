// The quit hook: a support library loaded by the Java side decides whether quitting waits.
#include "frontend/linux/quit_hook.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "test_support.h"

namespace bwk::test {
namespace {

TEST(QuitHook, TheLoadedSupportLibraryDecides) {
  // Nothing loaded yet: quit now.
  EXPECT_FALSE(callQuitHook());

  TempDir tmp;
  writeFile(tmp / "hook.c",
            "#include <stdbool.h>\n#include <stdlib.h>\n"
            "bool callBrackwoodQuitHandler(void) { return getenv(\"BWK_TEST_HOOK_ANSWER\") != NULL; }\n");
  RunResult cc = shell("cc -shared -fPIC -o " + tmp / "libbwkinst.so" + " " + tmp / "hook.c");
  ASSERT_EQ(cc.status, 0) << cc.err;
  // Found by the end of its path only; the search loads nothing itself.
  void* library = dlopen((tmp / "libbwkinst.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();

  struct Case {
    bool hookAgrees;
    bool later;
  };
  for (Case c : {Case{false, false}, Case{true, true}, Case{false, false}}) {
    if (c.hookAgrees) setenv("BWK_TEST_HOOK_ANSWER", "1", 1);
    else unsetenv("BWK_TEST_HOOK_ANSWER");
    EXPECT_EQ(callQuitHook(), c.later) << c.hookAgrees;
  }
  unsetenv("BWK_TEST_HOOK_ANSWER");
}

}  // namespace
}  // namespace bwk::test
