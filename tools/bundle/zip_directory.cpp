// The end record is found by searching backwards from the end (it may be followed by a
// comment of up to 64 KiB); zip64 archives keep the real directory position in a second end
// record that a locator just before the first one points to.
#include "zip_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace bwk::bundle {

namespace {

constexpr uint32_t kEndSignature = 0x06054b50;
constexpr uint32_t kZip64EndSignature = 0x06064b50;
constexpr uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr uint32_t kEntrySignature = 0x02014b50;
constexpr size_t kEndSize = 22, kLocatorSize = 20, kZip64EndSize = 56, kEntrySize = 46;

uint16_t u16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t u32(const uint8_t* p) { return u16(p) | (static_cast<uint32_t>(u16(p + 2)) << 16); }
uint64_t u64(const uint8_t* p) { return u32(p) | (static_cast<uint64_t>(u32(p + 4)) << 32); }

class File {
 public:
  explicit File(const std::string& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~File() {
    if (fd_ >= 0) ::close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  bool ok() const { return fd_ >= 0; }
  std::optional<uint64_t> size() const {
    struct stat st {};
    if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return static_cast<uint64_t>(st.st_size);
  }
  bool read(uint64_t offset, std::vector<uint8_t>& out, size_t length) const {
    out.resize(length);
    size_t done = 0;
    while (done < length) {
      ssize_t n = ::pread(fd_, out.data() + done, length - done, static_cast<off_t>(offset + done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    return true;
  }

 private:
  int fd_;
};

bool fail(std::string* error, const std::string& reason) {
  if (error) *error = reason;
  return false;
}

// Where the central directory starts, how long it is and how many entries it holds.
struct Directory {
  uint64_t offset = 0, size = 0, count = 0;
};

bool findDirectory(const File& file, uint64_t fileSize, Directory& directory, std::string* error) {
  if (fileSize < kEndSize) return fail(error, "too short for a zip file");
  uint64_t tailSize = std::min<uint64_t>(fileSize, kEndSize + 0xffff);
  std::vector<uint8_t> tail;
  if (!file.read(fileSize - tailSize, tail, tailSize)) return fail(error, "cannot be read");
  for (size_t at = tail.size() - kEndSize + 1; at-- > 0;) {
    if (u32(tail.data() + at) != kEndSignature) continue;
    directory.count = u16(tail.data() + at + 10);
    directory.size = u32(tail.data() + at + 12);
    directory.offset = u32(tail.data() + at + 16);
    uint64_t endOffset = fileSize - tailSize + at;
    bool zip64 = directory.count == 0xffff || directory.size == 0xffffffff || directory.offset == 0xffffffff;
    if (zip64) {
      std::vector<uint8_t> record;
      if (endOffset < kLocatorSize || !file.read(endOffset - kLocatorSize, record, kLocatorSize) ||
          u32(record.data()) != kZip64LocatorSignature)
        return fail(error, "a zip64 archive without its locator");
      uint64_t zip64End = u64(record.data() + 8);
      if (zip64End > fileSize || !file.read(zip64End, record, kZip64EndSize) || u32(record.data()) != kZip64EndSignature)
        return fail(error, "a zip64 archive without its end record");
      directory.count = u64(record.data() + 32);
      directory.size = u64(record.data() + 40);
      directory.offset = u64(record.data() + 48);
    }
    if (directory.offset > fileSize || directory.size > fileSize - directory.offset)
      return fail(error, "its central directory lies outside the file");
    return true;
  }
  return fail(error, "not a zip file (no end of central directory)");
}

}  // namespace

std::optional<std::vector<std::string>> zipEntryNames(const std::string& path, std::string* error) {
  File file(path);
  if (!file.ok()) {
    fail(error, std::strerror(errno));
    return std::nullopt;
  }
  std::optional<uint64_t> fileSize = file.size();
  if (!fileSize) {
    fail(error, "not a regular file");
    return std::nullopt;
  }
  Directory directory;
  if (!findDirectory(file, *fileSize, directory, error)) return std::nullopt;
  std::vector<uint8_t> bytes;
  if (!file.read(directory.offset, bytes, static_cast<size_t>(directory.size))) {
    fail(error, "its central directory cannot be read");
    return std::nullopt;
  }
  std::vector<std::string> names;
  size_t at = 0;
  for (uint64_t i = 0; i < directory.count; ++i) {
    if (bytes.size() - at < kEntrySize || u32(bytes.data() + at) != kEntrySignature) {
      fail(error, "its central directory is damaged");
      return std::nullopt;
    }
    size_t nameLength = u16(bytes.data() + at + 28);
    size_t rest = nameLength + u16(bytes.data() + at + 30) + u16(bytes.data() + at + 32);
    if (bytes.size() - at - kEntrySize < rest) {
      fail(error, "its central directory is damaged");
      return std::nullopt;
    }
    names.emplace_back(reinterpret_cast<const char*>(bytes.data() + at + kEntrySize), nameLength);
    at += kEntrySize + rest;
  }
  return names;
}

}  // namespace bwk::bundle
