#include "tools/proxy_stream.h"

#include <algorithm>
#include <utility>

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kWindow = std::chrono::milliseconds(100);
constexpr size_t kLineOverhead = 128;  // Of a short line in the containers.

Clock::duration Seconds(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

size_t SizeOf(const ProxyLine& line) { return line.text.size() + kLineOverhead; }

// The newline stays. The new byte may be one, which makes two lines.
void InvertBit(Random* random, std::string* text) {
  if (text->size() < 2) return;
  char& byte = (*text)[random->Below(text->size() - 1)];
  byte = static_cast<char>(static_cast<uint8_t>(byte) ^ (1U << random->Below(8)));
}

}  // namespace

// SplitMix64.
uint64_t Random::Next() {
  uint64_t mixed = state_ += 0x9E3779B97F4A7C15;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
  return mixed ^ (mixed >> 31);
}

bool Random::Hits(double share) {
  constexpr double kUnit = 1.0 / (uint64_t{1} << 53);
  return static_cast<double>(Next() >> 11) * kUnit < share;
}

size_t Random::Below(size_t limit) { return static_cast<size_t>(Next() % limit); }

ProxyStream::ProxyStream(const ProxyRules& rules, uint64_t seed) : rules_(rules) {
  Random seeds(seed);
  for (size_t i = 0; i < rules.GetSize(); ++i)
    stages_.push_back({Random(seeds.Next()), {}, {}, {}});
}

void ProxyStream::Put(ProxyLine line, Time now) { Pass(std::move(line), 0, now); }

// Applies the rules from this one on.
void ProxyStream::Pass(ProxyLine line, size_t stage, Time due) {
  for (; stage < stages_.size(); ++stage) {
    if ((line.rules >> stage & 1) == 0) continue;
    const ProxyRule& rule = rules_[stage];
    Stage& state = stages_[stage];
    switch (rule.fault) {
      case Fault::kDrop:
        if (state.random.Hits(rule.amount)) return;
        break;
      case Fault::kDuplicate:
        if (state.random.Hits(rule.amount)) Pass(line, stage + 1, due);
        break;
      case Fault::kCorrupt:
        if (state.random.Hits(rule.amount)) InvertBit(&state.random, &line.text);
        break;
      case Fault::kReorder:
        return Gather(std::move(line), stage, due);
      case Fault::kDelay:
        due += Seconds(rule.amount);
        break;
      case Fault::kSlow:
        due = std::max(due, state.free) +
              Seconds(static_cast<double>(line.text.size()) / rule.amount);
        state.free = due;
        break;
      case Fault::kCutAfter:
      case Fault::kKillAfter:
        break;
    }
  }
  size_ += SizeOf(line);
  due_.emplace(due, std::move(line));
}

void ProxyStream::Gather(ProxyLine line, size_t stage, Time now) {
  Stage& state = stages_[stage];
  if (state.waiting.empty()) state.window_end = now + kWindow;
  size_ += SizeOf(line);
  state.waiting.push_back(std::move(line));
  if (static_cast<double>(state.waiting.size()) >= rules_[stage].amount) Shuffle(stage, now);
}

void ProxyStream::Shuffle(size_t stage, Time now) {
  std::vector<ProxyLine> lines = std::exchange(stages_[stage].waiting, {});
  for (size_t left = lines.size(); left > 0; --left) {
    std::swap(lines[left - 1], lines[stages_[stage].random.Below(left)]);
    size_ -= SizeOf(lines[left - 1]);
    Pass(std::move(lines[left - 1]), stage + 1, now);
  }
}

std::optional<ProxyLine> ProxyStream::Take(Time now) {
  for (size_t i = 0; i < stages_.size(); ++i) {
    if (!stages_[i].waiting.empty() && stages_[i].window_end <= now) Shuffle(i, now);
  }
  if (due_.empty() || due_.begin()->first > now) return std::nullopt;
  auto node = due_.extract(due_.begin());
  size_ -= SizeOf(node.mapped());
  return std::move(node.mapped());
}

std::optional<ProxyStream::Time> ProxyStream::GetDue() const {
  std::optional<Time> due;
  if (!due_.empty()) due = due_.begin()->first;
  for (const Stage& stage : stages_) {
    if (!stage.waiting.empty() && (!due || stage.window_end < *due)) due = stage.window_end;
  }
  return due;
}

void ProxyStream::Clear() {
  due_.clear();
  for (Stage& stage : stages_) stage.waiting.clear();
  size_ = 0;
}

}  // namespace tools
