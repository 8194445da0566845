// The opening of URIs for which no application has registered the intent.
//
// TAVO_DESK_OPEN_URI selects the way: "open" (the default) uses the desktop's opener (xdg-open),
// "record" writes the URI to the record (recorder.h), "fail" fails.
#pragma once

#include <functional>

#include <QObject>
#include <QString>

#include "platform/runtime_manager/error.h"

namespace desk {

// Calls `done` with the outcome on the thread's event loop, unless `context` is destroyed before.
// An opener that still runs is ended with the context.
void OpenUri(const QString& uri, QObject* context,
             const std::function<void(const RuntimeManager::Error&)>& done);

}  // namespace desk
