// The process entry. It stays a plain exported "main": the runtime's launcher library on
// macOS looks it up and calls it a second time.
#include "entry/entry.h"
#include "platform/notice.h"
#include "platform/platform.h"

int main(int argc, char** argv) {
  bwk::platform::reserveStandardDescriptors();
  // A start that only shows an alert for an earlier launcher process.
  if (bwk::platform::runNoticeIfRequested()) return 0;
  return bwk::processMain(argc, argv);
}
