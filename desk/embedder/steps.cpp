#include "desk/embedder/steps.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include <QPointer>
#include <QTimer>

#include "cw/map_access.h"
#include "cw/standard_method_codec.h"
#include "desk/common/value_json.h"
#include "desk/embedder/messages.h"

namespace desk {
namespace {

using cw::EncodableValue;
using Bytes = std::vector<uint8_t>;

// ---- Messages as texts ----

std::string DescribeBytes(const uint8_t* data, size_t size) {
  if (size == 0) return "nothing";
  const cw::EncodableMap message = DescribeMessage(data, size);
  if (const auto* value = cw::Find(message, "message")) return ToText(*value, SmallInt64::kPlain);
  return ToText(message, SmallInt64::kPlain);
}

std::string DescribeResult(const uint8_t* data, size_t size) {
  if (size == 0) return "not implemented";
  if (size == 1 && data[0] == 0) return "null";  // A success without a value.
  const cw::EncodableMap message = DescribeMessage(data, size);
  if (const auto* success = cw::Find(message, "success"))
    return ToText(*success, SmallInt64::kPlain);
  const auto* error = cw::Find(message, "error");
  if (!error) return "not an envelope: " + DescribeBytes(data, size);
  Json json;
  for (const char* key : {"code", "message", "details"}) {
    json[key] = ToJson(*cw::Find(error, key), SmallInt64::kPlain);
  }
  if (json["message"].is_null()) json["message"] = "";  // An empty text is sent as null.
  return "error " + ToText(json);
}

Bytes EncodeMessage(const Step& step) {
  if (step.bytes) return *step.bytes;
  const EncodableValue value = step.value.value_or(EncodableValue());
  const auto encoded = step.method ? cw::StandardMethodCodec::GetInstance().EncodeMethodCall(
                                         {*step.method, std::make_unique<EncodableValue>(value)})
                                   : value.Serialize();
  return Bytes(encoded.GetData(), encoded.GetData() + encoded.GetSize());
}

// The text that stands for the key in JSON without marks.
std::string NameOfKey(const EncodableValue& key) {
  const auto* wide = key.GetIf<int64_t>();
  return wide ? std::to_string(*wide) : ToText(key, SmallInt64::kPlain);
}

// Makes values comparable that JSON without marks cannot tell apart: a step "expect" need not know
// which type of number or list the plug-in sends.
struct Simplifier {
  EncodableValue operator()(int32_t number) const { return int64_t{number}; }
  EncodableValue operator()(double number) const {
    if (!std::isfinite(number)) return {};
    const bool is_integer = std::abs(number) < 0x1p63 && std::trunc(number) == number;
    return is_integer ? EncodableValue(static_cast<int64_t>(number)) : EncodableValue(number);
  }
  EncodableValue operator()(float number) const { return (*this)(static_cast<double>(number)); }
  EncodableValue operator()(uint8_t number) const { return int64_t{number}; }
  EncodableValue operator()(const EncodableValue& value) const { return value.Visit(*this); }
  template <typename T>
  EncodableValue operator()(const std::vector<T>& elements) const {
    cw::EncodableList list;
    for (const auto& element : elements) list.push_back((*this)(element));
    return list;
  }
  EncodableValue operator()(const cw::EncodableMap& map) const {
    cw::EncodableMap simple;
    for (const auto& [key, mapped] : map) {
      simple[key.Is<std::string>() ? key : NameOfKey(key)] = (*this)(mapped);
    }
    return simple;
  }
  template <typename T>
  EncodableValue operator()(const T& held) const {
    return held;
  }
};

bool IsExpected(const Step& step, const cw::EncodableMap& message) {
  const auto is = [&message](const char* key, const EncodableValue& expected) {
    const auto* actual = cw::Find(message, key);
    return actual && Simplifier()(*actual) == Simplifier()(expected);
  };
  if (!is("channel", step.channel)) return false;
  if (step.method && !is("method", *step.method)) return false;
  if (step.bytes && !is("bytes", ToBase64(step.bytes->data(), step.bytes->size()))) return false;
  return !step.value || is(step.method ? "arguments" : "message", *step.value);
}

std::string NameOf(const Step& step) {
  return "message " + step.channel + (step.method ? " " + *step.method : "");
}

}  // namespace

StepRunner::StepRunner(Embedder& embedder, std::vector<Step> steps, std::ostream& output)
    : embedder_(embedder), steps_(std::move(steps)), output_(output) {}

void StepRunner::Continue() {
  if (next_ == steps_.size()) return;
  QTimer::singleShot(0, this, [this] { Do(steps_[next_++]); });
}

void StepRunner::Tell(const std::string& line) { output_ << line << std::endl; }

void StepRunner::Do(const Step& step) {
  switch (step.kind) {
    case Step::kMessage:
      return SendMessage(step);
    case Step::kExpect:
      return Expect(step);
    case Step::kWait:
      Tell("wait " + std::to_string(step.pause));
      QTimer::singleShot(static_cast<int>(step.pause), this, [this] { Continue(); });
      return;
    case Step::kView:
      Tell("view " + step.changes);
      embedder_.ChangeView([&](View& view) { ChangeView(step.changes, &view); });
      break;
    case Step::kListen:
      Tell("listen " + step.channel);
      embedder_.Listen(step.channel, [answer = Encode(step.answer)](const uint8_t*, size_t,
                                                                    const Embedder::Reply& reply) {
        reply(answer.data(), answer.size());
      });
      break;
    case Step::kCease:
      Tell("cease " + step.channel);
      embedder_.Listen(step.channel, nullptr);
      break;
    case Step::kDestroyEngine:
      Tell("destroy_engine");
      embedder_.DestroyEngine();
      break;
    case Step::kExit:
      Tell("exit " + std::to_string(step.exit_code));
      embedder_.Exit(step.exit_code);
      break;
  }
  Continue();
}

void StepRunner::SendMessage(const Step& step) {
  const Bytes message = EncodeMessage(step);
  const size_t number = waiting_for_ = next_;
  const auto reply = [runner = QPointer<StepRunner>(this), number](const uint8_t* data,
                                                                   size_t size) {
    if (runner) runner->OnAnswer(number, data, size);
  };
  if (!embedder_.Deliver(step.channel, message.data(), message.size(), reply)) {
    waiting_for_ = 0;
    Tell(NameOf(step) + " -> no handler");
    return Continue();
  }
  if (!step.timeout || waiting_for_ != number) return;  // It may be answered already.
  SetTimeout(*step.timeout, [this, &step] {
    Tell(NameOf(step) + " -> no answer within " + std::to_string(*step.timeout) + " ms");
    Continue();
  });
}

void StepRunner::OnAnswer(size_t number, const uint8_t* data, size_t size) {
  if (waiting_for_ != number) return;  // The answer came too late.
  waiting_for_ = 0;
  const Step& step = steps_[number - 1];
  Tell(NameOf(step) + " -> " +
       (step.method ? DescribeResult(data, size) : DescribeBytes(data, size)));
  Continue();
}

void StepRunner::Expect(const Step& step) {
  constexpr uint32_t kPatienceMs = 5000;
  if (TakeExpected(step)) return;
  waiting_for_ = next_;
  const uint32_t timeout = step.timeout.value_or(kPatienceMs);
  SetTimeout(timeout, [this, &step, timeout] {
    Tell("expect " + step.channel + " -> nothing within " + std::to_string(timeout) + " ms");
    embedder_.Exit(kStepFailed);
  });
}

bool StepRunner::TakeExpected(const Step& step) {
  const auto found = std::find_if(sent_.begin(), sent_.end(), [&step](const auto& message) {
    return IsExpected(step, message);
  });
  if (found == sent_.end()) return false;
  for (const char* known : {"action", "channel", "size"}) found->erase(known);
  Tell("expect " + step.channel + " -> " + ToText(*found, SmallInt64::kPlain));
  sent_.erase(found);
  Continue();
  return true;
}

void StepRunner::OnAction(const EncodableValue& action) {
  constexpr size_t kMaxSent = 65536;
  const auto is_expect = [](const Step& step) { return step.kind == Step::kExpect; };
  const auto rest = steps_.begin() + static_cast<std::ptrdiff_t>(next_ > 0 ? next_ - 1 : 0);
  if (std::none_of(rest, steps_.end(), is_expect)) return;
  const auto& details = action.Get<cw::EncodableMap>();
  if (cw::Get<std::string>(details, "action") != "Send" || sent_.size() == kMaxSent) return;
  sent_.push_back(details);
  const bool is_waiting = waiting_for_ != 0 && steps_[waiting_for_ - 1].kind == Step::kExpect;
  if (is_waiting && TakeExpected(steps_[waiting_for_ - 1])) waiting_for_ = 0;
}

// Calls `on_timeout` if the current step still waits then.
void StepRunner::SetTimeout(uint32_t milliseconds, std::function<void()> on_timeout) {
  const auto expire = [this, number = waiting_for_, on_timeout = std::move(on_timeout)] {
    if (waiting_for_ != number) return;
    waiting_for_ = 0;
    on_timeout();
  };
  QTimer::singleShot(static_cast<int>(milliseconds), this, expire);
}

}  // namespace desk
