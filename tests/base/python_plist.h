#pragma once
// Property lists written by an independent writer: python3's plistlib.
#include <filesystem>
#include <stdexcept>
#include <string>

#include "test_support.h"

namespace bwk::test {

// Writes the Python expression `value` to `path` as an XML or binary property list.
// Also available in the script: datetime. Throws when python3 fails.
inline void writePythonPlist(const std::string& path, const std::string& value, bool binary) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::string script = "import plistlib, datetime, sys\nvalue = " + value +
                       "\nwith open(sys.argv[1], 'wb') as f:\n    plistlib.dump(value, f, fmt=plistlib." +
                       (binary ? "FMT_BINARY" : "FMT_XML") + ")\n";
  RunResult result = run({"/usr/bin/env", "python3", "-c", script, path});
  if (result.status != 0) throw std::runtime_error("python3 plistlib failed: " + result.err);
}

}  // namespace bwk::test
