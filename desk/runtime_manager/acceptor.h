// Accepts the connections that come to a listening socket.
//
// Threads: made and deleted on the thread whose event loop accepts.
#pragma once

#include <functional>
#include <memory>

#include <QObject>
#include <QSocketNotifier>

namespace desk {

class Acceptor : public QObject {
  Q_OBJECT

 public:
  // Takes the listening socket over and makes it non-blocking. `accept` receives, and owns, each
  // connected socket.
  Acceptor(int listener, std::function<void(int descriptor)> accept, QObject* parent = nullptr);
  ~Acceptor() override;

 private:
  void AcceptAll();
  void Pause();

  const int listener_;
  const std::function<void(int)> accept_;
  std::unique_ptr<QSocketNotifier> notifier_;
  bool told_of_pause_ = false;
};

}  // namespace desk
