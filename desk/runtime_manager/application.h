// Finds the application that a task is named after, as desktop users expect.
//
// In each directory of TAVO_DESK_PATH, in order: NAME.desktop, then an executable NAME; after them
// NAME.desktop in the XDG data directories. TAVO_DESK_WRAPPER, if set, is a command (quoted as for
// a shell) that is put in front: an emulator, a debugger.
#pragma once

#include <optional>

#include <QString>
#include <QStringList>

namespace desk {

struct Application {
  QStringList command;  // The program as an absolute path, and its arguments.
  QString directory;    // Where it is started; empty: where its starter is.
};

// None, with the cause in `error`, when there is no such application or its entry is unusable.
std::optional<Application> FindApplication(const QString& name, QString* error);

}  // namespace desk
