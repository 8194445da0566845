// The read notifiers of one event loop: an epoll set, which the loop polls as one descriptor.
//
// Owned by the event dispatcher, so that an application that comes later gets a set of its own.
//
// Threads: the event loop's.
#pragma once

#include <sys/types.h>

#include <unordered_map>
#include <unordered_set>

#include <QObject>

class QAbstractEventDispatcher;
class QSocketNotifier;

namespace desk {

class ReadNotifier;

class ReadSet : public QObject {
  Q_OBJECT

 public:
  // Null when the thread has no event loop.
  static ReadSet* GetForThisThread();

  explicit ReadSet(QAbstractEventDispatcher* dispatcher);
  ~ReadSet() override;

  // Returns whether the set polls the descriptor. If not, the notifier must: it is one of the first
  // kMaxSingles, for which one more system call would cost more, or there is no set.
  bool Add(int descriptor, ReadNotifier* notifier);

  // Whether or not the set polls the descriptor.
  void Remove(int descriptor);

 private:
  bool Open();
  void Close();
  void Notify();

  const pid_t owner_;  // A forked process shares the epoll set, and must not change it.
  int epoll_ = -1;     // Open while there are members.
  QSocketNotifier* readable_ = nullptr;
  std::unordered_set<int> singles_;  // Descriptors that their notifiers poll.
  std::unordered_map<int, ReadNotifier*> members_;
};

}  // namespace desk
