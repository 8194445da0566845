// Shared ownership of Qt objects, which are destroyed on their own thread.
#pragma once

#include <list>
#include <memory>
#include <utility>

#include <QObject>

namespace tavo::details {

// Deletes the object on its event loop; without an application there is no loop, so it deletes at
// once. If there is no memory for the deletion's event, the object is kept until a later deletion.
class DeleteLater {
 public:
  DeleteLater();

  void operator()(QObject* object) const noexcept;

 private:
  // A list node for the object, in case it has to wait.
  const std::shared_ptr<std::list<QObject*>> place_;
};

template <typename T, typename... Args>
std::shared_ptr<T> MakeQtShared(Args&&... args) {
  const DeleteLater deleter;
  return std::shared_ptr<T>(new T(std::forward<Args>(args)...), deleter);
}

}  // namespace tavo::details
