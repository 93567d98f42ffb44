#pragma once
// The class path the JDK builds from jars: each jar followed at once by the entries of its
// manifest's Class-Path (and theirs in turn), every entry once, entries that cannot be
// opened left out. Class-Path entries are URLs relative to the jar that lists them; the jars
// given themselves are taken with their links resolved, as the runtime takes class-path
// entries.
#include <string>
#include <vector>

namespace bwk::bundle {

struct ClassPathItem {
  std::string path;        // absolute; a given jar as given, a listed entry as resolved
  bool directory = false;  // an entry ending in "/": a directory of classes
  std::string listedBy;    // the jar whose manifest named it; empty for a given jar
};

struct JarClassPath {
  std::vector<ClassPathItem> items;   // in the runtime's order
  std::vector<std::string> warnings;  // entries the runtime skips, with the reason
};

// `jars` are absolute paths of existing jars, in class-path order.
JarClassPath resolveJarClassPath(const std::vector<std::string>& jars);

}  // namespace bwk::bundle
