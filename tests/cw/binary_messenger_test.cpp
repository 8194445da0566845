#include "cw/binary_messenger.h"

#include <sstream>
#include <stdexcept>

#include "cw/reply_manager.h"
#include "tests/support/fake_embedder.h"

namespace {

using cw::BinaryMessenger;

struct Row {
  const char* script;  // What happens to the messenger, which has a handler.
  const char* within;  // What happens within the handler, or within the embedder's Send.
  const char* trace;   // Who is called meanwhile.
};

class BinaryMessengerTest : public test::WrapperTest<BinaryMessenger> {
 protected:
  void Check(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(testing::Message() << row.script << ", within: " << row.within);
      wrapper_ = BinaryMessenger::Create(GetContext());
      Run("handle");
      TakeTrace();
      within["handler"] = within["Send"] = [&] { Run(row.within); };
      Run(row.script);
      within.clear();
      EXPECT_EQ(row.trace, TakeTrace());
    }
  }

  void Run(const char* script) {
    std::istringstream words(script);
    for (std::string word; words >> word;) steps_.at(word)();
  }

  const uint8_t byte_ = 7;
  std::unique_ptr<BinaryMessenger> other_ = BinaryMessenger::Create(GetContext());
  const std::map<std::string, std::function<void()>> steps_ = {
      {"handle", [this] { wrapper_->SetMessageHandler("c", Watch("handler")); }},
      {"remove", [this] { wrapper_->SetMessageHandler("c", nullptr); }},
      {"message", [this] { Deliver("c", "\7"); }},
      {"stray", [this] { Deliver("other", ""); }},
      {"nameless", [this] { Deliver(nullptr, ""); }},
      {"answer", [this] { reply(&byte_, 1); }},
      {"forget", [this] { reply = nullptr; }},
      {"throw", [] { throw std::runtime_error("cause"); }},
      {"send", [this] { wrapper_->Send("c", nullptr, 7, Watch("reply")); }},
      {"refuse", [this] { answers["Send"] = 0; }},
      {"reply", [this] { Reply({7}); }},
      {"subscribe", [this] { wrapper_->OnChannelUpdateSubscribe("c", Watch("told")); }},
      {"begin", [this] { Call(true); }},
      {"cease", [this] { Call(false); }},
      {"swap", [this] { wrapper_.swap(other_); }},  // With another messenger.
      {"end", [this] { wrapper_.reset(); }},
  };
};

TEST_F(BinaryMessengerTest, MessageIsAnsweredOnceNowOrLater) {
  Check({
      {"message", "answer answer", "handler(7) response(7)"},
      {"message answer", "", "handler(7) response(7)"},
      {"message", "forget", "handler(7) response(0)"},
      {"message end forget", "", "handler(7) ~handler()"},
      {"stray nameless", "", "response(0) response(0)"},  // Nobody takes them.
  });
  EXPECT_NE("", log_.TakeLine());
  EXPECT_NE("", error_.TakeText());
}

// The second message is under way when the handler goes.
TEST_F(BinaryMessengerTest, HandlerMayDoAnythingToItsMessenger) {
  const char kReplaced[] = "handler(7) SetMessageHandler(c, 1) response(7) ~handler()";
  const char kRemoved[] = "handler(7) SetMessageHandler(c, 0) response(7) ~handler() response(0)";
  const char kEnded[] = "handler(7) SetMessageHandler(c, 0) ~handler()";
  Check({
      {"message", "handle answer", kReplaced},
      {"message message", "remove answer", kRemoved},
      {"message message", "end swap remove answer", kEnded},
      {"message message", "throw", "handler(7) response(0) handler(7)"},
  });
  EXPECT_EQ(3u, log_.TakeLines().size());
}

TEST_F(BinaryMessengerTest, ReplyIsCalledAtMostOnce) {
  Check({
      {"send reply reply", "", "Send(c, 0) reply(7) ~reply()"},
      {"send reply", "reply", "Send(c, 0) reply(7) ~reply()"},
      {"refuse send reply", "", "Send(c, 0) ~reply()"},
      {"refuse send", "reply", "Send(c, 0) reply(7) ~reply()"},
  });
}

TEST_F(BinaryMessengerTest, NothingIsCalledAfterTheEnd) {
  Check({
      {"message end answer", "", "handler(7) ~handler()"},
      {"subscribe begin cease end begin", "",
       "ChannelUpdateSubscribe(c) told(1) told(0) ~handler()"},
      {"send end reply", "", "Send(c, 0) ~reply() ~handler()"},
      {"send reply", "end", "Send(c, 0) ~handler() ~reply()"},
      {"send swap end reply", "", "Send(c, 0) reply(7) ~reply()"},  // The other's end.
  });
}

// What is told once is shown with the channels.
TEST_F(BinaryMessengerTest, ReplyManagerWantsAResponse) {
  const std::vector<uint8_t> empty;
  TakeTrace();
  cw::internal::ReplyManager(Watch("reply")).SendResponseData(&empty);
  EXPECT_EQ("reply(0) ~reply()", TakeTrace());
  { const cw::internal::ReplyManager unused(Watch("reply")); }
  EXPECT_NE("", error_.TakeText());
}

TEST(BinaryMessengerDeathTest, ReplyManagerNeedsAReply) {
  EXPECT_DEATH(cw::internal::ReplyManager(nullptr), "reply_handler_");
}

}  // namespace
