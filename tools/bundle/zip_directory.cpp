// The end record is found by searching backwards from the end (it may be followed by a
// comment of up to 64 KiB); zip64 archives keep the real directory position in a second end
// record that a locator just before the first one points to. Zip64 sizes of single entries
// are not read: no manifest comes near 4 GiB.
#include "zip_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

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
      if (zip64End > fileSize || !file.read(zip64End, record, kZip64EndSize) ||
          u32(record.data()) != kZip64EndSignature)
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

// One entry of the central directory: what is needed to find and read its data.
struct CentralEntry {
  std::string name;
  uint16_t method = 0;
  uint64_t compressedSize = 0, size = 0, localHeader = 0;
};

std::optional<std::vector<CentralEntry>> centralEntries(const File& file, std::string* error) {
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
  std::vector<CentralEntry> entries;
  size_t at = 0;
  for (uint64_t i = 0; i < directory.count; ++i) {
    if (bytes.size() - at < kEntrySize || u32(bytes.data() + at) != kEntrySignature) {
      fail(error, "its central directory is damaged");
      return std::nullopt;
    }
    const uint8_t* record = bytes.data() + at;
    size_t nameLength = u16(record + 28);
    size_t rest = nameLength + u16(record + 30) + u16(record + 32);
    if (bytes.size() - at - kEntrySize < rest) {
      fail(error, "its central directory is damaged");
      return std::nullopt;
    }
    entries.push_back({std::string(reinterpret_cast<const char*>(record + kEntrySize), nameLength), u16(record + 10),
                       u32(record + 20), u32(record + 24), u32(record + 42)});
    at += kEntrySize + rest;
  }
  return entries;
}

// Stored or deflated data, as jars hold it.
std::optional<std::string> entryData(const File& file, const CentralEntry& entry, std::string* error) {
  constexpr size_t kLocalSize = 30;
  constexpr uint64_t kLargest = 64 << 20;  // more than any manifest needs
  std::vector<uint8_t> local;
  if (!file.read(entry.localHeader, local, kLocalSize) || u32(local.data()) != 0x04034b50) {
    fail(error, entry.name + ": its local header is damaged");
    return std::nullopt;
  }
  if (entry.compressedSize > kLargest || entry.size > kLargest) {
    fail(error, entry.name + ": too large");
    return std::nullopt;
  }
  std::vector<uint8_t> packed;
  if (!file.read(entry.localHeader + kLocalSize + u16(local.data() + 26) + u16(local.data() + 28), packed,
                 static_cast<size_t>(entry.compressedSize))) {
    fail(error, entry.name + ": cannot be read");
    return std::nullopt;
  }
  if (entry.method == 0) return std::string(packed.begin(), packed.end());
  if (entry.method != 8) {
    fail(error, entry.name + ": compressed with method " + std::to_string(entry.method));
    return std::nullopt;
  }
  std::string out(static_cast<size_t>(entry.size), '\0');
  z_stream stream{};
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
    fail(error, "no inflater");
    return std::nullopt;
  }
  stream.next_in = packed.data();
  stream.avail_in = static_cast<uInt>(packed.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  int status = inflate(&stream, Z_FINISH);
  inflateEnd(&stream);
  if (status != Z_STREAM_END || stream.total_out != out.size()) {
    fail(error, entry.name + ": its compressed data is damaged");
    return std::nullopt;
  }
  return out;
}

}  // namespace

std::optional<std::vector<std::string>> zipEntryNames(const std::string& path, std::string* error) {
  File file(path);
  if (!file.ok()) {
    fail(error, std::strerror(errno));
    return std::nullopt;
  }
  std::optional<std::vector<CentralEntry>> entries = centralEntries(file, error);
  if (!entries) return std::nullopt;
  std::vector<std::string> names;
  for (CentralEntry& entry : *entries) names.push_back(std::move(entry.name));
  return names;
}

std::optional<std::optional<std::string>> zipEntryContent(const std::string& path, const std::string& name,
                                                          std::string* error) {
  File file(path);
  if (!file.ok()) {
    fail(error, std::strerror(errno));
    return std::nullopt;
  }
  std::optional<std::vector<CentralEntry>> entries = centralEntries(file, error);
  if (!entries) return std::nullopt;
  for (const CentralEntry& entry : *entries) {
    if (entry.name != name) continue;
    std::optional<std::string> data = entryData(file, entry, error);
    if (!data) return std::nullopt;
    return std::optional<std::string>(std::move(*data));
  }
  return std::optional<std::string>();
}

}  // namespace bwk::bundle
