// The window: its state and the subscribers of its changes.
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

  // Changes the view and calls the subscribers of the values that differ afterwards.
  void Change(const std::function<void(View& view)>& change);

  void Close();

 private:
  View view_;
};

}  // namespace desk
