#pragma once
// Writes a gzip-compressed tar archive the launcher's extraction reads: ustar headers with
// the GNU magic, GNU long-name and long-link entries for paths over 100 bytes, regular
// files, directories and symbolic links. The tar stream is cut into independent gzip members
// of kMemberSize bytes each, followed by an index of them (install/archive_index.h), so that
// the launcher can inflate them on several threads; to every other reader it is one
// ordinary .tar.gz. Members are compressed side by side, one per core.
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

struct libdeflate_compressor;

namespace bwk::bundle {

class TarGzWriter {
 public:
  TarGzWriter() = default;
  ~TarGzWriter();
  TarGzWriter(const TarGzWriter&) = delete;
  TarGzWriter& operator=(const TarGzWriter&) = delete;

  // Bytes of the tar stream per gzip member. Smaller members spread over more threads and let
  // the first files be written sooner; each costs a fresh start of the compression (about
  // 0.1 % in size at this length).
  static constexpr uint32_t kMemberSize = 4u << 20;
  // libdeflate's level: written once, unpacked at every start, so size is worth the time.
  static constexpr int kLevel = 10;

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
  bool endMember();
  bool compressFullMembers();
  bool output(const void* data, size_t length);
  bool pad();
  bool fail(const std::string& reason);

  std::FILE* file_ = nullptr;
  std::vector<libdeflate_compressor*> compressors_;     // one per thread
  std::vector<char> member_;                            // tar bytes of the member being filled
  std::vector<std::vector<char>> full_;                 // filled members waiting for a thread each
  std::vector<std::pair<uint32_t, uint32_t>> members_;  // compressed and tar length of each written
  uint64_t written_ = 0;
  std::string error_;
};

}  // namespace bwk::bundle
