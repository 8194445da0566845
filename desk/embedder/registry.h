// The living engines by the handles that plug-ins have. A handle is a number, never an address: a
// stale, foreign or wrong handle finds nothing.
//
// Threads: any. An engine that was found may be used on its own thread only.
#pragma once

#include <memory>

#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

struct Engine;
class TaskQueue;

struct Handles {
  _FlutterOstrelApplication* application = nullptr;
  _FlutterOstrelEngine* engine = nullptr;
  _FlutterOstrelView* view = nullptr;
};

Handles AddEngine(Engine* engine, std::shared_ptr<TaskQueue> queue);
void RemoveEngine(const _FlutterOstrelEngine* handle);

// Null when there is no such engine.
Engine* FindEngine(const _FlutterOstrelApplication* handle);
Engine* FindEngine(const _FlutterOstrelEngine* handle);
Engine* FindEngine(const _FlutterOstrelView* handle);
std::shared_ptr<TaskQueue> FindQueue(const _FlutterOstrelApplication* handle);

// The engine that was made last, for the entries without a handle.
Engine* FindLatestEngine();

}  // namespace desk
