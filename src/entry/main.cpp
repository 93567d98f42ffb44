// The process entry. It stays a plain exported "main": the runtime's launcher library on
// macOS looks it up and calls it a second time.
#include "entry/entry.h"

int main(int argc, char** argv) { return bwk::processMain(argc, argv); }
