#include "desk/embedder/embedder.h"

#include <utility>

#include "desk/embedder/context.h"
#include "desk/embedder/engine.h"

namespace desk {

Embedder::Embedder(Description description)
    : engine_(std::make_unique<Engine>(std::move(description))),
      context_(std::make_unique<Context>(*engine_)) {}

Embedder::~Embedder() = default;

FlutterOstrelPluginContext* Embedder::GetContext() { return context_->Get(); }

bool Embedder::Deliver(const std::string& channel, const uint8_t* data, size_t size, Reply reply) {
  return engine_->messenger.Deliver(channel, data, size, std::move(reply));
}

void Embedder::Listen(const std::string& channel, Listener listener) {
  engine_->messenger.Listen(channel, std::move(listener));
}

const View& Embedder::GetView() const { return engine_->window.GetView(); }

void Embedder::ChangeView(const std::function<void(View& view)>& change) {
  engine_->window.Change(change);
}

void Embedder::DestroyEngine() { engine_->Destroy(); }

int Embedder::Run() { return engine_->Run(); }

void Embedder::Exit(int exit_code) { engine_->Exit(exit_code); }

const std::vector<cw::EncodableValue>& Embedder::GetActions() const {
  return engine_->actions.Get();
}

void Embedder::ObserveActions(ActionObserver observer) {
  engine_->actions.Observe(std::move(observer));
}

}  // namespace desk
