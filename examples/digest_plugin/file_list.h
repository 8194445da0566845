// The files that digests are wanted of.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace digest {

struct File {
  std::string path;     // As it is printed: what was given, and the names below it. Any bytes.
  std::string encoded;  // As the task is told it: absolute, percent-encoded.
  int64_t size = 0;     // When it was listed; 0 where that is not known.
};

struct FileList {
  std::vector<File> files;
  std::vector<std::string> failures;  // Sentences: what could not be listed.
  std::set<std::string> unmatched;    // Of `skipped`: nothing has this name.
};

// The regular files below each directory, sorted by name in each, without the paths that are
// `skipped`, which may be written differently ("./a/" is "a"). A path that is no directory is in
// the list as it is, whether or not it is a file.
FileList ListFiles(const std::vector<std::string>& paths, const std::set<std::string>& skipped);

}  // namespace digest
