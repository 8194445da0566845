#include "desk/runtime_manager/read_set.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <utility>

#include <QAbstractEventDispatcher>
#include <QPointer>
#include <QSocketNotifier>

#include "desk/common/transfer.h"
#include "desk/runtime_manager/read_notifier.h"

namespace desk {
namespace {

constexpr size_t kMaxSingles = 8;
constexpr int kMaxEvents = 64;  // The event loop calls again for more.

}  // namespace

ReadSet* ReadSet::GetForThisThread() {
  QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
  if (!dispatcher) return nullptr;
  auto* set = dispatcher->findChild<ReadSet*>(QString(), Qt::FindDirectChildrenOnly);
  return set ? set : new ReadSet(dispatcher);
}

ReadSet::ReadSet(QAbstractEventDispatcher* dispatcher) : QObject(dispatcher), owner_(getpid()) {}

ReadSet::~ReadSet() { Close(); }

bool ReadSet::Add(int descriptor, ReadNotifier* notifier) {
  epoll_event interest{};
  interest.events = EPOLLIN;
  interest.data.fd = descriptor;
  if (singles_.size() < kMaxSingles || getpid() != owner_ || !Open() ||
      epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &interest) != 0) {
    singles_.insert(descriptor);
    return false;
  }
  members_[descriptor] = notifier;
  return true;
}

void ReadSet::Remove(int descriptor) {
  if (members_.erase(descriptor) == 0) {
    singles_.erase(descriptor);
  } else if (getpid() == owner_) {
    epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr);
  }
  if (members_.empty()) Close();
}

bool ReadSet::Open() {
  if (epoll_ >= 0) return true;
  epoll_ = AboveStandard(epoll_create1(EPOLL_CLOEXEC));
  if (epoll_ < 0) return false;
  readable_ = new QSocketNotifier(epoll_, QSocketNotifier::Read, this);
  connect(readable_, &QSocketNotifier::activated, this, [this] { Notify(); });
  return true;
}

void ReadSet::Close() {
  delete std::exchange(readable_, nullptr);
  if (epoll_ >= 0) close(std::exchange(epoll_, -1));
}

// A handler may remove members, close their descriptors, and add others with the same numbers. One
// that has nothing to read finds that out.
void ReadSet::Notify() {
  const QPointer<ReadSet> self(this);
  epoll_event events[kMaxEvents];
  const int count = epoll_wait(epoll_, events, kMaxEvents, 0);
  for (int i = 0; i < count && self; ++i) {
    const auto found = members_.find(events[i].data.fd);
    if (found != members_.end()) Q_EMIT found->second->activated();
  }
}

}  // namespace desk
