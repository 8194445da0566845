#include "desk/runtime_manager/read_notifier.h"

#include <utility>

#include <QEvent>
#include <QSocketNotifier>

#include "desk/runtime_manager/read_set.h"

namespace desk {

ReadNotifier::ReadNotifier(int descriptor, QObject* parent)
    : QObject(parent), descriptor_(descriptor) {
  SetEnabled(true);
}

ReadNotifier::~ReadNotifier() { Stop(); }

void ReadNotifier::SetEnabled(bool enabled) {
  if (std::exchange(is_enabled_, enabled) == enabled) return;
  enabled ? Start() : Stop();
}

// Comes on the old thread, before the move; what is posted comes on the new one.
bool ReadNotifier::event(QEvent* event) {
  if (event->type() == QEvent::ThreadChange && is_enabled_) {
    Stop();
    const auto restart = [this] {
      if (is_enabled_) Start();
    };
    QMetaObject::invokeMethod(this, restart, Qt::QueuedConnection);
  }
  return QObject::event(event);
}

void ReadNotifier::Start() {
  Stop();
  set_ = ReadSet::GetForThisThread();
  if (set_ && set_->Add(descriptor_, this)) return;
  single_ = new QSocketNotifier(descriptor_, QSocketNotifier::Read, this);
  connect(single_, &QSocketNotifier::activated, this, &ReadNotifier::activated);
}

void ReadNotifier::Stop() {
  delete std::exchange(single_, nullptr);
  if (set_) set_->Remove(descriptor_);
  set_ = nullptr;
}

}  // namespace desk
