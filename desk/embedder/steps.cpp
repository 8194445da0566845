#include "desk/embedder/steps.h"

#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include <QPointer>
#include <QTimer>

#include "cw/admission.h"
#include "cw/standard_method_codec.h"
#include "desk/common/value_json.h"

namespace desk {
namespace {

using cw::EncodableValue;
using Bytes = std::vector<uint8_t>;

// ---- Answers as texts ----

class ResultText final : public cw::MethodResult<EncodableValue> {
 public:
  std::string text;

 protected:
  void SuccessInternal(const EncodableValue* result) override {
    text = ToText(result ? *result : EncodableValue());
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    text = "error " + ToText(Json{{"code", code},
                                  {"message", message},
                                  {"details", details ? ToJson(*details) : Json()}});
  }
  void NotImplementedInternal() override { text = "not implemented"; }
};

// The envelope's values are looked at as elements of one list, behind as many nulls as leave them
// where they are by the alignment of eight.
const char* FindFault(const uint8_t* data, size_t size) {
  constexpr uint8_t kNulls = 7;
  const auto values = static_cast<uint8_t>(data[0] == 0 ? 1 : 3);
  Bytes list = {12, static_cast<uint8_t>(kNulls + values)};
  list.resize(list.size() + kNulls);
  list.insert(list.end(), data + 1, data + size);
  return cw::FindInadmissible(list.data(), list.size());
}

std::string DescribeResult(const uint8_t* data, size_t size) {
  if (size == 0) return "not implemented";
  if (const char* fault = FindFault(data, size)) return std::string("no envelope: ") + fault;
  ResultText result;
  try {
    const auto& codec = cw::StandardMethodCodec::GetInstance();
    if (codec.DecodeAndProcessResponseEnvelope(data, size, &result)) return result.text;
  } catch (const std::exception&) {  // An error whose code is no text.
  }
  return "no envelope";
}

std::string DescribeValue(const uint8_t* data, size_t size) {
  if (size == 0) return "nothing";
  if (const char* fault = cw::FindInadmissible(data, size))
    return std::string("no value: ") + fault;
  return ToText(EncodableValue::Deserialize(data, size));
}

Bytes EncodeMessage(const Step& step) {
  const auto encoded = step.method
                           ? cw::StandardMethodCodec::GetInstance().EncodeMethodCall(
                                 {*step.method, std::make_unique<EncodableValue>(step.value)})
                           : step.value.Serialize();
  return Bytes(encoded.GetData(), encoded.GetData() + encoded.GetSize());
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
  const auto reply = [runner = QPointer<StepRunner>(this), &step](const uint8_t* data,
                                                                  size_t size) {
    if (runner) runner->OnAnswer(step, data, size);
  };
  if (embedder_.Deliver(step.channel, message.data(), message.size(), reply)) return;
  Tell(NameOf(step) + " -> no handler");
  Continue();
}

void StepRunner::OnAnswer(const Step& step, const uint8_t* data, size_t size) {
  Tell(NameOf(step) + " -> " +
       (step.method ? DescribeResult(data, size) : DescribeValue(data, size)));
  Continue();
}

}  // namespace desk
