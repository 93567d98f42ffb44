// Which ends of a process are failed starts, and the lines their alert shows.
#include "launcher/start_failure.h"

#include "test_support.h"

namespace bwk {
namespace {

const std::string kMissingClass =
    "Error: Could not find or load main class Helo\nCaused by: java.lang.ClassNotFoundException: Helo\n";
const std::string kThrown = "Exception in thread \"main\" java.lang.IllegalStateException: x\n\tat A.main(A.java:3)\n";
const std::string kVmOption = "Unrecognized VM option 'Foo'\nError: Could not create the Java Virtual Machine.\n";

TEST(StartFailure, OnlyAFailedStartGetsAnAlertWithTheTellingLinesFirst) {
  // name, the tail of standard error, cut at its start, exit status, an alert
  const std::tuple<const char*, std::string, bool, std::optional<int>, bool> cases[] = {
      {"main class missing", "app line\n" + kMissingClass, false, 1, true},
      {"exception in main", kThrown, false, 1, true},
      {"virtual machine not created, CRLF", "Error occurred during initialization of VM\r\nToo small maximum heap\r\n",
       false, 1, true},
      {"status 0", kMissingClass, false, 0, false},
      {"ended by SIGTERM", kMissingClass, false, 143, false},
      {"ended by SIGINT", kThrown, false, 130, false},
      {"ran, then System.exit(3)", "Error: config missing\nException in thread \"worker\" java.lang.Error\n", false, 3,
       false},
      {"the failure line quoted by the application", "log: " + kMissingClass, false, 1, false},
      {"the failure line cut at the start of the tail", kMissingClass, true, 1, false},
      {"a whole failure line after the cut", "ad class Helo\n" + kMissingClass, true, 1, true},
      {"no status: the runtime ends such a start itself", kVmOption, false, std::nullopt, true},
      {"no status: an exception in main is not told apart", kThrown, false, std::nullopt, false},
  };
  for (const auto& [name, tail, cut, status, alert] : cases)
    EXPECT_EQ(startFailureAlert(ProcessEnd{tail, cut, status}, "Tool", "/A/Tool.app/Contents/MacOS/Tool").has_value(),
              alert)
        << name;
  // The failure line first, then the causes, the lines just before it, and stack frames last,
  // 20 lines of 300 characters at most; the name, what failed, and how to see more around them.
  std::string tail = "one\ntwo\nthree\n" + std::string(301, '4') +
                     "\n\tat Earlier.frame(E.java:1)\n"
                     "Exception in thread \"main\" java.lang.RuntimeException: outer\n\n";
  for (int i = 0; i < 30; ++i) tail += "\tat A.f" + std::to_string(i) + "(A.java:1)\n";
  tail += "Caused by: java.lang.NoClassDefFoundError: javax/swing/ListModel\n\t... 30 more\n\n";
  const std::string more =
      "\nTo see everything the launcher and the Java runtime write, start it from a terminal with BRACKWOOD_LOG=yes";
  std::string expected =
      "Tool could not start: its main method ended with an exception (exit status 1).\n\n"
      "Exception in thread \"main\" java.lang.RuntimeException: outer\n"
      "Caused by: java.lang.NoClassDefFoundError: javax/swing/ListModel\nthree\n" +
      std::string(300, '4') + "\n";
  for (int i = 0; i < 16; ++i) expected += "\tat A.f" + std::to_string(i) + "(A.java:1)\n";
  EXPECT_EQ(startFailureAlert(ProcessEnd{tail, false, 1}, "Tool", "/A/Tool.app/Contents/MacOS/Tool"),
            expected + more + ":\nBRACKWOOD_LOG=yes '/A/Tool.app/Contents/MacOS/Tool'");
  EXPECT_EQ(startFailureAlert(ProcessEnd{kVmOption, false, std::nullopt}, std::nullopt, std::nullopt),
            "The application could not start: the Java runtime could not be started.\n\n"
            "Error: Could not create the Java Virtual Machine.\nUnrecognized VM option 'Foo'\n" +
                more + ".");
}

}  // namespace
}  // namespace bwk
