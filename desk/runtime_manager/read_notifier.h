// Tells when a descriptor has something to read, or has ended.
//
// The event loop polls the descriptors of a thread's first notifiers itself. Those of all others
// are in one epoll set (read_set.h), so that a wake-up costs the same with any number of them.
//
// Threads: used on the thread that it belongs to, whose event loop emits the signal; it may move to
//          another thread. Without an event loop, and after it, it is as silent as a
//          QSocketNotifier.
#pragma once

#include <QObject>
#include <QPointer>

class QSocketNotifier;

namespace desk {

class ReadSet;

class ReadNotifier : public QObject {
  Q_OBJECT

 public:
  // Borrows the descriptor, which must stay open while the notifier is enabled, as it is first.
  ReadNotifier(int descriptor, QObject* parent);
  ~ReadNotifier() override;

  void SetEnabled(bool enabled);

 Q_SIGNALS:
  void activated();

 protected:
  bool event(QEvent* event) override;

 private:
  void Start();
  void Stop();

  const int descriptor_;
  bool is_enabled_ = false;
  QPointer<ReadSet> set_;              // Null: stopped, or the event loop has ended.
  QSocketNotifier* single_ = nullptr;  // A child. Null: stopped, or the set has the descriptor.
};

}  // namespace desk
