// The bare exchange that the service is measured beside: payloads as the same lines, {"data":
// BASE64}, over a QLocalSocket, with Qt's JSON and Qt's Base64.
#pragma once

#include <functional>

#include <QByteArray>
#include <QLocalSocket>

namespace bench {

class JsonLines {
 public:
  // Takes a connected socket over; `receive` is called with each payload that comes.
  JsonLines(int descriptor, std::function<void(const QByteArray&)> receive);

  void Send(const QByteArray& payload);

  // Calls `action` when the other end has closed.
  void OnEnd(std::function<void()> action);

  static QByteArray ToLine(const QByteArray& payload);
  static QByteArray FromLine(const QByteArray& line);

 private:
  QLocalSocket socket_;
};

}  // namespace bench
