// Standard error through the pass-through, in a child process of its own: all of it reaches
// the original in order, the tail keeps the last bytes, and nothing written is missing from
// it when finish returns.
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
  for (size_t kept : {size_t{100}, written.size(), written.size() * 2}) {
    pid_t child = ::fork();
    if (child == 0) {
      int file = ::open((tmp / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(file, STDERR_FILENO);
      if (!errorPassThrough::start(kept)) ::_exit(2);
      // Pieces of every size, the last written just before finish.
      for (size_t at = 0, piece = 1; at < written.size(); at += piece, piece = piece * 3 % 8191 + 1)
        if (::write(STDERR_FILENO, written.data() + at, std::min(piece, written.size() - at)) < 0) ::_exit(3);
      errorPassThrough::Tail tail = errorPassThrough::finish();
      std::fputs("after finish\n", stderr);
      test::writeFile(tmp / "tail", tail.text + (tail.cut ? "|cut" : "|whole"));
      ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(test::readFile(tmp / "err"), written + "after finish\n");
    std::string expected = kept < written.size() ? written.substr(written.size() - kept) + "|cut" : written + "|whole";
    EXPECT_EQ(test::readFile(tmp / "tail"), expected);
  }
}

}  // namespace
}  // namespace bwk
