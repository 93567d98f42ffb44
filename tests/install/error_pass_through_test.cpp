// Standard error through the pass-through, in a child process of its own: all of it reaches the original in order, the
// tail keeps the last bytes, and nothing written is missing from it when finish returns.
#include "install/error_pass_through.h"

#include <fcntl.h>
#include <sys/wait.h>

#include "test_support.h"

namespace bwk {
namespace {

TEST(ErrorPassThrough, PassesEverythingOnAndKeepsTheLastBytes) {
  test::TempDir tmp;
  std::string written;
  for (int i = 0; i < 20000; ++i) written += "line " + std::to_string(i) + "\n";
  // kept bytes, and slow: 4-byte pieces, a pause after each (one read each), so the tail is cut before finish.
  const std::pair<size_t, bool> cases[] = {
      {100, false}, {written.size(), false}, {written.size() * 2, false}, {10, true}};
  for (const auto& [kept, slow] : cases) {
    const std::string text = slow ? written.substr(0, 24) : written;
    pid_t child = ::fork();
    if (child == 0) {
      int file = ::open((tmp / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(file, STDERR_FILENO);
      // A second start changes nothing.
      if (!errorPassThrough::start(kept) || !errorPassThrough::start(kept + 1)) ::_exit(2);
      // Pieces of every size, the last written just before finish.
      for (size_t at = 0, piece = slow ? 4 : 1; at < text.size();
           at += piece, piece = slow ? 4 : piece * 3 % 8191 + 1) {
        if (::write(STDERR_FILENO, text.data() + at, std::min(piece, text.size() - at)) < 0) ::_exit(3);
        if (slow) ::usleep(10000);
      }
      errorPassThrough::Tail tail = errorPassThrough::finish();
      std::fputs("after finish\n", stderr);
      test::writeFile(tmp / "tail", tail.text + (tail.cut ? "|cut" : "|whole"));
      ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(test::readFile(tmp / "err"), text + "after finish\n");
    std::string expected = kept < text.size() ? text.substr(text.size() - kept) + "|cut" : text + "|whole";
    EXPECT_EQ(test::readFile(tmp / "tail"), expected) << kept;
  }
}

}  // namespace
}  // namespace bwk
