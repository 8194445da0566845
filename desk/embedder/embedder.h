// A headless embedder: the context and the four tables that a plug-in is registered with, all of
// them working, and the other side of each table, for a program that plays Dart and the user.
//
//   QCoreApplication application(argc, argv);
//   desk::Embedder embedder(desk::ParseDescription(text));
//   if (Register(embedder.GetContext()) == 0) ...
//   return embedder.Run();
//
// Several embedders may exist at once. A callback of the embedder may destroy its engine, but not
// the embedder.
//
// Threads:   the thread that has made the embedder. Only the tables' EnqueueTask may be called from
//            others; a call of another entry there is a line on standard error and is ignored.
// Ownership: the embedder keeps its listeners and its observer, and the plug-in's slots until the
//            engine is destroyed.
// Errors:    invalid arguments of the plug-in are answered or ignored as flutter_ostrel.h says.
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

// One embedder with one engine, one view and one application.
class Embedder {
 public:
  // Answers a message, once. The data is borrowed until the call returns. An empty answer has the
  // size 0, with null data or not. A reply may be kept. The second call, and a call after the
  // engine was destroyed, have no effect.
  using Reply = std::function<void(const uint8_t* data, size_t size)>;

  // Receives a message of the plug-in. A listener that drops its reply has answered with nothing.
  using Listener = std::function<void(const uint8_t* data, size_t size, const Reply& reply)>;

  // Receives each action of the plug-in at once.
  using ActionObserver = std::function<void(const cw::EncodableValue& action)>;

  // A QCoreApplication must exist.
  explicit Embedder(Description description);

  // Destroys the engine if it still lives.
  ~Embedder();
  Embedder(const Embedder&) = delete;
  Embedder& operator=(const Embedder&) = delete;

  // Returns the context, which the embedder owns. It lies in memory of exactly the declared size
  // (of 4 bytes at least), so that a sanitizer detects every read beyond it.
  FlutterOstrelPluginContext* GetContext();

  // Delivers a message from Dart. The plug-in's handler is called at once, the reply as soon as the
  // plug-in answers. False: there is no handler, and the reply is dropped. A reply that is still
  // missing when the engine ends is recorded as the action "Unanswered" and dropped.
  bool Deliver(const std::string& channel, const uint8_t* data, size_t size, Reply reply);

  // Sets the listener of the plug-in's messages on the channel, in the place of an earlier one. It
  // is called later, from the event loop. An empty listener removes it. A message without a
  // listener gets the description's answer for the channel, or an empty one.
  void Listen(const std::string& channel, Listener listener);

  // The state of the view. ChangeView changes it and then calls the subscribers of each watched
  // value that has changed.
  const View& GetView() const;
  void ChangeView(const std::function<void(View& view)>& change);

  // Calls the plug-in's callbacks for the end of the engine. Then it releases every slot, drops the
  // posted tasks, frees the lent texts, and removes all handlers and listeners. The handles are
  // stale from then on. A second call has no effect.
  void DestroyEngine();

  // Runs the event loop until Exit is called, by the plug-in or through this class, and returns the
  // exit code; at once if it was called already. The first exit code counts.
  int Run();
  void Exit(int exit_code);

  // The actions of the plug-in (docs/embedder.md): the first 65,536 ones. The observer (empty:
  // none) receives all of them.
  const std::vector<cw::EncodableValue>& GetActions() const;
  void ObserveActions(ActionObserver observer);

 private:
  const std::unique_ptr<Engine> engine_;  // Never null: a destroyed engine stays for its state.
  const std::unique_ptr<Context> context_;
};

}  // namespace desk
