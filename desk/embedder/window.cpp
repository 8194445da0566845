#include "desk/embedder/window.h"

namespace desk {
namespace {

struct Watched {
  bool (*differs)(const View& a, const View& b);
  Window::Subscribers Window::*subscribers;
};

template <auto kMember>
bool Differs(const View& a, const View& b) {
  return !(a.*kMember == b.*kMember);
}

constexpr Watched kWatched[] = {
    {Differs<&View::visibility>, &Window::visibility_subscribers},
    {Differs<&View::orientation>, &Window::orientation_subscribers},
    {Differs<&View::device_orientation>, &Window::device_orientation_subscribers},
    {Differs<&View::keyboard>, &Window::keyboard_subscribers},
    {Differs<&View::theme>, &Window::theme_subscribers},
};

}  // namespace

void Window::Change(const std::function<void(View& view)>& change) {
  View changed = view_;
  change(changed);
  std::swap(changed, view_);
  // A subscriber may change the view again, which calls the subscribers again.
  const View now = view_;
  for (const Watched& watched : kWatched) {
    if (watched.differs(changed, now)) (this->*watched.subscribers).Emit();
  }
}

void Window::Close() {
  for (const Watched& watched : kWatched) (this->*watched.subscribers).Clear();
}

}  // namespace desk
