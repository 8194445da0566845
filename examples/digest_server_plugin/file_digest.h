// The SHA-256 digest of a file, made in slices so that its thread stays responsive.
//
// Threads: one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <QCryptographicHash>

namespace digest {

class FileDigest {
 public:
  enum class State { kReading, kDone, kFailed };

  // Null, with the cause in `error`, when there is no regular file that can be read. Never waits
  // for the writer of a pipe.
  static std::unique_ptr<FileDigest> Open(const std::string& path, std::string* error);
  ~FileDigest();
  FileDigest(const FileDigest&) = delete;
  FileDigest& operator=(const FileDigest&) = delete;

  // Reads the next 1 MiB at most; the cause of a failure is in `error`.
  State ReadSlice(std::string* error);

  int64_t GetSize() const { return size_; }  // The size when the file was opened.
  int64_t GetDone() const { return done_; }
  std::string GetHex() const;

 private:
  FileDigest(int descriptor, int64_t size) : descriptor_(descriptor), size_(size) {}

  const int descriptor_;
  const int64_t size_;
  int64_t done_ = 0;
  QCryptographicHash hash_{QCryptographicHash::Sha256};
};

}  // namespace digest
