// Opens URIs for which no application has registered the intent.
//
// TAVO_DESK_OPEN_URI says how: "open", as without it, by the desktop's opener (xdg-open); "record",
// by writing it down (recorder.h); "fail", not at all.
#pragma once

#include <functional>

#include <QObject>
#include <QString>

#include "platform/runtime_manager/error.h"

namespace desk {

// Tells `done` the outcome on the thread's event loop, unless `context` is gone by then; an opener
// that still runs ends with the context.
void OpenUri(const QString& uri, QObject* context,
             const std::function<void(const RuntimeManager::Error&)>& done);

}  // namespace desk
