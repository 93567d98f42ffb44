#pragma once
// Extraction of the gzip-compressed tar archive in which an application ships its runtime.
#include <cstdint>
#include <string>
#include <vector>

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

  // What an extraction did.
  struct Outcome {
    // Every entry was extracted and the archive ended as it should.
    bool complete = false;
    // The way that read the archive to its end (a damaged member hands over to Streaming).
    Inflation used = Inflation::Streaming;
    // The error number of the first failure to write into the destination (a full disk, an
    // I/O error): extraction stops there, and what it left is incomplete whatever the archive
    // holds. 0 when there was none.
    int destinationError = 0;
    // Each problem as written to the system log, without the function and line prefix.
    std::vector<std::string> problems;
    bool operator==(const Outcome&) const = default;
  };

  // Extracts `archive` into the existing directory `destination`. `uncompressedLength` is
  // the expected size of the tar stream, used only for percentages.
  static Outcome untar(const std::string& archive, const std::string& destination, int32_t uncompressedLength,
                       const ProgressCallback* progress);
  // The same with the way of inflating chosen (for tests and benchmarks).
  static Outcome untarWith(Inflation inflation, const std::string& archive, const std::string& destination,
                           int32_t uncompressedLength, const ProgressCallback* progress);
};

}  // namespace bwk
