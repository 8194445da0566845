// A signal beside other ways to call who has subscribed: a snapshot of weak references, QObject's
// signal and libsigc++'s. A benchmark's name is operation/who/number of listeners; the listeners of
// a subscription's round are those that are subscribed besides.
//
// The weak snapshot gives what our signal promises (any thread, and a listener that dies during the
// emission is skipped) by the shortest means. libsigc++ is for one thread only.
#include <benchmark/benchmark.h>
#include <sigc++/sigc++.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <QObject>

#include "forge/signals.h"

class Sender final : public QObject {
  Q_OBJECT

 Q_SIGNALS:
  void Happened(int value);
};

namespace {

struct Tavo {
  template <typename Callback>
  uint32_t Subscribe(Callback callback) {
    return signal.Subscribe(std::move(callback));
  }
  void Unsubscribe(uint32_t id) { signal.Unsubscribe(id); }
  void Emit(int value) { signal.Emit(value); }

  forge::OwnedSignal<int> signal;
};

class WeakSnapshot {
 public:
  using Callback = std::function<void(int)>;

  std::shared_ptr<Callback> Subscribe(Callback callback) {
    auto owner = std::make_shared<Callback>(std::move(callback));
    const std::lock_guard lock(mutex_);
    callbacks_.push_back(owner);
    return owner;
  }
  void Unsubscribe(const std::shared_ptr<Callback>& owner) {
    const std::lock_guard lock(mutex_);
    callbacks_.erase(std::find_if(
        callbacks_.begin(), callbacks_.end(), [&owner](const std::weak_ptr<Callback>& callback) {
          return !callback.owner_before(owner) && !owner.owner_before(callback);
        }));
  }
  void Emit(int value) {
    std::unique_lock lock(mutex_);
    const auto snapshot = callbacks_;
    lock.unlock();
    for (const auto& entry : snapshot) {
      if (const auto callback = entry.lock()) (*callback)(value);
    }
  }

 private:
  std::mutex mutex_;
  std::vector<std::weak_ptr<Callback>> callbacks_;
};

struct QtSignal {
  template <typename Callback>
  QMetaObject::Connection Subscribe(Callback callback) {
    return QObject::connect(&sender, &Sender::Happened, callback);
  }
  void Unsubscribe(const QMetaObject::Connection& connection) { QObject::disconnect(connection); }
  void Emit(int value) { Q_EMIT sender.Happened(value); }

  Sender sender;
};

struct Sigc {
  template <typename Callback>
  sigc::connection Subscribe(Callback callback) {
    return signal.connect(std::move(callback));
  }
  void Unsubscribe(sigc::connection connection) { connection.disconnect(); }
  void Emit(int value) { signal.emit(value); }

  sigc::signal<void, int> signal;
};

template <typename Peer, typename Run>
void Register(const char* operation, const char* who, Run run) {
  for (const int count : {0, 1, 10, 100}) {
    const std::string name = std::string(operation) + "/" + who + "/" + std::to_string(count) +
                             (count == 1 ? " listener" : " listeners");
    benchmark::RegisterBenchmark(name.c_str(), [run, count](benchmark::State& state) {
      int64_t sum = 0;
      const auto add = [&sum](int value) { sum += value; };
      Peer peer;
      using Handle = decltype(peer.Subscribe(add));
      std::vector<Handle> handles;
      for (int i = 0; i < count; ++i) handles.push_back(peer.Subscribe(add));
      for ([[maybe_unused]] auto _ : state) run(peer, add);
      benchmark::DoNotOptimize(sum);
      for (const Handle& handle : handles) peer.Unsubscribe(handle);
    });
  }
}

template <typename Peer>
void RegisterPeer(const char* who) {
  Register<Peer>("emit", who, [](Peer& peer, const auto&) { peer.Emit(1); });
  Register<Peer>("subscribe, unsubscribe", who, [](Peer& peer, const auto& callback) {
    peer.Unsubscribe(peer.Subscribe(callback));
  });
  Register<Peer>("subscribe, emit, unsubscribe", who, [](Peer& peer, const auto& callback) {
    const auto handle = peer.Subscribe(callback);
    peer.Emit(1);
    peer.Unsubscribe(handle);
  });
}

}  // namespace

int main(int argc, char** argv) {
  // Reference counts are atomic from a process's second thread on, as they are wherever signals are
  // used.
  std::thread([] {}).join();
  RegisterPeer<Tavo>("tavo");
  RegisterPeer<WeakSnapshot>("weak snapshot");
  RegisterPeer<QtSignal>("QObject");
  RegisterPeer<Sigc>("libsigc++");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}

#include "signals_bench.moc"
