// The two sides that `tavo bind` wrote from notes.json, joined in one process.
#include <gtest/gtest.h>

#include "kit/manual_clock.h"
#include "notes.h"  // Generated.
#include "tests/support/rpc_link.h"

namespace {

namespace kit = tavo::kit;
using Notes = std::vector<test_notes::Note>;

class Board final : public test_notes::Server {
 public:
  using Server::Server;
  ~Board() override { Stop(); }

  void NoteAdd(test_notes::Note note, kit::Request<int64_t> request) override {
    notes.push_back(std::move(note));
    request.Finish(static_cast<int64_t>(notes.size()));
    NotifyChanged({"board", notes, {{"due", 0.5}}});
  }
  void Clear(kit::Request<std::monostate> request) override {
    notes.clear();
    request.Finish({});
    NotifyClosing();
  }
  void OnSeen(int64_t number) override { seen = number; }
  void OnIdle() override { ++idle; }

  Notes notes;
  int64_t seen = 0;
  int idle = 0;
};

TEST(BindTest, GeneratedClientAndServerUnderstandEachOther) {
  test::RpcLink link;
  Board board(link.server);
  test_notes::Client client(kit::Caller::Create(link.client, std::make_shared<kit::ManualClock>()));
  std::string shown;
  int closing = 0;
  const auto changed = client.OnChanged([&](const test_notes::Board& is) {
    shown += is.title + ": " + is.notes.at(0).answers.at(0).text;
  });
  const auto closed = client.OnClosing([&] { ++closing; });
  board.Run();
  link.Connect();

  int64_t number = 0;
  client.NoteAdd({"question", {}, test_notes::Color::kDarkGreen, {{"answer", 7, {}, {}}}},
                 [&](const kit::Result<int64_t>& result) { number = *result; });
  EXPECT_TRUE(client.NotifySeen(5));
  EXPECT_TRUE(client.NotifyIdle());
  link.DeliverAll();
  EXPECT_EQ(1, number);
  EXPECT_EQ("board: answer", shown);
  EXPECT_EQ(test_notes::Color::kDarkGreen, board.notes.at(0).color);
  EXPECT_EQ(7, board.notes.at(0).answers.at(0).due);
  EXPECT_EQ(5, board.seen);
  EXPECT_EQ(1, board.idle);

  static_cast<void>(client.ClearAwait());  // Nobody waits: no call.
  auto cleared = client.ClearFuture();
  link.DeliverAll();
  EXPECT_TRUE(cleared.get());
  EXPECT_EQ(1, closing);
}

}  // namespace
