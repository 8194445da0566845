// The outcome of an operation of the platform that may fail.
#pragma once

#include <QString>

namespace RuntimeManager {

class Error {
 public:
  Error();                                  // No error.
  Error(int code, const QString& message);  // An error unless `code` is 0.

  explicit operator bool() const;  // Returns whether there is an error.
  int code() const;                // 0: none.
  QString message() const;         // Empty when there is none.

 private:
  int code_;
  QString message_;
};

}  // namespace RuntimeManager
