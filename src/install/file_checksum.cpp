#include "install/file_checksum.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "install/unique_handles.h"

namespace bwk {

namespace {

// Large enough that the system calls cost nothing beside the checksum, small enough to stay
// in the processor's cache between the copy and the checksum.
constexpr size_t kChunk = 256 * 1024;

}  // namespace

std::optional<FileChecksum> checksumFile(const std::string& path, uint64_t leaveOut) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st;
  // A pipe or a device has no content that stays the same.
  if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
  FileChecksum sum;
  sum.size = static_cast<uint64_t>(st.st_size);
  uint64_t left = sum.size > leaveOut ? sum.size - leaveOut : 0;
  std::unique_ptr<unsigned char[]> buffer(new unsigned char[kChunk]);
  while (left > 0) {
    ssize_t n = ::read(fd.get(), buffer.get(), left < kChunk ? static_cast<size_t>(left) : kChunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    // libdeflate's CRC-32 uses the processor's carry-less multiplication: about four times
    // zlib's speed here.
    sum.crc32 = libdeflate_crc32(sum.crc32, buffer.get(), static_cast<size_t>(n));
    left -= static_cast<uint64_t>(n);
  }
  return sum;
}

}  // namespace bwk
