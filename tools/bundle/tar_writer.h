#pragma once
// Writes a gzip-compressed tar archive the launcher's extraction reads: ustar headers with
// the GNU magic, GNU long-name and long-link entries for paths over 100 bytes, regular
// files, directories and symbolic links.
#include <zlib.h>

#include <cstdint>
#include <string>

namespace bwk::bundle {

class TarGzWriter {
 public:
  TarGzWriter() = default;
  ~TarGzWriter();
  TarGzWriter(const TarGzWriter&) = delete;
  TarGzWriter& operator=(const TarGzWriter&) = delete;

  bool open(const std::string& path);
  // Names are "/"-separated and relative; a directory's name gets its trailing "/" here.
  bool addDirectory(const std::string& name, uint32_t mode, int64_t mtime);
  // Copies exactly `size` bytes of the file at `source`.
  bool addFile(const std::string& name, const std::string& source, uint64_t size, uint32_t mode, int64_t mtime);
  bool addSymlink(const std::string& name, const std::string& target, int64_t mtime);
  // The end blocks, then the gzip trailer. False when anything failed on the way.
  bool finish();

  // Bytes of the tar stream written so far (after finish: its whole length).
  uint64_t uncompressedSize() const { return written_; }
  const std::string& error() const { return error_; }

 private:
  bool header(const std::string& name, char type, uint64_t size, uint32_t mode, int64_t mtime, const std::string& link);
  bool longEntry(char type, const std::string& text);
  bool write(const void* data, size_t length);
  bool pad();
  bool fail(const std::string& reason);

  gzFile gz_ = nullptr;
  uint64_t written_ = 0;
  std::string error_;
};

}  // namespace bwk::bundle
