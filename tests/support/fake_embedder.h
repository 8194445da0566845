// An embedder played by the test: every entry of its tables writes down its name and arguments,
// keeps what it is given, fills what it is asked for, and answers what the test has set.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include "cw/encodable_value.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"
#include "tests/support/declared_sizes.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace test {

class FakeEmbedder {
 public:
  FakeEmbedder();

  // The context, in memory of no more than its declared size.
  FlutterOstrelPluginContext* GetContext(uint32_t declared = sizeof context) {
    context.size = declared;
    return context_memory_.Place(context);
  }

  // Their size fields say what the loaders declare; entries are null only where the test says so.
  FlutterOstrelPluginContext context{};
  FlutterOstrelApplicationProcTable application{};
  FlutterOstrelViewProcTable view{};
  FlutterOstrelMessengerProcTable messenger{};
  FlutterOstrelTextureProcTable texture{};

  std::map<std::string, double> answers;                // By entry; 1 where nothing is set.
  std::map<std::string, std::function<void()>> within;  // Runs within the entry.

  // What is filled in for the caller.
  FlutterOstrelOSVersion os_version{sizeof os_version, {1, 2, 3, 4}};
  FlutterOstrelEmbedderVersion embedder_version{sizeof embedder_version, {1, 2, 3}};
  FlutterOstrelTheme theme{sizeof theme, 0, {1, 2, 3, 4}, {"a", "b", "c", "d"}};
  std::vector<uint8_t> payload;  // Of GetWindowPayload.
  uint32_t payload_size = sizeof(ForgeBufferView);
  std::string text = "text";  // Of the text queries.
  std::vector<const char*> dart_arguments{"one", "two"};

  // The entries called since the last time: their names, or a text with all arguments but handles,
  // such as "LockResources() UnlockResources(7)". Bytes are numbers.
  std::vector<std::string> TakeCalls() { return std::exchange(calls_, {}); }
  std::string TakeTrace() {
    calls_.clear();
    return std::exchange(trace_, "");
  }

  // What every entry does.
  template <typename... Parameters>
  double Enter(const std::string& entry, const Parameters&... parameters) {
    Arguments arguments{*this};
    (arguments.Take(parameters), ...);
    calls_.push_back(entry);
    trace_ += (trace_.empty() ? "" : " ") + entry + "(" + arguments.text + ")";
    const double answer = answers.count(entry) > 0 ? answers[entry] : arguments.answer;
    const auto hook = within[entry];  // A copy, since it may remove itself.
    if (hook) hook();
    return answer;
  }

  // A callback that is traced as an entry is, and so is the end of its last copy: "task() ~task()".
  auto Watch(const std::string& name) {
    const std::shared_ptr<void> end(this, [this, name](void*) { Enter("~" + name); });
    return [this, name, end](const auto&... arguments) { Enter(name, arguments...); };
  }

  // What the entries were given last.
  FlutterOstrelMessageCallback message_callback = nullptr;
  FlutterOstrelReplyCallback reply_callback = nullptr;
  void (*unregistered_callback)(void* user_data) = nullptr;
  void* user_data = nullptr;  // Of the last of the three.
  void (*engine_destroyed)(_FlutterOstrelEngine* engine) = nullptr;
  FlutterOstrelTextureDescriptor descriptor{};
  std::function<void(const uint8_t*, size_t)> reply;  // Of a message handler that is watched.

  // A message to the plug-in, whose answer is traced as "response", and the answer to its last one.
  void Deliver(const char* channel, const std::string& message) {
    const auto respond = [](auto* engine, auto* fake, auto* data, size_t size) {
      reinterpret_cast<FakeEmbedder*>(fake)->Enter("response", engine, data, size);
    };
    const auto response = reinterpret_cast<_FlutterOstrelResponse*>(this);
    const auto* data = reinterpret_cast<const uint8_t*>(message.data());
    message_callback(context.engine, channel, data, message.size(), respond, response, user_data);
  }
  void Reply(const std::vector<uint8_t>& answer) {
    reply_callback(answer.data(), answer.size(), user_data);
  }

  // The last slot that was taken.
  void Call() { Run<FlutterOstrelSlot>(); }
  void Call(bool value) { Run<FlutterOstrelBoolSlot>(value); }
  void Call(const std::vector<uint8_t>& result, const char* given) {
    Run<FlutterOstrelResultSlot>(result.data(), result.size(), given);
  }
  void ReleaseSlot() { slot_owner_.reset(); }

 private:
  // What an entry does with its arguments, one after the other.
  struct Arguments {
    void Take(_FlutterOstrelApplication* handle) { EXPECT_EQ(fake.context.application, handle); }
    void Take(_FlutterOstrelEngine* handle) { EXPECT_EQ(fake.context.engine, handle); }
    void Take(_FlutterOstrelView* handle) { EXPECT_EQ(fake.context.view, handle); }
    void Take(const char* argument) { Write(argument); }
    void Take(const std::string& argument) { Write(argument); }

    // A number may be the size of what stands before it.
    template <typename Number, typename = std::enable_if_t<std::is_integral_v<Number>>>
    void Take(Number number) {
      const auto size = static_cast<size_t>(number);
      if (filled_size != 0) {
        EXPECT_EQ(filled_size, size);
      } else if (!bytes) {
        Write(std::to_string(number));
      }
      for (size_t i = 0; bytes && i < size; ++i) Write(std::to_string(bytes[i]));
    }
    void Take(const uint8_t* data) { bytes = data; }
    void Take(const cw::EncodableValue& value) {
      const forge::Buffer encoded = value.Serialize();
      Take(encoded.GetData());
      Take(encoded.GetSize());
    }

    // A text is copied as soon as there is a buffer; the answer is the size that it needs.
    void Take(char* buffer) {
      answer = static_cast<double>(fake.text.size() + 1);
      if (buffer) fake.text.copy(buffer, fake.text.size());
    }

    // Filled for the caller.
    template <typename Structure>
    void Take(Structure* target) {
      ForgeBufferView payload{fake.payload_size, fake.payload.data(), fake.payload.size()};
      const auto sources = std::tie(fake.application, fake.view, fake.messenger, fake.texture,
                                    fake.os_version, fake.embedder_version, fake.theme, payload);
      *target = std::get<Structure&>(sources);
      filled_size = sizeof *target;
    }
    void Take(void** handle) { *handle = &fake; }
    void Take(int* count) { *count = static_cast<int>(fake.dart_arguments.size()); }
    void Take(const char* const** arguments) { *arguments = fake.dart_arguments.data(); }

    // Kept.
    template <typename Slot>
    void Take(const Slot* slot) {
      fake.ReleaseSlot();
      if (!slot) return Write("null");
      EXPECT_EQ(sizeof *slot, slot->size);
      std::get<Slot>(fake.slots_) = *slot;
      fake.slot_owner_ = {slot->user_data, slot->release};
    }
    void Take(const FlutterOstrelWindowParameters* given) {
      EXPECT_EQ(sizeof *given, given->size);
      Take(given->first_text);
      Take(given->second_text);
      Take(given->payload);
      Take(given->payload_size);
    }
    void Take(const FlutterOstrelTextureDescriptor* given) {
      fake.descriptor = *given;
      Take(given->kind);
    }
    void Take(FlutterOstrelReplyCallback callback) { fake.reply_callback = callback; }
    void Take(FlutterOstrelMessageCallback callback) {
      Take(callback != nullptr);
      // A message may be under way when its handler has been removed.
      if (callback) fake.message_callback = callback;
    }
    void Take(void (*callback)(void*)) { fake.unregistered_callback = callback; }
    void Take(void (*callback)(_FlutterOstrelEngine*)) { fake.engine_destroyed = callback; }
    void Take(const std::function<void(const uint8_t*, size_t)>& reply) { fake.reply = reply; }
    void Take(void* user_data) { fake.user_data = user_data ? user_data : fake.user_data; }

    void Write(const std::string& argument) { text += (text.empty() ? "" : ", ") + argument; }

    FakeEmbedder& fake;
    double answer = 1;
    size_t filled_size = 0;
    const uint8_t* bytes = nullptr;
    std::string text{};
  };

  template <typename Slot, typename... Values>
  void Run(const Values&... values) {
    const Slot slot = std::get<Slot>(slots_);
    slot.callback(slot.user_data, values...);
  }

  PageEnd context_memory_;
  std::vector<std::string> calls_;
  std::string trace_;
  std::tuple<FlutterOstrelSlot, FlutterOstrelBoolSlot, FlutterOstrelResultSlot> slots_;
  std::unique_ptr<void, void (*)(void*)> slot_owner_{nullptr, nullptr};
};

// The base of tests with an embedder, and of those of an object over one of its tables.
class EmbedderTest : public TestBase, public FakeEmbedder {
 protected:
  LogCapture log_;
  ErrorCapture error_;
};

template <typename Wrapper>
class WrapperTest : public EmbedderTest {
 protected:
  WrapperTest() { TakeTrace(); }

  std::unique_ptr<Wrapper> wrapper_ = Wrapper::Create(GetContext());
};

}  // namespace test
