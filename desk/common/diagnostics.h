// What the desk tells a person: one line on standard error for each event.
//
// Threads: any. errno stays as it is, so that a caller may still look at it.
#pragma once

#include <cerrno>

#include <QString>

namespace desk {

// Writes "SOURCE: TEXT". The line is lost where nobody reads standard error; no signal comes.
void ReportError(const QString& text, const char* source = "tavo-desk");

// The text of an errno, by default the current one.
QString ErrnoText(int error = errno);

}  // namespace desk
