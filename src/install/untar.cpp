// Extraction of the runtime archive straight from the gzip stream, entry by entry: regular
// files, directories, symbolic links and GNU long names; every other entry is passed over.
#include "install/untar.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "base/fs.h"
#include "base/log.h"
#include "base/strings.h"
#include "install/tar_destination.h"
#include "install/unique_handles.h"

namespace bwk {

namespace {

// Only the first 500 bytes of a 512-byte header are read; the rest is skipped.
constexpr unsigned kHeaderRead = 500;
constexpr z_off_t kHeaderRest = 12;
constexpr uint64_t kBlock = 512;
constexpr unsigned kCopyBufferSize = 32768;
constexpr uint64_t kLongNameMax = 1024;
// zlib reads the compressed file in pieces of this size (its default is 8 KiB) and inflates
// into an output buffer of twice the size. Large pieces mean fewer reads and fewer inflate
// calls, each of which ends by copying the 32 KiB window: about 8 % faster than the default.
constexpr unsigned kGzInputBufferSize = 256 * 1024;

struct Field {
  size_t offset;
  size_t width;
};
constexpr Field kName{0, 100};
constexpr Field kMode{100, 8};
constexpr Field kSize{124, 12};
constexpr size_t kTypeflag = 156;
constexpr Field kLinkName{157, 100};
constexpr Field kMagic{257, 5};

// The bytes of a field up to its first NUL, or nothing when they are not UTF-8.
std::optional<std::string> fieldText(const char* bytes, size_t width) {
  std::string text(bytes, ::strnlen(bytes, width));
  if (!text::isValidUtf8(text)) return std::nullopt;
  return text;
}

std::optional<std::string> fieldText(const char* header, Field field) {
  return fieldText(header + field.offset, field.width);
}

uint64_t fieldNumber(const char* header, Field field) {
  return parseOctal(header + field.offset, static_cast<int>(field.width));
}

uint64_t paddingOf(uint64_t size) {
  uint64_t rest = size % kBlock;
  return rest ? kBlock - rest : 0;
}

// A relative seek that only ever moves forward. A size above the signed offset range
// (digits beyond '7' can make one) would otherwise seek backwards and could replay
// earlier entries for ever; it fails like any other seek.
z_off_t seekForward(gzFile stream, uint64_t length) {
  if (length > static_cast<uint64_t>(std::numeric_limits<z_off_t>::max())) return -1;
  return gzseek(stream, static_cast<z_off_t>(length), SEEK_CUR);
}

bool hasCallback(const ProgressCallback* progress) { return progress && *progress; }

// Position in the uncompressed stream as a percentage of the expected length, worked out
// in single precision as the progress bar has always been fed.
double percentDone(gzFile stream, float total) {
  return static_cast<double>(static_cast<float>(gztell(stream)) / total * 100.0f);
}

// A new file in place of whatever file is at `path`, with exactly `mode` (the umask does
// not apply). Never opens through a link: one that appeared since the safety check is
// removed rather than followed.
UniqueFd createFile(const std::string& path, mode_t mode) {
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd fd(::open(path.c_str(), flags, 0600));
  if (!fd && errno == EEXIST && ::unlink(path.c_str()) == 0) fd = UniqueFd(::open(path.c_str(), flags, 0600));
  if (fd && ::fchmod(fd.get(), mode) != 0) {
    int error = errno;
    fd.reset();
    errno = error;
  }
  return fd;
}

bool isAllZero(const char* bytes, size_t length) {
  return std::all_of(bytes, bytes + length, [](char c) { return c == 0; });
}

// One pass over the entries of an open archive.
class EntryReader {
 public:
  EntryReader(gzFile stream, const std::string& destination, int32_t uncompressedLength,
              const ProgressCallback* progress)
      : stream_(stream),
        destination_(destination),
        uncompressedLength_(uncompressedLength),
        progress_(progress),
        reporting_(hasCallback(progress) && uncompressedLength > 0),
        total_(static_cast<float>(uncompressedLength)) {}

  // True when the archive ended with a zero block after at least one regular file.
  bool readAll();

 private:
  enum class Step { Next, Done, Failed };
  Step readEntry();
  bool readLongName(uint64_t size, std::optional<std::string>& into);
  bool skipUnsafe(const std::string& entry, uint64_t size);
  bool extractEntry(char typeflag, const char* header, const std::string& full, uint64_t size);
  void createLink(const char* header, const std::string& full);

  gzFile stream_;
  TarDestination destination_;
  int32_t uncompressedLength_;
  const ProgressCallback* progress_;
  bool reporting_;
  float total_;
  bool sawRegularFile_ = false;
  std::optional<std::string> longName_;
  std::optional<std::string> longLinkName_;
};

bool EntryReader::readAll() {
  for (;;) {
    longName_.reset();
    longLinkName_.reset();
    Step step = readEntry();
    if (step == Step::Done) return true;
    if (step == Step::Failed) return false;
  }
}

EntryReader::Step EntryReader::readEntry() {
  char header[kHeaderRead];
  uint64_t size = 0;
  char typeflag = 0;
  // Long-name entries describe the entry after them, so they loop here without clearing.
  for (;;) {
    if (gzeof(stream_)) {
      BWK_SYSLOG("%s [Line %d] ERROR: unexpected eof");
      return Step::Failed;
    }
    if (gzread(stream_, header, kHeaderRead) != static_cast<int>(kHeaderRead)) {
      BWK_SYSLOG("%s [Line %d] ERROR: gzread failed");
      return Step::Failed;
    }
    if (std::memcmp(header + kMagic.offset, "ustar", kMagic.width) != 0) {
      // The end of the archive, or garbage.
      if (sawRegularFile_ && isAllZero(header, kHeaderRead)) return Step::Done;
      BWK_SYSLOG("%s [Line %d] ERROR: no magic number");
      return Step::Failed;
    }
    if (gzseek(stream_, kHeaderRest, SEEK_CUR) == -1) {
      BWK_SYSLOG("%s [Line %d] ERROR: gzseek 1 failed");
      return Step::Failed;
    }
    size = fieldNumber(header, kSize);
    typeflag = header[kTypeflag];
    if (typeflag != 'L' && typeflag != 'K') break;
    if (!readLongName(size, typeflag == 'L' ? longName_ : longLinkName_)) return Step::Failed;
  }

  std::optional<std::string> nameField = fieldText(header, kName);
  if (!nameField) {
    BWK_SYSLOG("%s [Line %d] ERROR: invalid archive path");
    return Step::Failed;
  }
  const std::string& entry = longName_ ? *longName_ : *nameField;
  BWK_DLOG("%s [Line %d] extracting %@", entry);

  std::optional<std::string> full = destination_.resolve(entry);
  if (!full) return skipUnsafe(entry, size) ? Step::Next : Step::Failed;
  if (!extractEntry(typeflag, header, *full, size)) return Step::Failed;
  if (seekForward(stream_, paddingOf(size)) == -1) {
    BWK_SYSLOG("%s [Line %d] ERROR: gzseek 3 failed");
    return Step::Failed;
  }
  return Step::Next;
}

bool EntryReader::readLongName(uint64_t size, std::optional<std::string>& into) {
  if (size < 1 || size > kLongNameMax) {
    BWK_SYSLOG("%s [Line %d] ERROR: invalid long archive path");
    return false;
  }
  std::vector<char> bytes(size);
  for (size_t got = 0; got < size;) {
    int n = gzread(stream_, bytes.data() + got, static_cast<unsigned>(size - got));
    if (n <= 0) {
      BWK_SYSLOG("%s [Line %d] ERROR: invalid long archive path");
      return false;
    }
    got += static_cast<size_t>(n);
  }
  into = fieldText(bytes.data(), bytes.size());
  if (!into) {
    BWK_SYSLOG("%s [Line %d] ERROR: invalid long archive path");
    return false;
  }
  if (seekForward(stream_, paddingOf(size)) == -1) {
    BWK_SYSLOG("%s [Line %d] ERROR: gzseek 3 failed");
    return false;
  }
  return true;
}

bool EntryReader::skipUnsafe(const std::string& entry, uint64_t size) {
  BWK_SYSLOG("%s [Line %d] WARNING: skipping unsafe archive path %@", entry);
  if (!UnTar::skip(stream_, size)) return false;
  if (seekForward(stream_, paddingOf(size)) == -1) {
    BWK_SYSLOG("%s [Line %d] ERROR: gzseek 3 failed");
    return false;
  }
  return true;
}

// Creates one safe entry. Directories and links carry no data; only their padding follows.
bool EntryReader::extractEntry(char typeflag, const char* header, const std::string& full, uint64_t size) {
  switch (typeflag) {
    case '\0':
    case '0': {
      if (reporting_) (*progress_)(percentDone(stream_, total_), nullptr);
      bool written = UnTar::extractFile(stream_, full, size, fieldNumber(header, kMode), uncompressedLength_, progress_);
      sawRegularFile_ = true;
      if (!written) BWK_SYSLOG("%s [Line %d] ERROR: extract file failed");
      return written;
    }
    case '5':
      // The mode field is not applied to directories.
      if (fs::createDirectory(full, true)) return true;
      BWK_SYSLOG("%s [Line %d] ERROR: extract creating directory");
      return false;
    case '2':
      createLink(header, full);
      return true;
    default:
      // Hard links, devices, FIFOs, extended headers...: nothing is created.
      if (seekForward(stream_, size) != -1) return true;
      BWK_SYSLOG("%s [Line %d] ERROR: gzseek 2 failed");
      return false;
  }
}

// A link that cannot be made is logged and is not fatal.
void EntryReader::createLink(const char* header, const std::string& full) {
  fs::removeItem(full);
  std::optional<std::string> target = longLinkName_ ? longLinkName_ : fieldText(header, kLinkName);
  if (!target) {
    BWK_SYSLOG("%s [Line %d] ERROR: could not create symlink at %@ (%@)", full, nullptr);
  } else if (::symlink(target->c_str(), full.c_str()) != 0) {
    BWK_SYSLOG("%s [Line %d] ERROR: could not create symlink at %@ (%@)", full, std::strerror(errno));
  }
}

}  // namespace

uint64_t parseOctal(const char* bytes, int length) {
  uint64_t value = 0;
  bool started = false;
  for (int i = 0; i < length; ++i) {
    signed char c = static_cast<signed char>(bytes[i]);
    if (c == '\0') break;
    if (c == ' ') {
      if (started) break;
      continue;
    }
    if (c == '0' && !started) continue;
    // No range check: '8' and '9' count as 8 and 9, other bytes as their code minus '0'.
    value = value * 8 + static_cast<uint64_t>(static_cast<int64_t>(c - '0'));
    started = true;
  }
  return value;
}

bool UnTar::untar(const std::string& archive, const std::string& destination, int32_t uncompressedLength,
                  const ProgressCallback* progress) {
  UniqueFd handle(::open(archive.c_str(), O_RDONLY | O_CLOEXEC));
  if (!handle) {
    int error = errno;
    BWK_SYSLOG("%s [Line %d] error reading JRE %@", archive + ": " + std::strerror(error));
    return false;
  }
  if (hasCallback(progress)) (*progress)(0.0, destination.c_str());

  // The gzip stream owns a descriptor of its own; the handle is closed on the way out.
  UniqueFd copy(::fcntl(handle.get(), F_DUPFD_CLOEXEC, 0));
  UniqueGz stream(copy ? gzdopen(copy.get(), "r") : nullptr);
  if (!stream) {
    BWK_SYSLOG("%s [Line %d] error opening gzip file");
    return false;
  }
  copy.release();
  gzbuffer(stream.get(), kGzInputBufferSize);

  bool ok = EntryReader(stream.get(), destination, uncompressedLength, progress).readAll();
  // A stream that ends early or fails its check is only noticed by zlib when it is closed.
  if (gzclose(stream.release()) != Z_OK) ok = false;
  if (ok && hasCallback(progress)) (*progress)(100.0, "");
  return ok;
}

bool UnTar::extractFile(gzFile stream, const std::string& path, uint64_t length, uint64_t permissions,
                        int32_t uncompressedLength, const ProgressCallback* progress) {
  // Resource-fork companions ("._name") and everything inside "._" directories are dropped.
  if (text::contains(path, "/._")) return skip(stream, length);

  // Owner read and write are always granted, so the file can be written and removed again.
  UniqueFd handle = createFile(path, static_cast<mode_t>((permissions | 0600) & 07777));
  if (!handle) {
    int error = errno;
    BWK_SYSLOG("%s [Line %d] Could not create file %@ %d %s", path, error, std::strerror(error));
    return skip(stream, length);
  }
  UniqueFd copy(::fcntl(handle.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy) {
    BWK_SYSLOG("%s [Line %d] Could not duplicate file descriptor for %@", path);
    return skip(stream, length);
  }
  UniqueFile file(::fdopen(copy.get(), "wb"));
  if (!file) {
    BWK_SYSLOG("%s [Line %d] Could not open file %@", path);
    return skip(stream, length);
  }
  copy.release();
  // Every piece read goes to the file in one write: through stdio's small buffer, most
  // pieces would be split in two.
  std::setvbuf(file.get(), nullptr, _IONBF, 0);

  const bool reporting = hasCallback(progress) && uncompressedLength > 0;
  const float total = static_cast<float>(uncompressedLength);
  double reported = 0.0;
  char buffer[kCopyBufferSize];
  for (uint64_t written = 0; written < length;) {
    unsigned want = static_cast<unsigned>(std::min<uint64_t>(length - written, kCopyBufferSize));
    int n = gzread(stream, buffer, want);
    if (n <= 0 || std::fwrite(buffer, 1, static_cast<size_t>(n), file.get()) != static_cast<size_t>(n) ||
        std::ferror(file.get())) {
      BWK_SYSLOG("%s [Line %d] ERROR: stream error");
      // A file cut short by a damaged archive is worse than none: a truncated library
      // crashes the process that maps it.
      ::unlink(path.c_str());
      return false;
    }
    written += static_cast<uint64_t>(n);
    if (reporting) {
      double percent = percentDone(stream, total);
      if (percent != reported) {
        (*progress)(percent, nullptr);
        reported = percent;
      }
    }
  }
  if (std::ferror(file.get())) {
    BWK_SYSLOG("%s [Line %d] ERROR: stream error");
    return false;
  }
  // Data still buffered is written here; a failure loses it, so the file counts as failed.
  return std::fclose(file.release()) == 0;
}

bool UnTar::skip(gzFile stream, uint64_t length) {
  if (seekForward(stream, length) != -1) return true;
  BWK_SYSLOG("%s [Line %d] ERROR: gzseek 3 failed");
  return false;
}

}  // namespace bwk
