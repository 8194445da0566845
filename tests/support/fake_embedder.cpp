#include "tests/support/fake_embedder.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <sstream>
#include <type_traits>

namespace test {
namespace {

FakeEmbedder* current = nullptr;

}  // namespace

// What an entry does with its arguments, one after the other.
class FakeEmbedder::Arguments {
 public:
  explicit Arguments(FakeEmbedder& fake) : fake_(fake) {}

  std::string GetText() const { return text_.str(); }
  std::optional<double> GetAnswer() const { return answer_; }

  void Take(_FlutterOstrelApplication* handle) {
    Write(handle == fake_.context.application ? "application" : "?");
  }
  void Take(_FlutterOstrelEngine* handle) {
    Write(handle == fake_.context.engine ? "engine" : "?");
  }
  void Take(_FlutterOstrelView* handle) { Write(handle == fake_.context.view ? "view" : "?"); }
  void Take(const char* text) { Write(text); }

  // A number may be the size of what stands before it.
  template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
  void Take(Number number) {
    const auto size = static_cast<size_t>(number);
    if (filled_size_ != 0) {
      EXPECT_EQ(std::exchange(filled_size_, 0), size);
    } else if (asks_for_text_) {
      AnswerText(size);
    } else {
      if (const uint8_t* bytes = std::exchange(bytes_, nullptr)) {
        fake_.data.assign(bytes, bytes + size);
      }
      Write(number);
    }
  }
  void Take(const uint8_t* bytes) {
    bytes_ = bytes;
    fake_.data.clear();
  }
  void Take(char* buffer) {
    buffer_ = buffer;
    asks_for_text_ = true;
  }

  // Filled for the caller.
  void Take(FlutterOstrelApplicationProcTable* table) { Fill(table, fake_.application); }
  void Take(FlutterOstrelViewProcTable* table) { Fill(table, fake_.view); }
  void Take(FlutterOstrelMessengerProcTable* table) { Fill(table, fake_.messenger); }
  void Take(FlutterOstrelTextureProcTable* table) { Fill(table, fake_.texture); }
  void Take(FlutterOstrelOSVersion* version) { Fill(version, fake_.os_version); }
  void Take(FlutterOstrelEmbedderVersion* version) { Fill(version, fake_.embedder_version); }
  void Take(FlutterOstrelTheme* theme) { Fill(theme, fake_.theme); }
  void Take(ForgeBufferView* view) {
    const auto& payload = fake_.payload;
    Fill(view, ForgeBufferView{sizeof *view, payload.data(), payload.size()});
  }
  void Take(void** handle) { *handle = &fake_; }
  void Take(int* count) { *count = static_cast<int>(fake_.dart_arguments.size()); }
  void Take(const char* const** arguments) { *arguments = fake_.dart_arguments.data(); }

  // Kept.
  void Take(const FlutterOstrelSlot* slot) { fake_.Keep(slot, &fake_.slot_); }
  void Take(const FlutterOstrelBoolSlot* slot) { fake_.Keep(slot, &fake_.bool_slot_); }
  void Take(const FlutterOstrelResultSlot* slot) { fake_.Keep(slot, &fake_.result_slot_); }
  void Take(const FlutterOstrelWindowParameters* parameters) {
    EXPECT_EQ(sizeof *parameters, parameters->size);
    Take(parameters->first_text);
    Take(parameters->second_text);
    Take(parameters->payload);
    Take(parameters->payload_size);
  }
  void Take(const FlutterOstrelTextureDescriptor* descriptor) {
    fake_.descriptor = *descriptor;
    Write(descriptor->kind);
  }
  void Take(FlutterOstrelReplyCallback callback) { fake_.reply_callback = callback; }
  void Take(FlutterOstrelMessageCallback callback) {
    fake_.message_callback = callback;
    Write(callback != nullptr);
  }
  void Take(void (*callback)(void*)) { fake_.unregistered_callback = callback; }
  void Take(void (*callback)(_FlutterOstrelEngine*)) { fake_.engine_destroyed = callback; }
  void Take(void* user_data) { fake_.user_data = user_data; }

 private:
  template <typename T>
  void Write(const T& argument) {
    text_ << std::exchange(separator_, ", ") << argument;
  }

  template <typename Structure>
  void Fill(Structure* target, const Structure& source) {
    *target = source;
    filled_size_ = sizeof source;
  }

  // The size that the text needs. "other size": as if it grew between the two questions.
  void AnswerText(size_t size) {
    const std::string& text = fake_.text;
    if (buffer_) std::memcpy(buffer_, text.c_str(), std::min(size, text.size() + 1));
    const bool has_grown = buffer_ && fake_.answers.count("other size") > 0;
    answer_ = static_cast<double>(text.size() + (has_grown ? 2 : 1));
  }

  FakeEmbedder& fake_;
  std::ostringstream text_;
  const char* separator_ = "";
  std::optional<double> answer_;  // Where it is not the test's.
  size_t filled_size_ = 0;        // What the next number has to be.
  const uint8_t* bytes_ = nullptr;
  char* buffer_ = nullptr;
  bool asks_for_text_ = false;
};

template <typename... Parameters>
double FakeEmbedder::Enter(const char* entry, Parameters... parameters) {
  Arguments arguments(*this);
  (arguments.Take(parameters), ...);
  const auto hook = within.find(entry);
  if (hook != within.end()) std::function<void()>(hook->second)();  // It may remove itself.
  calls_.emplace_back(entry, arguments.GetText());
  if (arguments.GetAnswer()) return *arguments.GetAnswer();
  const auto answer = answers.find(entry);
  return answer == answers.end() ? 1 : answer->second;
}

template <typename Slot>
void FakeEmbedder::Keep(const Slot* slot, Slot* kept) {
  ReleaseSlot();
  if (!slot) return;
  EXPECT_EQ(sizeof(Slot), slot->size);
  *kept = *slot;
  release_ = slot->release;
  released_data_ = slot->user_data;
}

FakeEmbedder::FakeEmbedder() {
  current = this;
  static char handles[3];  // Three different ones.
  context.application = reinterpret_cast<_FlutterOstrelApplication*>(&handles[0]);
  context.engine = reinterpret_cast<_FlutterOstrelEngine*>(&handles[1]);
  context.view = reinterpret_cast<_FlutterOstrelView*>(&handles[2]);
#define BEGIN(name)     \
  {                     \
    auto& table = name; \
    table.size = sizeof table;
#define FIELD(index, field, type)
#define ENTRY(index, field, ...)                                                  \
  table.field = [](auto... parameters) {                                          \
    using Result = decltype(std::declval<TABLE>().field(parameters...));          \
    return static_cast<Result>(FakeEmbedder::Get().Enter(#field, parameters...)); \
  };
#define END(count) }
#include "platform/flutter_ostrel/embedder_entries.inc"

  application.HasPermission = [](auto* handle, const char* permission, size_t size) {
    const std::string name(permission, size);  // It need not end with a NUL.
    return Get().Enter("HasPermission", handle, name.c_str()) != 0;
  };
}

FakeEmbedder::~FakeEmbedder() {
  ReleaseSlot();
  current = nullptr;
}

FakeEmbedder& FakeEmbedder::Get() { return *current; }

FlutterOstrelPluginContext* FakeEmbedder::GetContext(size_t declared) {
  const size_t size = std::max(declared, sizeof(uint32_t));
  context_memory_.reset(std::calloc(1, size));
  context.size = static_cast<uint32_t>(declared);
  std::memcpy(context_memory_.get(), &context, std::min(size, sizeof(context)));
  return static_cast<FlutterOstrelPluginContext*>(context_memory_.get());
}

std::vector<std::string> FakeEmbedder::TakeCalls() {
  std::vector<std::string> entries;
  for (const auto& call : std::exchange(calls_, {})) entries.push_back(call.first);
  return entries;
}

std::string FakeEmbedder::TakeTrace() {
  std::string trace;
  for (const auto& call : std::exchange(calls_, {})) {
    trace += (trace.empty() ? "" : " ") + call.first + "(" + call.second + ")";
  }
  return trace;
}

void FakeEmbedder::Call(const std::vector<uint8_t>& result, const char* result_text) {
  result_slot_.callback(result_slot_.user_data, result.data(), result.size(), result_text);
}

void FakeEmbedder::ReleaseSlot() {
  if (release_) release_(released_data_);
  release_ = nullptr;
}

}  // namespace test
