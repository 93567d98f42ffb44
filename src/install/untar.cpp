// Extraction of the runtime archive from its tar stream, entry by entry: regular files,
// directories, symbolic links and GNU long names; every other entry is passed over. The
// stream is inflated into memory in one piece where the archive allows it, else streamed.
#include "install/untar.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/fs.h"
#include "base/log.h"
#include "base/strings.h"
#include "install/gz_tar_stream.h"
#include "install/indexed_tar_stream.h"
#include "install/inflated_tar_stream.h"
#include "install/tar_destination.h"
#include "install/unique_handles.h"

namespace bwk {

namespace {

// A problem goes to the system log, and into the outcome without the function and line
// prefix, where callers and tests read it.
void recordProblem(std::vector<std::string>& problems, const std::string& line) {
  constexpr std::string_view kLineMark = " [Line ", kPrefixEnd = "] ";
  log::writeSystemLog(line);
  size_t at = line.find(kLineMark);
  if (at != std::string::npos) at = line.find(kPrefixEnd, at);
  problems.push_back(at == std::string::npos ? line : line.substr(at + kPrefixEnd.size()));
}
#define BWK_UNTAR_PROBLEM(problems, fmt, ...) \
  recordProblem(problems, ::bwk::format(fmt, __PRETTY_FUNCTION__, __LINE__ __VA_OPT__(, ) __VA_ARGS__))

// Only the first 500 bytes of a 512-byte header are read; the rest is skipped.
constexpr size_t kHeaderRead = 500;
constexpr uint64_t kHeaderRest = 12;
constexpr uint64_t kBlock = 512;
// Progress within a file is reported as if its data came in pieces of this size, whatever
// size the stream hands out.
constexpr uint64_t kProgressStep = 32768;
constexpr uint64_t kLongNameMax = 1024;

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

bool hasCallback(const ProgressCallback* progress) { return progress && *progress; }

// Percentages of the position in the tar stream against the expected length, worked out in
// single precision as the progress bar has always been fed.
class Progress {
 public:
  Progress(const ProgressCallback* callback, int32_t uncompressedLength)
      : callback_(callback),
        enabled_(hasCallback(callback) && uncompressedLength > 0),
        total_(static_cast<float>(uncompressedLength)) {}

  bool enabled() const { return enabled_; }
  double percentAt(uint64_t position) const {
    return static_cast<double>(static_cast<float>(position) / total_ * 100.0f);
  }
  void report(double percent) const { (*callback_)(percent, nullptr); }
  // A signal interrupted a read: the callback gets to see it (and may end the extraction)
  // before the read counts as failed.
  void interrupted(uint64_t position) const {
    if (hasCallback(callback_)) (*callback_)(enabled_ ? percentAt(position) : 0.0, nullptr);
  }

 private:
  const ProgressCallback* callback_;
  bool enabled_;
  float total_;
};

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

// Errors of the file system written to, not of the archive: the runtime cannot be complete.
bool isDestinationFailure(int error) {
  return error == ENOSPC || error == EDQUOT || error == EIO || error == EROFS || error == EFBIG;
}

bool isAllZero(const char* bytes, size_t length) {
  return std::all_of(bytes, bytes + length, [](char c) { return c == 0; });
}

// One pass over the entries of an open archive.
class EntryReader {
 public:
  EntryReader(TarStream& stream, const std::string& destination, const Progress& progress)
      : stream_(stream), destination_(destination), progress_(progress) {}

  // True when the archive ended with a zero block after at least one regular file.
  bool readAll();
  // The error number of the first failure to write into the destination; 0 when none.
  int destinationError() const { return destinationError_; }
  std::vector<std::string>& problems() { return problems_; }

 private:
  enum class Step { Next, Done, Failed };
  Step readEntry();
  bool readExactly(char* into, size_t length);
  bool readLongName(uint64_t size, std::optional<std::string>& into);
  bool skipData(uint64_t size);
  bool skipPadding(uint64_t size);
  bool skipUnsafe(const std::string& entry, uint64_t size);
  bool extractEntry(char typeflag, const char* header, const std::string& full, uint64_t size);
  bool extractFile(const std::string& path, uint64_t length, uint64_t permissions);
  void createLink(const char* header, const std::string& full);
  void checkInterrupted() const {
    if (stream_.interrupted()) progress_.interrupted(stream_.position());
  }

  TarStream& stream_;
  TarDestination destination_;
  const Progress& progress_;
  bool sawRegularFile_ = false;
  int destinationError_ = 0;
  std::vector<std::string> problems_;
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
    if (stream_.pastEnd()) {
      BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: unexpected eof");
      return Step::Failed;
    }
    const char* read = nullptr;
    if (stream_.read(kHeaderRead, &read) != static_cast<long>(kHeaderRead)) {
      checkInterrupted();
      BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: gzread failed");
      return Step::Failed;
    }
    std::memcpy(header, read, kHeaderRead);
    if (std::memcmp(header + kMagic.offset, "ustar", kMagic.width) != 0) {
      // The end of the archive, or garbage.
      if (sawRegularFile_ && isAllZero(header, kHeaderRead)) return Step::Done;
      BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: no magic number");
      return Step::Failed;
    }
    if (!stream_.skip(kHeaderRest)) {
      BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: gzseek 1 failed");
      return Step::Failed;
    }
    size = fieldNumber(header, kSize);
    typeflag = header[kTypeflag];
    if (typeflag != 'L' && typeflag != 'K') break;
    if (!readLongName(size, typeflag == 'L' ? longName_ : longLinkName_)) return Step::Failed;
  }

  std::optional<std::string> nameField = fieldText(header, kName);
  if (!nameField) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: invalid archive path");
    return Step::Failed;
  }
  const std::string& entry = longName_ ? *longName_ : *nameField;
  BWK_DLOG("%s [Line %d] extracting %@", entry);

  std::optional<std::string> full = destination_.resolve(entry);
  if (!full) return skipUnsafe(entry, size) ? Step::Next : Step::Failed;
  if (!extractEntry(typeflag, header, *full, size)) return Step::Failed;
  return skipPadding(size) ? Step::Next : Step::Failed;
}

// Reads of any length may come back in parts; a read of nothing or an error fails.
bool EntryReader::readExactly(char* into, size_t length) {
  for (size_t got = 0; got < length;) {
    const char* data = nullptr;
    long n = stream_.read(length - got, &data);
    if (n <= 0) {
      checkInterrupted();
      return false;
    }
    std::memcpy(into + got, data, static_cast<size_t>(n));
    got += static_cast<size_t>(n);
  }
  return true;
}

bool EntryReader::readLongName(uint64_t size, std::optional<std::string>& into) {
  if (size < 1 || size > kLongNameMax) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: invalid long archive path");
    return false;
  }
  std::vector<char> bytes(size);
  if (!readExactly(bytes.data(), bytes.size())) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: invalid long archive path");
    return false;
  }
  into = fieldText(bytes.data(), bytes.size());
  if (!into) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: invalid long archive path");
    return false;
  }
  return skipPadding(size);
}

bool EntryReader::skipData(uint64_t size) {
  if (stream_.skip(size)) return true;
  BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: gzseek 3 failed");
  return false;
}

bool EntryReader::skipPadding(uint64_t size) { return skipData(paddingOf(size)); }

bool EntryReader::skipUnsafe(const std::string& entry, uint64_t size) {
  BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] WARNING: skipping unsafe archive path %@", entry);
  return skipData(size) && skipPadding(size);
}

// Creates one safe entry. Directories and links carry no data; only their padding follows.
bool EntryReader::extractEntry(char typeflag, const char* header, const std::string& full, uint64_t size) {
  switch (typeflag) {
    case '\0':
    case '0': {
      if (progress_.enabled()) progress_.report(progress_.percentAt(stream_.position()));
      bool written = extractFile(full, size, fieldNumber(header, kMode));
      sawRegularFile_ = true;
      if (!written) BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: extract file failed");
      return written;
    }
    case '5':
      // The mode field is not applied to directories.
      errno = 0;
      if (fs::createDirectory(full, true)) return true;
      if (isDestinationFailure(errno)) destinationError_ = errno;
      BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: extract creating directory");
      return false;
    case '2': createLink(header, full); return true;
    default:
      // Hard links, devices, FIFOs, extended headers...: nothing is created.
      if (stream_.skip(size)) return true;
      BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: gzseek 2 failed");
      return false;
  }
}

// Writes `length` bytes of the stream to a new file at `path`; leaves the stream at the end
// of the entry's data. A file that cannot be made is logged and passed over.
bool EntryReader::extractFile(const std::string& path, uint64_t length, uint64_t permissions) {
  // Resource-fork companions ("._name") and everything inside "._" directories are dropped.
  if (text::contains(path, "/._")) return skipData(length);

  // Owner read and write are always granted, so the file can be written and removed again.
  UniqueFd handle = createFile(path, static_cast<mode_t>((permissions | 0600) & 07777));
  if (!handle) {
    int error = errno;
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] Could not create file %@ %d %s", path, error, std::strerror(error));
    if (isDestinationFailure(error)) {
      destinationError_ = error;
      return false;
    }
    return skipData(length);
  }
  UniqueFd copy(::fcntl(handle.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] Could not duplicate file descriptor for %@", path);
    return skipData(length);
  }
  UniqueFile file(::fdopen(copy.get(), "wb"));
  if (!file) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] Could not open file %@", path);
    return skipData(length);
  }
  copy.release();
  // Every piece read goes to the file in one write: through stdio's small buffer, most
  // pieces would be split in two.
  std::setvbuf(file.get(), nullptr, _IONBF, 0);

  const uint64_t start = stream_.position();
  double reported = 0.0;
  for (uint64_t written = 0; written < length;) {
    const char* data = nullptr;
    long n = stream_.read(static_cast<size_t>(std::min<uint64_t>(length - written, stream_.pieceSize())), &data);
    if (n <= 0 || std::fwrite(data, 1, static_cast<size_t>(n), file.get()) != static_cast<size_t>(n) ||
        std::ferror(file.get())) {
      if (n > 0 && isDestinationFailure(errno)) destinationError_ = errno;
      if (n < 0) {
        ::unlink(path.c_str());
        checkInterrupted();
      }
      BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: stream error");
      // A file cut short by a damaged archive is worse than none: a truncated library
      // crashes the process that maps it.
      ::unlink(path.c_str());
      return false;
    }
    const uint64_t end = written + static_cast<uint64_t>(n);
    // One report per step of the piece just written that moves the value.
    for (uint64_t step = written; progress_.enabled() && step < end;) {
      step = std::min(end, step + kProgressStep);
      double percent = progress_.percentAt(start + step);
      if (percent != reported) {
        progress_.report(percent);
        reported = percent;
      }
    }
    written = end;
  }
  if (std::ferror(file.get())) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: stream error");
    return false;
  }
  // Data still buffered is written here; a failure loses it, so the file counts as failed
  // and goes like any file cut short.
  if (std::fclose(file.release()) == 0) return true;
  if (isDestinationFailure(errno)) destinationError_ = errno;
  ::unlink(path.c_str());
  return false;
}

// A link that cannot be made is logged and is not fatal.
void EntryReader::createLink(const char* header, const std::string& full) {
  fs::removeItem(full);
  std::optional<std::string> target = longLinkName_ ? longLinkName_ : fieldText(header, kLinkName);
  if (!target) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: could not create symlink at %@ (%@)", full, nullptr);
  } else if (::symlink(target->c_str(), full.c_str()) != 0) {
    BWK_UNTAR_PROBLEM(problems_, "%s [Line %d] ERROR: could not create symlink at %@ (%@)", full, std::strerror(errno));
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

UnTar::Outcome UnTar::untar(const std::string& archive, const std::string& destination, int32_t uncompressedLength,
                            const ProgressCallback* progress) {
  return untarWith(Inflation::Indexed, archive, destination, uncompressedLength, progress);
}

UnTar::Outcome UnTar::untarWith(Inflation inflation, const std::string& archive, const std::string& destination,
                                int32_t uncompressedLength, const ProgressCallback* progress) {
  Outcome outcome;
  UniqueFd handle(::open(archive.c_str(), O_RDONLY | O_CLOEXEC));
  if (!handle) {
    int error = errno;
    BWK_UNTAR_PROBLEM(outcome.problems, "%s [Line %d] error reading JRE %@", archive + ": " + std::strerror(error));
    return outcome;
  }
  if (hasCallback(progress)) (*progress)(0.0, destination.c_str());

  // Whatever a faster way does not take, the next one reads from the start.
  std::unique_ptr<TarStream> stream;
  IndexedTarStream* indexed = nullptr;
  if (inflation == Inflation::Indexed) {
    auto members = IndexedTarStream::open(handle.get(), inflatingThreads());
    indexed = members.get();
    stream = std::move(members);
    if (stream) outcome.used = Inflation::Indexed;
  }
  InflatedTarStream* whole = nullptr;
  if (!stream && inflation != Inflation::Streaming) {
    auto inflated = InflatedTarStream::open(handle.get(), inflatingThreads() > 1);
    whole = inflated.get();
    stream = std::move(inflated);
  }
  if (!stream) stream = GzTarStream::open(handle.get());
  if (!stream) {
    BWK_UNTAR_PROBLEM(outcome.problems, "%s [Line %d] error opening gzip file");
    return outcome;
  }

  Progress percentages(progress, uncompressedLength);
  EntryReader reader(*stream, destination, percentages);
  bool ok = reader.readAll();
  // A damaged member handed the rest over to the stream.
  if (indexed && indexed->handedOver()) outcome.used = Inflation::Streaming;
  outcome.destinationError = reader.destinationError();
  outcome.problems = std::move(reader.problems());
  if (!stream->close()) ok = false;
  if (whole && whole->inOnePiece()) outcome.used = Inflation::WholeBuffer;
  // The inflated archive goes back to the system before anything else runs.
  stream.reset();
  if (ok && hasCallback(progress)) (*progress)(100.0, "");
  outcome.complete = ok;
  return outcome;
}

}  // namespace bwk
