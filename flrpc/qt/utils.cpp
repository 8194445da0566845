#include "flrpc/qt/utils.h"

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <QJsonArray>
#include <QJsonDocument>

#include "forge/buffer.h"
#include "forge/logger.h"
#include "forge/numbers.h"

namespace flrpc::qt {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

constexpr int kDeepest = 1024;  // Qt's parser accepts no more levels, and its containers recurse.

bool IsWithinDepth(int depth) {
  if (depth <= kDeepest) return true;
  FORGE_LOG(kError) << "Values nested deeper than " << kDeepest << " levels cannot be converted";
  return false;
}

// ---- To JSON ------------------------------------------------------------------------------------

// Makes the JSON value of each alternative; `depth` counts the containers around it.
class JsonMaker {
 public:
  JsonMaker(int depth, QJsonValue& out) : depth_(depth), out_(out) {}

  bool operator()(std::monostate) { return Put(QJsonValue::Null); }
  bool operator()(bool truth) { return Put(truth); }
  bool operator()(int32_t number) { return Put(number); }
  bool operator()(int64_t number) { return Put(static_cast<double>(number)); }

  bool operator()(double number) {
    if (std::isinf(number)) {
      FORGE_LOG(kError) << "Infinite double value cannot be represented as a JSON value";
      return false;
    }
    if (std::isnan(number)) {
      FORGE_LOG(kError) << "Non-a-number value cannot be represented as a JSON value";
      return false;
    }
    return Put(number);
  }

  bool operator()(const std::string& text) {
    if (text.size() > static_cast<size_t>(std::numeric_limits<int>::max())) return Refuse();
    return Put(QString::fromUtf8(text.data(), static_cast<int>(text.size())));
  }

  bool operator()(const std::vector<uint8_t>& bytes) {
    const std::string text = forge::Buffer(bytes).ToBase64();
    // If the bytes are too large, the buffer has written a line.
    return text.empty() == bytes.empty() && (*this)(text);
  }

  template <typename T>
  bool operator()(const std::vector<T>& list) {
    if (!IsWithinDepth(depth_ + 1)) return false;
    QJsonArray array;
    for (const T& element : list) {
      QJsonValue json;
      if (!JsonMaker(depth_ + 1, json).Convert(element)) return false;
      array.append(json);
    }
    return Put(array);
  }

  bool operator()(const EncodableMap& map) {
    if (!IsWithinDepth(depth_ + 1)) return false;
    QJsonObject object;
    for (const auto& [key, value] : map) {
      const auto* name = key.GetIf<std::string>();
      if (!name) {
        FORGE_LOG(kError) << "The key used to create a JSON object must have a string value";
        return false;
      }
      QJsonValue member, json;
      if (!JsonMaker(depth_, member)(*name)) return false;
      if (!JsonMaker(depth_ + 1, json).Convert(value)) return false;
      object.insert(member.toString(), json);
    }
    return Put(object);
  }

  bool operator()(const cw::CustomEncodableValue&) { return Refuse(); }

 private:
  bool Convert(const EncodableValue& value) { return value.Visit(*this); }
  bool Convert(float number) { return (*this)(double{number}); }
  template <typename T>
  bool Convert(T number) {
    return (*this)(number);
  }

  bool Put(const QJsonValue& json) {
    out_ = json;
    return true;
  }

  static bool Refuse() {
    FORGE_LOG(kError) << "The EncodableValue cannot be represented as a JSON value";
    return false;
  }

  const int depth_;
  QJsonValue& out_;
};

// ---- From JSON ----------------------------------------------------------------------------------

bool FromJson(const QJsonValue& json, int depth, EncodableValue& out);

// Returns the number as a T if T can hold it exactly.
bool Narrow(double number, double& out) {
  out = number;
  return true;
}
bool Narrow(double number, int64_t& out) { return forge::numbers::SafeDoubleToInt64(number, out); }
bool Narrow(double number, int32_t& out) {
  int64_t wide = 0;
  if (!Narrow(number, wide)) return false;
  out = static_cast<int32_t>(wide);
  return out == wide;
}

EncodableValue NumberFromJson(double number) {
  int64_t wide = 0;
  if (!Narrow(number, wide)) return number;
  const auto narrow = static_cast<int32_t>(wide);
  return narrow == wide ? EncodableValue(narrow) : EncodableValue(wide);
}

template <typename T>
bool TypedListFromJson(const QJsonArray& array, EncodableValue& out) {
  std::vector<T> list;
  for (const auto& element : array) {
    T number{};
    if (!element.isDouble() || !Narrow(element.toDouble(), number)) return false;
    list.push_back(number);
  }
  out = std::move(list);
  return !array.isEmpty();
}

bool ListFromJson(const QJsonArray& array, int depth, EncodableValue& out) {
  if (!IsWithinDepth(depth)) return false;
  if (TypedListFromJson<int32_t>(array, out) || TypedListFromJson<int64_t>(array, out) ||
      TypedListFromJson<double>(array, out)) {
    return true;
  }
  EncodableList list;
  for (const auto& element : array) {
    EncodableValue value;
    if (!FromJson(element, depth, value)) return false;
    list.push_back(std::move(value));
  }
  out = std::move(list);
  return true;
}

bool MapFromJson(const QJsonObject& object, int depth, EncodableMap& out) {
  if (!IsWithinDepth(depth)) return false;
  for (auto entry = object.begin(); entry != object.end(); ++entry) {
    EncodableValue value;
    if (!FromJson(entry.value(), depth, value)) return false;
    out.insert_or_assign(entry.key().toStdString(), std::move(value));
  }
  return true;
}

bool FromJson(const QJsonValue& json, int depth, EncodableValue& out) {
  switch (json.type()) {
    case QJsonValue::Null:
      out = {};
      return true;
    case QJsonValue::Bool:
      out = json.toBool();
      return true;
    case QJsonValue::Double:
      out = NumberFromJson(json.toDouble());
      return true;
    case QJsonValue::String:
      out = json.toString().toStdString();
      return true;
    case QJsonValue::Array:
      return ListFromJson(json.toArray(), depth + 1, out);
    case QJsonValue::Object: {
      EncodableMap map;
      if (!MapFromJson(json.toObject(), depth + 1, map)) return false;
      out = std::move(map);
      return true;
    }
    case QJsonValue::Undefined:
      break;
  }
  FORGE_LOG(kError) << "The JSON value cannot be represented as a EncodableValue";
  return false;
}

}  // namespace

bool EncodableToJson(const EncodableValue& value, QJsonValue& out) {
  return value.Visit(JsonMaker(0, out));
}

bool EncodableMapToJsonObject(const EncodableMap& map, QJsonObject& out) {
  QJsonValue json;
  if (!JsonMaker(0, json)(map)) return false;
  out = json.toObject();
  return true;
}

QString EncodableMapToJsonString(const EncodableMap& map) {
  QJsonObject object;
  if (!EncodableMapToJsonObject(map, object)) return {};
  return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

bool JsonToEncodable(const QJsonValue& value, EncodableValue& out) {
  return FromJson(value, 0, out);
}

bool JsonObjectToEncodableMap(const QJsonObject& object, EncodableMap& out) {
  out.clear();
  return MapFromJson(object, 1, out);
}

}  // namespace flrpc::qt
