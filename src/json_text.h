// The JSON object that carries a text: {"data": text}.
//
// Qt's usual conversions of a text go by way of UTF-16, which costs several copies of it. So the
// object of an ASCII text is made from its bytes, and Qt's CBOR view of an object gives the text in
// UTF-8. The results are those of the usual conversions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <QCborStreamWriter>
#include <QIODevice>
#include <QJsonObject>

namespace tavo::details {

// Makes the object of a text in UTF-8. Wrong bytes become U+FFFD, and a byte order mark at the
// beginning is dropped. A text of 2 GiB or more throws std::length_error.
//
// Threads: any.
QJsonObject ToJson(std::string_view text);

// Reads the text of one object after the other.
//
// Threads: not for use by several threads at once.
class JsonTextReader {
 public:
  // Returns the text in UTF-8, or nothing when "data" is no string. Half a surrogate pair becomes
  // "?".
  std::optional<std::string> Read(const QJsonObject& message);

 private:
  // Takes the text out of its CBOR encoding: a head of 1 to 9 bytes, then the text in UTF-8.
  class Sink final : public QIODevice {
   public:
    Sink() { open(QIODevice::WriteOnly | QIODevice::Unbuffered); }

    // To be called before a text is written.
    void Begin();

    // Returns the text that was written. Throws std::bad_alloc if there was no memory for it.
    std::string Take();

   protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char* data, qint64 size) override;

   private:
    std::string text_;
    std::optional<qint64> head_left_;  // Empty until the first byte tells the size of the head.
    bool has_failed_ = false;
  };

  Sink sink_;
  QCborStreamWriter writer_{&sink_};
};

}  // namespace tavo::details
