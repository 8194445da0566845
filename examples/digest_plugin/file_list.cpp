#include "file_list.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include <QByteArray>

namespace digest {
namespace {

namespace fs = std::filesystem;

std::string Encoded(const fs::path& path) {
  return QByteArray::fromStdString(path.native()).toPercentEncoding("/").toStdString();
}

// The path in its normal form: "a/./b/" becomes "a/b".
std::string Normal(const fs::path& path) {
  const fs::path normal = path.lexically_normal();
  return (normal.has_filename() ? normal : normal.parent_path()).native();
}

class Walker {
 public:
  explicit Walker(const std::set<std::string>& skipped) {
    list_.unmatched = skipped;
    for (const std::string& path : skipped) skipped_[Normal(path)].insert(path);
  }

  void Walk(const fs::path& directory) {
    for (const auto& entry : EntriesOf(directory)) {
      std::error_code error;
      const fs::file_type type = entry.symlink_status(error).type();
      if (type == fs::file_type::directory) Walk(entry.path());
      if (type == fs::file_type::regular) Add(entry.path());
    }
  }

  void Add(const fs::path& file) {
    std::error_code error;
    const fs::path absolute = fs::absolute(file, error);
    if (error) return Fail(file, error);
    const auto size = fs::file_size(file, error);
    list_.files.push_back(
        {file.native(), Encoded(absolute), error ? 0 : static_cast<int64_t>(size)});
  }

  FileList Take() { return std::move(list_); }

 private:
  bool IsSkipped(const fs::path& path) {
    if (skipped_.empty()) return false;
    const auto found = skipped_.find(Normal(path));
    if (found == skipped_.end()) return false;
    for (const std::string& given : found->second) list_.unmatched.erase(given);
    return true;
  }

  void Fail(const fs::path& path, const std::error_code& error) {
    const std::string name = path.empty() ? "\"\"" : path.native();
    list_.failures.push_back(name + ": " + error.message());
  }

  std::vector<fs::directory_entry> EntriesOf(const fs::path& directory) {
    std::vector<fs::directory_entry> entries;
    std::error_code error;
    for (fs::directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
      if (!IsSkipped(at->path())) entries.push_back(*at);
    }
    if (error) Fail(directory, error);
    std::sort(entries.begin(), entries.end(), [](const auto& left, const auto& right) {
      return left.path().native() < right.path().native();
    });
    return entries;
  }

  std::map<std::string, std::set<std::string>> skipped_;  // As they were given, by normal path.
  FileList list_;
};

}  // namespace

FileList ListFiles(const std::vector<std::string>& paths, const std::set<std::string>& skipped) {
  Walker walker(skipped);
  for (const std::string& path : paths) {
    std::error_code error;
    if (fs::is_directory(path, error)) {
      walker.Walk(path);
    } else {
      walker.Add(path);
    }
  }
  return walker.Take();
}

}  // namespace digest
