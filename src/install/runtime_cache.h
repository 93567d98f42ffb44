#pragma once
// The cache of unpacked runtimes ("bwk.reuseUnpackedRuntime"): a bundle's runtime archive is
// unpacked once into the user's cache directory and used again while the archive stays the
// same. Entries live in <user cache>/<application>/runtime/, one per archive content, named
// by its size and CRC-32 (of all but the gzip trailer). An entry is made by extracting into a private directory beside
// it, renamed into place only when complete. A start that uses an entry holds a shared lock on it until the process
// ends; entries are removed only under an exclusive lock, so never while a process runs from them.
//
// Reading the whole archive for its checksum costs a later start more than the rest of the
// launcher does, so the checksum is taken when an archive file is new to the cache, and a
// note beside the entries remembers which entry that file gave, together with the file's
// stamp (device, inode, size, modification and status-change times). While the stamp is the
// same the file is too: a write changes the status-change time, and nothing sets it back.
#include <optional>
#include <string>

namespace bwk {

class RuntimeCache {
 public:
  // The cache for `archive` of the application `name` (CFBundleIdentifier, else
  // CFBundleName); looks the entry up, and removes it when it is damaged. Absent when the
  // cache cannot be used: no usable name, an archive that is not a regular file, a cache
  // directory that cannot be made or is refused (not the user's, writable by others, a
  // symbolic link). The debug log says why; the runtime is then unpacked into the temporary
  // directory as without the cache.
  static std::optional<RuntimeCache> open(const std::string& archive, const std::optional<std::string>& name);

  // The entry's runtime bundle when a complete entry was found; absent when it must be made.
  const std::optional<std::string>& found() const { return found_; }
  // A new directory beside the entries, marked as this process's, to extract into; absent
  // when it cannot be made.
  std::optional<std::string> makeStaging() const;
  // Makes the extracted `staging` directory the entry, unless the archive changed since its
  // checksum was taken, and removes what is left of older ones. Returns the entry's runtime bundle, which may be the
  // one another start made meanwhile (`staging` is then removed). Absent when the copy cannot be kept: `staging` then
  // stays this process's own, to be removed at exit.
  std::optional<std::string> keep(const std::string& staging);

 private:
  RuntimeCache(std::string archive, std::string archiveStamp, long long archiveChanged, std::string directory,
               std::string entryName)
      : archive_(std::move(archive)),
        archiveStamp_(std::move(archiveStamp)),
        archiveChanged_(archiveChanged),
        directory_(std::move(directory)),
        entryName_(std::move(entryName)) {}
  std::string entryPath() const;
  // The note that remembers the entry of the archive file.
  std::string notePath() const;
  // Writes the note, unless the archive changed too recently for its stamp to be trusted:
  // the file system's clock has a coarse grain, and a write within the same grain would
  // leave the stamp as it is.
  void remember() const;
  // Uses the entry when it is complete (`found_` set) and removes it when it is damaged.
  // False when it exists but cannot be used or removed now (another start holds it).
  bool lookUp();
  // Removes the entries of other archives and the copies of ended processes; entries in
  // use stay.
  void removeOlderEntries() const;
  // Takes `path` away under an exclusive lock and removes it. False when it is in use.
  bool removeEntry(const std::string& path) const;

  std::string archive_;
  std::string archiveStamp_;  // the archive's stamp when its checksum was taken
  long long archiveChanged_;  // its last change then, seconds since the epoch
  std::string directory_;     // .../<application>/runtime
  std::string entryName_;     // <size>-<crc32>
  std::optional<std::string> found_;
};

}  // namespace bwk
