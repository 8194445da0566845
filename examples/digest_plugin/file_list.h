// The files whose digests are wanted.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace digest {

struct File {
  std::string path;     // The printed path: the given one and the names below it. Any bytes.
  std::string encoded;  // The path for the task: absolute, percent-encoded.
  int64_t size = 0;     // The size at the time of listing; 0: unknown.
};

struct FileList {
  std::vector<File> files;
  std::vector<std::string> failures;  // Sentences about the paths that could not be listed.
  std::set<std::string> unmatched;    // Of `skipped`: nothing has this name.
};

// Lists the regular files below each directory, sorted by name in each, without the `skipped`
// paths, which may be written differently ("./a/" is "a"). A path that is no directory is listed as
// it is, whether or not it is a file.
FileList ListFiles(const std::vector<std::string>& paths, const std::set<std::string>& skipped);

}  // namespace digest
