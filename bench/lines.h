// The bare exchange that the service is measured beside: lines over a QLocalSocket, flushed one by
// one. As JSON a line is the service's, {"data": BASE64}, with Qt's JSON and Qt's Base64.
#pragma once

#include <functional>

#include <QByteArray>
#include <QLocalSocket>

namespace bench {

class Lines {
 public:
  using Receive = std::function<void(const QByteArray& line)>;  // The newline is part of the line.

  enum class Framing {
    kCanReadLine,  // As a plain Qt program does; a long line is looked at again with each part.
    kBuffer        // Each byte is looked at once.
  };

  // Takes a connected socket over.
  Lines(int descriptor, Framing framing, Receive receive);

  void Send(const QByteArray& line);

  // Calls `action` when the other end has closed.
  void OnEnd(std::function<void()> action);

 private:
  void ReadLines();
  void ReadIntoBuffer();

  const Receive receive_;
  QLocalSocket socket_;
  QByteArray buffer_;  // With kBuffer: the begin of a line.
};

QByteArray ToJsonLine(const QByteArray& payload);
QByteArray FromJsonLine(const QByteArray& line);

}  // namespace bench
