#pragma once
// File-system questions in the platform's terms (fileExistsAtPath: follows links, a
// directory listing comes in the file system's order, unsorted).
#include <optional>
#include <string>
#include <vector>

namespace bwk::fs {

bool exists(const std::string& path);          // follows links; a broken link does not exist
bool isDirectory(const std::string& path);     // follows links
bool isSymbolicLink(const std::string& path);  // the entry itself, links not followed
bool existsNoFollow(const std::string& path);  // the entry itself, a broken link exists
bool isWritable(const std::string& path);      // access(W_OK)
bool isExecutableFile(const std::string& path);
// Names of a directory's entries without "." and "..", hidden names included, in the
// order the file system gives them. Absent when the directory cannot be listed.
std::optional<std::vector<std::string>> listDirectory(const std::string& path);
std::optional<std::string> readFile(const std::string& path);
bool writeFile(const std::string& path, const std::string& contents);
// With `intermediate`, missing parents are made too and an existing directory is success.
bool createDirectory(const std::string& path, bool intermediate);
// Removes a file, a link or a whole directory tree; never follows links.
bool removeItem(const std::string& path);
// The path with every link resolved; the path as given when it cannot be resolved.
std::string realPath(const std::string& path);

}  // namespace bwk::fs
