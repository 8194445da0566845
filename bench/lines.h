// The bare exchange that the service is measured beside: lines over a QLocalSocket, flushed one by
// one. As JSON a line is the service's, {"data": BASE64}, with Qt's JSON and Qt's Base64.
#pragma once

#include <functional>

#include <QByteArray>
#include <QLocalSocket>

namespace bench {

class Lines {
 public:
  // Takes a connected socket over; `receive` is called with each line, its newline included.
  Lines(int descriptor, std::function<void(const QByteArray&)> receive);

  void Send(const QByteArray& line);

  // Calls `action` when the other end has closed.
  void OnEnd(std::function<void()> action);

 private:
  QLocalSocket socket_;
};

QByteArray ToJsonLine(const QByteArray& payload);
QByteArray FromJsonLine(const QByteArray& line);

}  // namespace bench
