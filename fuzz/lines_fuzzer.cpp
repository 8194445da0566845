// The desk's lines against Qt's parser and writer. The input is a line, and a part of longer ones.
#include <QJsonDocument>

#include "desk/runtime_manager/json_line.h"
#include "fuzz/input.h"

static QByteArray Written(const QJsonObject& object) {
  return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

static void CheckLine(const QByteArray& line) {
  QString fault, expected_fault;
  const auto object = desk::ParseLine(line, &fault);
  // With a blank in front no line is plain, so the scan and Qt's parser judge it.
  const auto expected = desk::ParseLine(' ' + line, &expected_fault);
  if (!line.startsWith('{')) return;  // A byte order mark must be in front.
  assert(fault == expected_fault);
  assert(object == expected);
  if (!object) return;
  assert(Written(*object) == Written(*expected));
  assert(desk::MakeLine(*object) == Written(*object));
  QJsonObject inserted;  // As the library makes its messages; the order of odd keys may differ.
  for (auto member = object->begin(); member != object->end(); ++member) {
    const QJsonValue value = member.value();
    inserted.insert(member.key(), value.isString() ? QJsonValue(value.toString()) : value);
  }
  assert(desk::MakeLine(inserted) == Written(inserted));
}

void fuzz::Run(const forge::Buffer& input) {
  const QByteArray line(reinterpret_cast<const char*>(input.GetData()),
                        static_cast<int>(input.GetSize()));
  CheckLine(line);
  CheckLine("{\"data\":\"" + line + "\"}");
  CheckLine("{\"data\":\"" + line.left(64).repeated(40) + line + "\"}");
}
