#include "install/runtime_cache.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/fs.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "install/file_checksum.h"
#include "install/temporary_directory.h"
#include "install/unique_handles.h"
#include "platform/platform.h"

namespace bwk {

namespace {

constexpr const char* kBundleName = "jre.bundle";
constexpr const char* kStagingPrefix = ".staging-";
constexpr const char* kRemovingPrefix = ".removing-";
constexpr const char* kNotePrefix = ".archive-";
// The gzip trailer (the CRC-32 and length of the uncompressed data) is left out of the
// archive's checksum: a message followed by its own CRC-32 always has the same CRC-32, so
// with the trailer, archives stored without compression would all get one name per size.
constexpr uint64_t kGzipTrailerSize = 8;
// How long an archive must have stayed unchanged before its stamp stands for its content:
// well above the coarsest time grain of the file systems it may lie on (two seconds).
constexpr long long kSettledSeconds = 3;

std::string entryNameOf(const FileChecksum& sum) {
  char crc[9];
  std::snprintf(crc, sizeof crc, "%08x", static_cast<unsigned>(sum.crc32));
  return std::to_string(sum.size) + "-" + crc;
}

// Names that entryNameOf gives: digits, "-", eight hexadecimal digits.
bool isEntryName(const std::string& name) {
  size_t dash = name.find('-');
  if (dash == 0 || dash == std::string::npos || name.size() != dash + 9) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    char c = name[i];
    bool ok = i < dash ? text::isDigit(c) : i == dash || text::isDigit(c) || (c >= 'a' && c <= 'f');
    if (!ok) return false;
  }
  return true;
}

// An application name that is one plain path component.
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.size() <= 255 && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

// Makes the missing directories of `path` (mode 0700, as the user's cache directories are).
void makeDirectories(const std::string& path) {
  for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
    ::mkdir(path.substr(0, at).c_str(), 0700);
  ::mkdir(path.c_str(), 0700);
}

// Why the directory `path` must not hold the cache or be used from it; absent when it may.
std::optional<std::string> refusal(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return std::string("cannot be made: ") + std::strerror(errno);
  if (S_ISLNK(st.st_mode)) return std::string("is a symbolic link");
  if (!S_ISDIR(st.st_mode)) return std::string("is not a directory");
  if (st.st_uid != ::getuid()) return std::string("is not owned by the user");
  if (st.st_mode & (S_IWGRP | S_IWOTH)) return std::string("is writable by others");
  return std::nullopt;
}

// What is wrong with an extracted runtime bundle; absent when it is usable.
std::optional<std::string> runtimeProblem(const std::string& bundle) {
  if (!fs::isDirectory(bundle)) return std::string("no ") + kBundleName;
  for (const std::string& library : platform::runtimeLibraryCandidates())
    if (fs::exists(path::append(bundle, library))) return std::nullopt;
  return std::string("runtime library missing");
}

// Opens a directory for locking, links not followed.
UniqueFd openDirectory(const std::string& path) {
  return UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Whether `fd` is still the directory at `path`: a start that removes an entry renames it
// first, so a lock taken meanwhile may be on a copy on its way out.
bool stillAt(int fd, const std::string& path) {
  struct stat opened, current;
  return ::fstat(fd, &opened) == 0 && ::lstat(path.c_str(), &current) == 0 && opened.st_dev == current.st_dev &&
         opened.st_ino == current.st_ino;
}

// What a note says: the archive file, its stamp, and the entry its content gave.
struct Note {
  std::string archive, stamp, entryName;
};
std::optional<Note> readNote(const std::string& path) {
  std::optional<std::string> text = fs::readFile(path);
  if (!text) return std::nullopt;
  std::vector<std::string> lines = text::split(*text, "\n");
  if (lines.size() != 4 || !lines[3].empty() || !isEntryName(lines[2])) return std::nullopt;
  return Note{lines[0], lines[1], lines[2]};
}

// Keeps the shared lock of an entry for as long as the process runs: the runtime is used
// from it until the end. The descriptor is deliberately never closed.
void holdForProcessLifetime(UniqueFd fd) { (void)fd.release(); }

}  // namespace

std::optional<RuntimeCache> RuntimeCache::open(const std::string& archive, const std::optional<std::string>& name) {
  if (!name || !isPlainName(*name)) {
    BWK_DLOG(
        "%s [Line %d] runtime cache refused (no usable CFBundleIdentifier or CFBundleName): unpacking into the temporary directory");
    return std::nullopt;
  }
  const std::optional<platform::FileStamp> stamp = platform::fileStamp(archive);
  if (!stamp) {
    BWK_DLOG("%s [Line %d] runtime cache refused (%@ cannot be looked at): unpacking into the temporary directory",
             archive);
    return std::nullopt;
  }
  const std::string base = platform::userCacheDirectory();
  const std::string application = path::append(base, *name);
  const std::string runtime = path::append(application, "runtime");
  makeDirectories(path::parent(base));
  // Each level is looked at before anything is made inside it.
  for (const std::string& directory : {base, application, runtime}) {
    ::mkdir(directory.c_str(), 0700);
    if (std::optional<std::string> why = refusal(directory)) {
      BWK_DLOG("%s [Line %d] runtime cache refused (%@ %@): unpacking into the temporary directory", directory, why);
      return std::nullopt;
    }
  }
  RuntimeCache cache(archive, stamp->identity, stamp->lastChange, runtime, "");
  // The note names the entry while the archive file keeps its stamp; else the checksum does.
  std::optional<Note> note = readNote(cache.notePath());
  bool known = note && note->archive == archive && note->stamp == stamp->identity;
  if (known) {
    cache.entryName_ = note->entryName;
  } else {
    std::optional<FileChecksum> sum = checksumFile(archive, kGzipTrailerSize);
    if (!sum) {
      BWK_DLOG(
          "%s [Line %d] runtime cache refused (%@ is not a regular file that can be read): unpacking into the temporary directory",
          archive);
      return std::nullopt;
    }
    std::optional<platform::FileStamp> after = platform::fileStamp(archive);
    if (!after || after->identity != stamp->identity) {
      BWK_DLOG(
          "%s [Line %d] runtime cache refused (%@ changed while it was read): unpacking into the temporary directory",
          archive);
      return std::nullopt;
    }
    cache.entryName_ = entryNameOf(*sum);
  }
  BWK_DLOG("%s [Line %d] runtime cache entry of %@: %@ (%@)", archive, cache.entryName_,
           std::string(known ? "the archive file is known" : "checksum taken"));
  if (!cache.lookUp()) return std::nullopt;
  if (!known && cache.found()) cache.remember();
  return cache;
}

std::string RuntimeCache::notePath() const {
  // One note per archive file: two copies of an application have notes of their own.
  uLong hash = ::crc32_z(0, reinterpret_cast<const Bytef*>(archive_.data()), archive_.size());
  char key[9];
  std::snprintf(key, sizeof key, "%08x", static_cast<unsigned>(hash));
  return path::append(directory_, std::string(kNotePrefix) + key);
}

void RuntimeCache::remember() const {
  if (archiveChanged_ > static_cast<long long>(std::time(nullptr)) - kSettledSeconds) return;
  // Written beside and renamed over the note, so that no start reads half of it.
  const std::string note = notePath();
  const std::string part = note + "." + platform::globallyUniqueString();
  if (fs::writeFile(part, archive_ + "\n" + archiveStamp_ + "\n" + entryName_ + "\n") &&
      ::rename(part.c_str(), note.c_str()) == 0)
    return;
  fs::removeItem(part);
}

std::string RuntimeCache::entryPath() const { return path::append(directory_, entryName_); }

bool RuntimeCache::lookUp() {
  const std::string entry = entryPath();
  UniqueFd fd = openDirectory(entry);
  if (!fd && errno == ENOENT) {
    BWK_DLOG("%s [Line %d] runtime cache has no %@ yet: making it", entry);
    return true;
  }
  std::optional<std::string> problem;
  if (!fd) {
    problem = "not a directory";
  } else if (::flock(fd.get(), LOCK_SH | LOCK_NB) != 0) {
    BWK_DLOG(
        "%s [Line %d] runtime cache refused (%@ is being removed by another start): unpacking into the temporary directory",
        entry);
    return false;
  } else if (!stillAt(fd.get(), entry)) {
    BWK_DLOG("%s [Line %d] runtime cache has no %@ (removed meanwhile): making it", entry);
    return true;
  } else {
    std::optional<std::string> why = refusal(entry);
    problem = why ? why : runtimeProblem(path::append(entry, kBundleName));
  }
  if (!problem) {
    found_ = path::append(entry, kBundleName);
    BWK_DLOG("%s [Line %d] runtime cache used: %@", entry);
    holdForProcessLifetime(std::move(fd));
    return true;
  }
  fd.reset();
  if (!removeEntry(entry)) {
    BWK_DLOG(
        "%s [Line %d] runtime cache refused (%@ is damaged, %@, and in use): unpacking into the temporary directory",
        entry, problem);
    return false;
  }
  BWK_DLOG("%s [Line %d] runtime cache removed damaged %@ (%@): making it again", entry, problem);
  return true;
}

std::optional<std::string> RuntimeCache::makeStaging() const {
  return createMarkedDirectory(directory_, kStagingPrefix);
}

std::optional<std::string> RuntimeCache::keep(const std::string& staging) {
  std::optional<std::string> problem = runtimeProblem(path::append(staging, kBundleName));
  std::optional<platform::FileStamp> now = platform::fileStamp(archive_);
  if (!problem && (!now || now->identity != archiveStamp_)) problem = archive_ + " changed meanwhile";
  if (problem) {
    BWK_DLOG("%s [Line %d] runtime cache not made (%@): %@ is removed at exit", problem, staging);
    return std::nullopt;
  }
  const std::string entry = entryPath();
  // Locked before the rename, so that no other start takes the new entry for an old one.
  UniqueFd fd = openDirectory(staging);
  if (!fd || ::flock(fd.get(), LOCK_SH) != 0) return std::nullopt;
  if (::rename(staging.c_str(), entry.c_str()) == 0) {
    fs::removeItem(path::append(entry, kOwnerMarkName));
    BWK_DLOG("%s [Line %d] runtime cache made: %@", entry);
    holdForProcessLifetime(std::move(fd));
    remember();
    removeOlderEntries();
    return path::append(entry, kBundleName);
  }
  int error = errno;
  fd.reset();
  if (error == EEXIST || error == ENOTEMPTY) {
    // Another start made the same entry meanwhile: its copy is used, this one goes.
    UniqueFd other = openDirectory(entry);
    if (other && ::flock(other.get(), LOCK_SH | LOCK_NB) == 0 && stillAt(other.get(), entry) && !refusal(entry) &&
        !runtimeProblem(path::append(entry, kBundleName))) {
      BWK_DLOG("%s [Line %d] runtime cache used: %@ (made by another start meanwhile; %@ removed)", entry, staging);
      holdForProcessLifetime(std::move(other));
      removeTemporaryDirectory(staging);
      remember();
      return path::append(entry, kBundleName);
    }
  }
  BWK_DLOG("%s [Line %d] runtime cache not made (%@ cannot be renamed: %@): it is removed at exit", staging,
           std::string(std::strerror(error)));
  return std::nullopt;
}

void RuntimeCache::removeOlderEntries() const {
  std::optional<std::vector<std::string>> names = fs::listDirectory(directory_);
  if (!names) return;
  for (const std::string& name : *names) {
    const std::string path = path::append(directory_, name);
    bool removed = false;
    if (isEntryName(name) && name != entryName_) {
      removed = removeEntry(path);
      if (!removed) BWK_DLOG("%s [Line %d] runtime cache kept %@: in use", path);
    } else if ((text::startsWith(name, kStagingPrefix) && isAbandoned(path)) ||
               text::startsWith(name, kRemovingPrefix)) {
      // A copy of a start that was killed, or a removal cut short.
      removed = removeEntry(path);
    }
    if (removed) BWK_DLOG("%s [Line %d] runtime cache cleaned: %@", path);
  }
  // Then the notes of entries that are gone, and notes cut short.
  for (const std::string& name : *names) {
    const std::string path = path::append(directory_, name);
    if (!text::startsWith(name, kNotePrefix)) continue;
    std::optional<Note> note = readNote(path);
    if (!note || !fs::existsNoFollow(path::append(directory_, note->entryName))) fs::removeItem(path);
  }
}

bool RuntimeCache::removeEntry(const std::string& path) const {
  UniqueFd fd = openDirectory(path);
  if (fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return false;
  // Renamed first: a start that opens the old name now finds nothing, and one that locked
  // it just before sees that it moved.
  const std::string taken = path::append(directory_, kRemovingPrefix + platform::globallyUniqueString());
  if (::rename(path.c_str(), taken.c_str()) != 0) return false;
  fs::removeItem(taken);
  return true;
}

}  // namespace bwk
