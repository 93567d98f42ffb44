#include "runtime_tree.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/fs.h"
#include "base/path.h"
#include "base/strings.h"

namespace bwk::bundle {

namespace {

std::optional<std::string> realPath(const std::string& p) {
  char* resolved = ::realpath(p.c_str(), nullptr);
  if (!resolved) return std::nullopt;
  std::string out(resolved);
  std::free(resolved);
  return out;
}

bool inside(const std::string& p, const std::string& root) { return p == root || text::startsWith(p, root + "/"); }

// `target` relative to the directory `from`, both below the same root.
std::string relativeTo(const std::string& from, const std::string& target) {
  std::vector<std::string> a = path::components(from), b = path::components(target);
  size_t common = 0;
  while (common < a.size() && common < b.size() && a[common] == b[common]) ++common;
  std::vector<std::string> parts(a.size() - common, "..");
  parts.insert(parts.end(), b.begin() + static_cast<std::ptrdiff_t>(common), b.end());
  return parts.empty() ? "." : text::join(parts, "/");
}

class Walker {
 public:
  Walker(std::string rootReal, const std::function<bool(const TreeEntry&, std::string&)>& visit,
         const std::set<std::string>& leaveOut)
      : rootReal_(std::move(rootReal)), visit_(visit), leaveOut_(leaveOut) {}

  // `directory` is read; its entries are named below `relative`. `chain` holds the real
  // paths of the directories being walked, so that a link back up is not followed for ever.
  bool walk(const std::string& directory, const std::string& relative, std::vector<std::string>& chain) {
    std::optional<std::vector<std::string>> names = fs::listDirectory(directory);
    if (!names) return fail(directory + ": cannot be listed");
    std::sort(names->begin(), names->end());
    for (const std::string& name : *names) {
      std::string source = path::append(directory, name);
      std::string entryPath = relative.empty() ? name : relative + "/" + name;
      if (leaveOut_.count(entryPath)) continue;
      struct stat st {};
      if (::lstat(source.c_str(), &st) != 0) return fail(source + ": " + std::strerror(errno));
      if (S_ISLNK(st.st_mode)) {
        if (!link(source, entryPath, chain)) return false;
      } else if (!entry(source, entryPath, st, chain)) {
        return false;
      }
    }
    return true;
  }

  TreeWalk result;

 private:
  bool fail(const std::string& reason) {
    if (result.error.empty()) result.error = reason;
    return false;
  }

  bool emit(const TreeEntry& e) {
    std::string error;
    if (visit_(e, error)) return true;
    return fail(error);
  }

  // A directory or a file at `source` (links already followed).
  bool entry(const std::string& source, const std::string& entryPath, const struct stat& st,
             std::vector<std::string>& chain) {
    TreeEntry e{TreeEntry::Kind::File,
                entryPath,
                source,
                "",
                static_cast<mode_t>(st.st_mode & 07777),
                st.st_mtime,
                static_cast<uint64_t>(st.st_size)};
    if (S_ISDIR(st.st_mode)) {
      std::optional<std::string> real = realPath(source);
      if (!real || std::find(chain.begin(), chain.end(), *real) != chain.end()) {
        result.warnings.push_back(entryPath + ": a link back into its own parents, left out");
        return true;
      }
      e.kind = TreeEntry::Kind::Directory;
      e.size = 0;
      if (!emit(e)) return false;
      chain.push_back(*real);
      bool ok = walk(source, entryPath, chain);
      chain.pop_back();
      return ok;
    }
    if (!S_ISREG(st.st_mode)) {
      result.warnings.push_back(entryPath + ": neither a file, a directory nor a link, left out");
      return true;
    }
    return emit(e);
  }

  bool link(const std::string& source, const std::string& entryPath, std::vector<std::string>& chain) {
    std::optional<std::string> real = realPath(source);
    if (!real) {
      result.warnings.push_back(entryPath + ": a broken link, left out");
      return true;
    }
    if (inside(*real, rootReal_) && *real != rootReal_) {
      // The link's own directory, as a real path below the root, decides the relative target.
      std::optional<std::string> linkDirectory = realPath(path::parent(source));
      if (linkDirectory && inside(*linkDirectory, rootReal_)) {
        TreeEntry e{TreeEntry::Kind::Link,
                    entryPath,
                    source,
                    relativeTo(linkDirectory->substr(rootReal_.size()), real->substr(rootReal_.size())),
                    0777,
                    0,
                    0};
        struct stat st {};
        if (::lstat(source.c_str(), &st) == 0) e.mtime = st.st_mtime;
        return emit(e);
      }
    }
    struct stat st {};
    if (::stat(source.c_str(), &st) != 0) {
      result.warnings.push_back(entryPath + ": a broken link, left out");
      return true;
    }
    return entry(source, entryPath, st, chain);
  }

  std::string rootReal_;
  const std::function<bool(const TreeEntry&, std::string&)>& visit_;
  const std::set<std::string>& leaveOut_;
};

}  // namespace

TreeWalk walkRuntimeTree(const std::string& root, const std::function<bool(const TreeEntry&, std::string&)>& visit,
                         const std::set<std::string>& leaveOut) {
  std::optional<std::string> rootReal = realPath(root);
  if (!rootReal) return TreeWalk{{}, root + ": " + std::strerror(errno)};
  Walker walker(*rootReal, visit, leaveOut);
  std::vector<std::string> chain{*rootReal};
  walker.walk(*rootReal, "", chain);
  return std::move(walker.result);
}

}  // namespace bwk::bundle
