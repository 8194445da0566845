#include "desk/runtime_manager/acceptor.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include <QPointer>
#include <QTimer>

#include "desk/common/diagnostics.h"
#include "desk/common/transfer.h"
#include "desk/runtime_manager/message_peer.h"

namespace desk {
namespace {

constexpr int kRetryMs = 100;

}  // namespace

Acceptor::Acceptor(int listener, std::function<void(int)> accept, QObject* parent)
    : QObject(parent),
      listener_(listener),
      accept_(std::move(accept)),
      notifier_(std::make_unique<QSocketNotifier>(listener, QSocketNotifier::Read)) {
  fcntl(listener, F_SETFL, fcntl(listener, F_GETFL) | O_NONBLOCK);
  connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { AcceptAll(); });
}

Acceptor::~Acceptor() {
  notifier_.reset();
  close(listener_);
}

void Acceptor::AcceptAll() {
  const QPointer<Acceptor> self(this);
  while (self) {
    const int descriptor =
        AboveStandard(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (descriptor >= 0) {
      told_of_pause_ = false;
      accept_(descriptor);
    } else if (errno == EAGAIN) {
      return;
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return Pause();
    }
  }
}

// The connection stays pending, so the notifier would fire without end.
void Acceptor::Pause() {
  if (!std::exchange(told_of_pause_, true)) {
    ReportError(QStringLiteral("a connection has to wait: %1").arg(ErrnoText()));
  }
  notifier_->setEnabled(false);
  QTimer::singleShot(kRetryMs, this, [this] { notifier_->setEnabled(true); });
}

}  // namespace desk
