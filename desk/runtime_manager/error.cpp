#include "platform/runtime_manager/error.h"

namespace RuntimeManager {

Error::Error() : Error(0, QString()) {}

Error::Error(int code, const QString& message) : code_(code), message_(message) {}

Error::operator bool() const { return code_ != 0; }

int Error::code() const { return code_; }

QString Error::message() const { return message_; }

}  // namespace RuntimeManager
