// The look-up of the application that a task is named after, as desktop users expect.
//
// It looks in each directory of TAVO_DESK_PATH, in order, for NAME.desktop and then for an
// executable NAME; after them for NAME.desktop in the XDG data directories. TAVO_DESK_WRAPPER, if
// set, is a command (quoted as for a shell) that is put in front: an emulator, a debugger.
#pragma once

#include <optional>

#include <QString>
#include <QStringList>

namespace desk {

struct Application {
  QStringList command;  // The program as an absolute path, and its arguments.
  QString directory;    // The directory to start in; empty: that of the starter.
};

// Replaces the first word by the path of its program, as a shell finds it: a word with a slash is a
// path, any other a program in PATH. False, with the cause in `error`, when there is none.
bool ResolveProgram(QStringList* command, QString* error);

// Empty, with the cause in `error`, when there is no such application or its entry is unusable.
std::optional<Application> FindApplication(const QString& name, QString* error);

// Returns the desktop entries and executables of this name in the order of the search. The first
// one counts and hides the others.
QStringList FindFiles(const QString& name);

// Returns the names of all applications that have a file, sorted.
QStringList ListApplications();

}  // namespace desk
