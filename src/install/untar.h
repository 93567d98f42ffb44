#pragma once
// Extraction of the gzip-compressed tar archive in which an application ships its runtime.
#include <cstdint>
#include <string>

#include "base/progress.h"

namespace bwk {

uint64_t parseOctal(const char* bytes, int length);

class UnTar {
 public:
  // How the archive is inflated, the fastest way first. Indexed inflates the members of an
  // archive that carries an index on several threads; WholeBuffer inflates one gzip member
  // into memory in one piece; Streaming reads any archive through zlib. Each way takes what
  // it can and leaves the rest to the ways after it.
  enum class Inflation { Indexed, WholeBuffer, Streaming };

  // Extracts `archive` into the existing directory `destination`. `uncompressedLength` is
  // the expected size of the tar stream, used only for percentages. True on success.
  // `destinationError`, when given, receives the error number of a failure to write into
  // the destination (a full disk, an I/O error): extraction stops at the first, and what it
  // left is then incomplete whatever the archive holds. 0 when there was none.
  static bool untar(const std::string& archive, const std::string& destination, int32_t uncompressedLength,
                    const ProgressCallback* progress, int* destinationError = nullptr);
  // The same with the way of inflating chosen (for tests and benchmarks); `used`, when
  // given, receives the way that ran.
  static bool untarWith(Inflation inflation, const std::string& archive, const std::string& destination,
                        int32_t uncompressedLength, const ProgressCallback* progress, Inflation* used = nullptr,
                        int* destinationError = nullptr);
};

}  // namespace bwk
