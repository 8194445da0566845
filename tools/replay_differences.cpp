#include "tools/replay_differences.h"

#include <algorithm>
#include <utility>

#include "cw/map_access.h"
#include "desk/common/value_json.h"
#include "tools/printable.h"

namespace tools {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;

constexpr size_t kMaxTold = 100;  // Differences; the others are counted.
constexpr size_t kLabel = 12;     // "  recorded  "

// What is compared, as a map of one member.
EncodableValue GetContent(const Message& message) {
  if (const auto* notification = message.GetNotification()) {
    return EncodableMap{{"params", notification->params}};
  }
  const auto* response = message.GetResponse();
  if (!response) return {};
  if (const auto* error = response->GetError())
    return EncodableMap{{"error", error->ToEncodable()}};
  return EncodableMap{{"result", *response->GetResult()}};
}

// Bit by bit: a NaN is the same as itself, and 0.0 is not -0.0.
bool AreSame(const EncodableValue& a, const EncodableValue& b) {
  return a.Serialize() == b.Serialize();
}

std::string ToText(const EncodableValue* value, desk::SmallInt64 small_int64) {
  return value ? desk::ToText(*value, small_int64) : "(nothing)";
}

// Cuts the beginning that long texts have in common.
void CutBeginning(size_t columns, std::string* a, std::string* b) {
  const size_t least = std::min(a->size(), b->size());
  auto same = static_cast<size_t>(
      std::mismatch(a->begin(), a->begin() + static_cast<ptrdiff_t>(least), b->begin()).first -
      a->begin());
  const size_t kept = columns / 4;  // Before the first difference.
  if (std::max(a->size(), b->size()) <= columns || same <= 2 * kept) return;
  same -= kept;
  while (same > 0 && (static_cast<unsigned char>((*a)[same]) & 0xC0) == 0x80) --same;
  for (std::string* text : {a, b}) *text = "..." + text->substr(same);
}

}  // namespace

// Goes through two values and tells each place where they differ. The admission of messages limits
// the depth.
class Differences::Walk {
 public:
  Walk(Differences& differences, size_t line, const std::string& what)
      : differences_(differences), line_(line), what_(what) {}

  void Compare(const EncodableValue* recorded, const EncodableValue* now) {
    if (IsIgnored()) return;
    const auto* lists = recorded && now ? recorded->GetIf<EncodableList>() : nullptr;
    const auto* maps = recorded && now ? recorded->GetIf<EncodableMap>() : nullptr;
    if (lists && now->GetIf<EncodableList>()) {
      CompareLists(*lists, *now->GetIf<EncodableList>());
    } else if (maps && now->GetIf<EncodableMap>()) {
      CompareMaps(*maps, *now->GetIf<EncodableMap>());
    } else if (!recorded || !now || !AreSame(*recorded, *now)) {
      differences_.Tell(line_, what_ + ": " + tools::ToText(path_), recorded, now);
    }
  }

 private:
  bool IsIgnored() const {
    const auto& ignored = differences_.ignored_;
    return std::any_of(ignored.begin(), ignored.end(),
                       [this](const ValuePath& pattern) { return Matches(pattern, path_); });
  }

  void CompareAt(PathStep step, const EncodableValue* recorded, const EncodableValue* now) {
    path_.push_back(std::move(step));
    Compare(recorded, now);
    path_.pop_back();
  }

  void CompareLists(const EncodableList& recorded, const EncodableList& now) {
    const auto at = [](const EncodableList& list, size_t i) {
      return i < list.size() ? &list[i] : nullptr;
    };
    for (size_t i = 0; i < std::max(recorded.size(), now.size()); ++i) {
      CompareAt({PathStep::Kind::kElement, {}, static_cast<int64_t>(i)}, at(recorded, i),
                at(now, i));
    }
  }

  // In the order of the keys.
  void CompareMaps(const EncodableMap& recorded, const EncodableMap& now) {
    auto left = recorded.begin();
    auto right = now.begin();
    while (left != recorded.end() || right != now.end()) {
      const bool has_left =
          left != recorded.end() && (right == now.end() || !(right->first < left->first));
      const bool has_right =
          right != now.end() && (left == recorded.end() || !(left->first < right->first));
      CompareAt(StepTo(has_left ? left->first : right->first), has_left ? &left->second : nullptr,
                has_right ? &right->second : nullptr);
      if (has_left) ++left;
      if (has_right) ++right;
    }
  }

  Differences& differences_;
  const size_t line_;
  const std::string& what_;
  ValuePath path_;
};

Differences::Differences(std::string file, std::vector<ValuePath> ignored, size_t columns)
    : file_(std::move(file)), ignored_(std::move(ignored)), columns_(columns) {}

void Differences::Compare(size_t line, const std::string& what, const Message& recorded,
                          const Message& now) {
  const EncodableValue before = GetContent(recorded);
  const EncodableValue after = GetContent(now);
  Walk(*this, line, what).Compare(&before, &after);
}

void Differences::TellAdded(size_t line, const std::string& what, const Message& now) {
  const EncodableValue content = GetContent(now);
  Tell(line, what, nullptr, &content);
}

void Differences::Tell(size_t line, const std::string& what, const EncodableValue* recorded,
                       const EncodableValue* now) {
  if (++count_ > kMaxTold) return;
  const size_t columns = std::max<size_t>(columns_, 2 * kLabel) - kLabel;
  constexpr auto kPlain = desk::SmallInt64::kPlain;
  std::string before = ToText(recorded, kPlain);
  std::string after = ToText(now, kPlain);
  if (before == after) {  // The types differ.
    before = ToText(recorded, desk::SmallInt64::kMarked);
    after = ToText(now, desk::SmallInt64::kMarked);
  }
  CutBeginning(columns, &before, &after);
  print_(Printable(file_) + (line > 0 ? ':' + std::to_string(line) : "") + ": " + Printable(what));
  print_("  recorded  " + Fit(before, columns));
  print_("  now       " + Fit(after, columns));
  if (count_ == kMaxTold) print_("(further differences are only counted)");
}

}  // namespace tools
