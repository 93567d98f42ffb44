#pragma once
// Extraction of the gzip-compressed tar archive in which an application ships its runtime.
#include <zlib.h>

#include <cstdint>
#include <string>

#include "base/progress.h"

namespace bwk {

uint64_t parseOctal(const char* bytes, int length);

class UnTar {
 public:
  // Extracts `archive` into the existing directory `destination`. `uncompressedLength` is
  // the expected size of the tar stream, used only for percentages. True on success.
  static bool untar(const std::string& archive, const std::string& destination, int32_t uncompressedLength,
                    const ProgressCallback* progress);
  // Writes `length` bytes of the stream to a new file at `path`; leaves the stream at the
  // end of the entry's data.
  static bool extractFile(gzFile stream, const std::string& path, uint64_t length, uint64_t permissions,
                          int32_t uncompressedLength, const ProgressCallback* progress);
  static bool skip(gzFile stream, uint64_t length);
};

}  // namespace bwk
