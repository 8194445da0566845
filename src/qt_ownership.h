// Shared ownership of Qt objects, which die on their own thread.
#pragma once

#include <list>
#include <memory>
#include <utility>

#include <QObject>

namespace tavo::details {

// Deletes on the object's event loop; at once when there is no application, hence no loop. An
// object for whose deletion there is no memory is kept until that of a later one.
class DeleteLater {
 public:
  DeleteLater();

  void operator()(QObject* object) const noexcept;

 private:
  const std::shared_ptr<std::list<QObject*>> place_;  // For the object, should it have to wait.
};

template <typename T, typename... Args>
std::shared_ptr<T> MakeQtShared(Args&&... args) {
  const DeleteLater deleter;
  return std::shared_ptr<T>(new T(std::forward<Args>(args)...), deleter);
}

}  // namespace tavo::details
