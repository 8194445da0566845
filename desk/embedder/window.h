// The window: its state, and who is told of its changes.
//
// Threads: the embedder's.
#pragma once

#include <functional>

#include "desk/embedder/description.h"
#include "desk/embedder/slot.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

class Window {
 public:
  explicit Window(View view) : view_(std::move(view)) {}

  using Subscribers = Subscriptions<FlutterOstrelSlot>;
  Subscribers visibility_subscribers;
  Subscribers orientation_subscribers;
  Subscribers device_orientation_subscribers;
  Subscribers keyboard_subscribers;
  Subscribers theme_subscribers;

  const View& GetView() const { return view_; }

  // Tells the subscribers of whatever is different then.
  void Change(const std::function<void(View& view)>& change);

  void Close();

 private:
  View view_;
};

}  // namespace desk
