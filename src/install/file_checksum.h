#pragma once
// What identifies a file's content cheaply enough to be asked at every start: its size and
// the CRC-32 of all its bytes.
#include <cstdint>
#include <optional>
#include <string>

namespace bwk {

struct FileChecksum {
  uint64_t size = 0;   // the whole file
  uint32_t crc32 = 0;  // of the bytes before the last `leaveOut`
};

// The checksum of the regular file at `path` (links followed), leaving out its last
// `leaveOut` bytes; absent when it is not a regular file or cannot be read.
std::optional<FileChecksum> checksumFile(const std::string& path, uint64_t leaveOut = 0);

}  // namespace bwk
