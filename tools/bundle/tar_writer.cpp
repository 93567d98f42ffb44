#include "tar_writer.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "base/strings.h"
#include "install/archive_index.h"

namespace bwk::bundle {

namespace {

constexpr size_t kBlock = 512;
constexpr size_t kNameField = 100;
constexpr unsigned kMaxThreads = 8;

// An octal number in a field of `width` bytes: digits, then a NUL.
bool putOctal(char* field, size_t width, uint64_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%0*llo", static_cast<int>(width - 1), static_cast<unsigned long long>(value));
  if (std::strlen(text) > width - 1) return false;
  std::memcpy(field, text, width - 1);
  field[width - 1] = '\0';
  return true;
}

}  // namespace

TarGzWriter::~TarGzWriter() {
  for (libdeflate_compressor* compressor : compressors_) libdeflate_free_compressor(compressor);
  if (file_) std::fclose(file_);
}

bool TarGzWriter::fail(const std::string& reason) {
  if (error_.empty()) error_ = reason;
  return false;
}

bool TarGzWriter::open(const std::string& path) {
  file_ = std::fopen(path.c_str(), "wb");
  if (!file_) return fail(path + ": " + std::strerror(errno));
  unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, kMaxThreads);
  for (unsigned i = 0; i < threads; ++i) {
    compressors_.push_back(libdeflate_alloc_compressor(kLevel));
    if (!compressors_.back()) return fail("compressing: out of memory");
  }
  member_.reserve(kMemberSize);
  return true;
}

bool TarGzWriter::output(const void* data, size_t length) {
  if (length > 0 && std::fwrite(data, 1, length, file_) != length)
    return fail(std::string("writing: ") + std::strerror(errno));
  return true;
}

// Compresses the members waiting, one per thread, and writes them in their order.
bool TarGzWriter::compressFullMembers() {
  std::vector<std::vector<char>> compressed(full_.size());
  auto compress = [&](size_t i) {
    size_t bound = libdeflate_gzip_compress_bound(compressors_[i], full_[i].size());
    compressed[i].resize(bound);
    compressed[i].resize(
        libdeflate_gzip_compress(compressors_[i], full_[i].data(), full_[i].size(), compressed[i].data(), bound));
  };
  std::vector<std::thread> helpers;
  for (size_t i = 1; i < full_.size(); ++i) helpers.emplace_back(compress, i);
  if (!full_.empty()) compress(0);
  for (std::thread& helper : helpers) helper.join();
  for (size_t i = 0; i < full_.size(); ++i) {
    if (compressed[i].empty()) return fail("compressing: the archive could not be completed");
    if (!output(compressed[i].data(), compressed[i].size())) return false;
    members_.emplace_back(static_cast<uint32_t>(compressed[i].size()), static_cast<uint32_t>(full_[i].size()));
  }
  full_.clear();
  return true;
}

// Hands the member being filled to the next free thread; when every thread has one, they run.
bool TarGzWriter::endMember() {
  full_.push_back(std::move(member_));
  member_ = {};
  member_.reserve(kMemberSize);
  return full_.size() < compressors_.size() || compressFullMembers();
}

bool TarGzWriter::write(const void* data, size_t length) {
  if (!error_.empty()) return false;
  const char* bytes = static_cast<const char*>(data);
  while (length > 0) {
    size_t part = std::min<size_t>(length, kMemberSize - member_.size());
    member_.insert(member_.end(), bytes, bytes + part);
    written_ += part;
    bytes += part;
    length -= part;
    if (member_.size() == kMemberSize && !endMember()) return false;
  }
  return true;
}

bool TarGzWriter::pad() {
  static const char kZeros[kBlock] = {};
  size_t rest = written_ % kBlock;
  return rest == 0 || write(kZeros, kBlock - rest);
}

bool TarGzWriter::longEntry(char type, const std::string& text) {
  // The text with its NUL is the entry's data; the launcher takes at most 1024 bytes.
  if (text.size() + 1 > 1024) return fail(text + ": longer than the 1023 bytes a runtime archive may name");
  return header("././@LongLink", type, text.size() + 1, 0644, 0, "") && write(text.c_str(), text.size() + 1) && pad();
}

bool TarGzWriter::header(const std::string& name, char type, uint64_t size, uint32_t mode, int64_t mtime,
                         const std::string& link) {
  if (!text::isValidUtf8(name) || !text::isValidUtf8(link)) return fail(name + ": the launcher reads only UTF-8 names");
  if (name.size() > kNameField && !longEntry('L', name)) return false;
  if (link.size() > kNameField && !longEntry('K', link)) return false;
  char block[kBlock] = {};
  std::memcpy(block, name.data(), std::min(name.size(), kNameField));
  bool fits = putOctal(block + 100, 8, mode & 07777) && putOctal(block + 108, 8, 0) && putOctal(block + 116, 8, 0) &&
              putOctal(block + 124, 12, size) &&
              putOctal(block + 136, 12, static_cast<uint64_t>(std::max<int64_t>(mtime, 0)));
  if (!fits) return fail(name + ": too large for a tar header");
  block[156] = type;
  std::memcpy(block + 157, link.data(), std::min(link.size(), kNameField));
  std::memcpy(block + 257, "ustar  ", 8);  // the GNU magic and version, NUL-terminated
  std::memset(block + 148, ' ', 8);
  unsigned sum = 0;
  for (unsigned char c : block) sum += c;
  std::snprintf(block + 148, 8, "%06o", sum);
  return write(block, kBlock);
}

bool TarGzWriter::addDirectory(const std::string& name, uint32_t mode, int64_t mtime) {
  return header(name + "/", '5', 0, mode, mtime, "");
}

bool TarGzWriter::addSymlink(const std::string& name, const std::string& target, int64_t mtime) {
  return header(name, '2', 0, 0777, mtime, target);
}

bool TarGzWriter::addFile(const std::string& name, const std::string& source, uint64_t size, uint32_t mode,
                          int64_t mtime) {
  int fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return fail(source + ": " + std::strerror(errno));
  bool ok = header(name, '0', size, mode, mtime, "");
  std::vector<char> buffer(256 * 1024);
  uint64_t left = size;
  while (ok && left > 0) {
    ssize_t n = ::read(fd, buffer.data(), std::min<uint64_t>(left, buffer.size()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = fail(source + (n == 0 ? ": shorter than when it was listed" : std::string(": ") + std::strerror(errno)));
      break;
    }
    ok = write(buffer.data(), static_cast<size_t>(n));
    left -= static_cast<uint64_t>(n);
  }
  ::close(fd);
  return ok && pad();
}

bool TarGzWriter::finish() {
  static const char kZeros[2 * kBlock] = {};
  bool ok = write(kZeros, sizeof kZeros) && (member_.empty() || endMember()) && compressFullMembers();
  // Without an index (more members than it can list) the archive is still read, as a stream.
  if (ok) {
    std::string index = encodeArchiveIndex(members_);
    ok = output(index.data(), index.size());
  }
  std::FILE* file = std::exchange(file_, nullptr);
  if (std::fclose(file) != 0 && ok) return fail(std::string("writing: ") + std::strerror(errno));
  return ok;
}

}  // namespace bwk::bundle
