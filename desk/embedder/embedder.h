// A headless embedder: the context and the four tables that a plug-in is registered with, all of
// them working, and the other side of each, for whoever plays Dart and the user.
//
//   QCoreApplication application(argc, argv);
//   desk::Embedder embedder(desk::ParseDescription(text));
//   if (Register(embedder.GetContext()) == 0) ...
//   return embedder.Run();
//
// Several may live side by side. It may end its engine, but not itself, within what it calls.
//
// Threads: all on the thread that made it; only the tables' EnqueueTask may be called from others.
// Errors:  whatever the plug-in passes, it is answered or ignored as flutter_ostrel.h says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cw/encodable_value.h"
#include "desk/embedder/description.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

struct Engine;
class Context;

class Embedder {
 public:
  // The data is borrowed until the call returns; empty: null or not. A Reply may be kept, and is
  // without effect the second time and once the engine is destroyed. A listener that drops its
  // reply has answered with nothing.
  using Reply = std::function<void(const uint8_t* data, size_t size)>;
  using Listener = std::function<void(const uint8_t* data, size_t size, const Reply& reply)>;
  using ActionObserver = std::function<void(const cw::EncodableValue& action)>;

  explicit Embedder(Description description);  // A QCoreApplication must live.
  ~Embedder();                                 // Destroys the engine if it still lives.
  Embedder(const Embedder&) = delete;
  Embedder& operator=(const Embedder&) = delete;

  // The embedder's, in memory of exactly the declared size (of 4 bytes at least), so that a
  // sanitizer sees every read past it.
  FlutterOstrelPluginContext* GetContext();

  // A message from Dart: the plug-in's handler is called at once, the reply as soon as the plug-in
  // answers. False: there is no handler. A reply that is still missing when the engine ends is the
  // action "Unanswered", and is dropped.
  bool Deliver(const std::string& channel, const uint8_t* data, size_t size, Reply reply);

  // Has the plug-in's messages on the channel told to the listener, later, from the event loop;
  // empty: it ceases. Nobody listens: the description's canned answer, or nothing.
  void Listen(const std::string& channel, Listener listener);

  const View& GetView() const;
  void ChangeView(const std::function<void(View& view)>& change);  // Tells the subscribers.

  // Calls back whoever wanted to know, then releases every slot, drops what was posted, frees what
  // was lent, and forgets all handlers and listeners. From then on the handles are stale.
  void DestroyEngine();

  // The event loop until Exit, of the plug-in or of this class; at once if that was already. The
  // first exit code counts.
  int Run();
  void Exit(int exit_code);

  // What the plug-in did (docs/embedder.md): the first 65,536 actions. The observer is told all.
  const std::vector<cw::EncodableValue>& GetActions() const;
  void ObserveActions(ActionObserver observer);

 private:
  const std::unique_ptr<Engine> engine_;  // Stays, for its state, when it counts as destroyed.
  const std::unique_ptr<Context> context_;
};

}  // namespace desk
