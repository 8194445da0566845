// Shared ownership of Qt objects, which die on their own thread.
#pragma once

#include <memory>
#include <utility>

#include <QCoreApplication>
#include <QObject>

namespace tavo::details {

// Deletes on the object's event loop; at once when there is no application, hence no loop.
struct DeleteLater {
  void operator()(QObject* object) const {
    if (QCoreApplication::instance()) {
      object->deleteLater();
    } else {
      delete object;
    }
  }
};

template <typename T, typename... Args>
std::shared_ptr<T> MakeQtShared(Args&&... args) {
  return std::shared_ptr<T>(new T(std::forward<Args>(args)...), DeleteLater{});
}

}  // namespace tavo::details
