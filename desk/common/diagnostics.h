// The desk's messages for people: one line on standard error for each event.
//
// Threads: any. errno does not change, so a caller may still look at it.
#pragma once

#include <cerrno>

#include <QString>

namespace desk {

// Writes "SOURCE: TEXT". If nobody reads standard error, the line is lost and no signal is raised.
void ReportError(const QString& text, const char* source = "tavo-desk");

// Returns the text of an errno, by default the current one.
QString ErrnoText(int error = errno);

}  // namespace desk
