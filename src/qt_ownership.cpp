#include "src/qt_ownership.h"

#include <mutex>
#include <new>

#include <QCoreApplication>

namespace tavo::details {
namespace {

// The objects to be deleted for which no event could be posted so far.
struct Waiting {
  std::mutex mutex;
  std::list<QObject*> objects;  // Guarded by mutex.

  static Waiting& Get() {
    static auto& waiting = *new Waiting;
    return waiting;
  }
};

}  // namespace

DeleteLater::DeleteLater() : place_(std::make_shared<std::list<QObject*>>(1)) { Waiting::Get(); }

void DeleteLater::operator()(QObject* object) const noexcept {
  if (!QCoreApplication::instance()) {
    delete object;
    return;
  }
  auto& [mutex, objects] = Waiting::Get();
  const std::lock_guard lock(mutex);
  place_->front() = object;
  objects.splice(objects.end(), *place_);
  try {
    for (; !objects.empty(); objects.pop_front()) objects.front()->deleteLater();
  } catch (const std::bad_alloc&) {  // Qt has no memory for the event.
  }
}

}  // namespace tavo::details
