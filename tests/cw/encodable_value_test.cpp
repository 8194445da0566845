#include "cw/encodable_value.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/values.h"

namespace {

using Custom = cw::CustomEncodableValue;
using List = cw::EncodableList;
using Map = cw::EncodableMap;
using Value = cw::EncodableValue;

template <typename T>
constexpr bool kConverts = std::is_convertible_v<T, Value>;
static_assert(!kConverts<int*> && !kConverts<const void*> && !kConverts<std::nullptr_t>);
static_assert(!kConverts<unsigned> && !kConverts<char> && !kConverts<float>);
static_assert(std::is_nothrow_move_constructible_v<Value>);
static_assert(std::is_nothrow_move_assignable_v<Value>);

TEST(EncodableValueTest, TextsAreOrderedAsTheirBytes) {
  std::vector<std::string> texts;
  for (const size_t size : {0, 1, 3, 4, 5, 7, 8, 9, 15, 16, 17}) {
    for (size_t at = 0; at <= size; ++at) {  // Beyond the end, nothing is changed.
      texts.emplace_back(size, 'a');
      for (const char other : {'\0', '\xff'}) {
        if (at < size) texts.emplace_back(size, 'a')[at] = other;
      }
    }
  }
  const List values(texts.begin(), texts.end());
  for (size_t i = 0; i < texts.size() * texts.size(); ++i) {
    const size_t a = i / texts.size();
    const size_t b = i % texts.size();
    ASSERT_EQ(texts[a] < texts[b], values[a] < values[b]) << texts[a] << " and " << texts[b];
  }
}

TEST(EncodableValueTest, IsOrderedByAlternativeAndThenByContent) {
  using Bytes = std::vector<uint8_t>;
  using Numbers = std::vector<int32_t>;
  const List ascending[] = {
      // A row an alternative.
      {Value()},
      {false, true},
      {-1, 5},
      {int64_t{-1}, int64_t{1}},
      {-HUGE_VAL, HUGE_VAL},
      {"", "a", std::string_view("a\0b", 3), "ab", "\x80"},
      {Bytes{1}, Bytes{1, 0}, Bytes{0x80}},
      {Numbers{-1}, Numbers{0, 9}},
      {std::vector<int64_t>{-1, 5}, std::vector<int64_t>{-1, 6}},
      {std::vector<double>{0.5}},
      {List{}, List{2}, List{2, {}}, List{Bytes{1}, 1}, List{Bytes{1, 0}, 0}, List{List{}, 1},
       List{Map{{0, 1}, {1, 0}}, 0}, List{Map{{0, 2}}}},
      {Map{}, Map{{"a", 1}}, Map{{"a", 1}, {"b", 0}}, Map{{"a", 2}}, Map{{"b", 0}},
       Map{{List{1, 0}, 1}}},
      {Custom(1)},
      {std::vector<float>{-1}},
  };
  List all;
  for (const List& row : ascending) {
    for (const Value& value : row) {
      EXPECT_EQ(&row - ascending, static_cast<ptrdiff_t>(value.GetIndex()));
      all.push_back(value);
    }
  }
  for (size_t i = 0; i < all.size() * all.size(); ++i) {
    const Value& left = all[i / all.size()];
    const Value& right = all[i % all.size()];
    SCOPED_TRACE(testing::PrintToString(left) + " and " + testing::PrintToString(right));
    EXPECT_EQ(&left < &right, left < right);
    EXPECT_EQ(&left == &right, left == right);
    EXPECT_EQ(&left != &right, left != right);
  }
}

TEST(EncodableValueTest, CustomValueIsItselfAlone) {
  const Value one = Custom(std::string("x"));
  const Value other = Custom(std::string("x"));
  Value from = one;
  const Value moved = std::move(from);
  EXPECT_TRUE(one == moved && !(one < moved) && one != other && (one < other || other < one));
  EXPECT_EQ("x", *moved.Get<Custom>().GetIf<std::string>());
  EXPECT_EQ(nullptr, moved.Get<Custom>().GetIf<int>());
}

// Assignment destroyed the old content first, and then read the new one from it.
TEST(EncodableValueTest, MayBeAssignedFromWithinItself) {
  const Value inner = List{1, "a text too long to lie in place"};
  Value moved = Map{{"data", inner}, {"more", List{inner}}};
  Value copied = moved;
  moved = std::move(moved.Get<Map>()["data"]);
  copied = copied.Get<Map>()["data"];
  copied = *&copied;
  EXPECT_TRUE(moved == inner && copied == inner);
}

TEST(EncodableValueTest, DeserializesWhateverDescribesBytes) {
  const uint8_t bytes[] = {3, 1, 0, 0, 0, 99};
  const forge::Buffer buffer(bytes, 5);
  ForgeBufferView view{sizeof view, bytes, sizeof bytes};
  EXPECT_EQ(buffer, Value(1).Serialize());
  EXPECT_EQ(Value(1), Value::Deserialize(buffer));
  EXPECT_EQ(Value(1), Value::Deserialize(&view));
  EXPECT_TRUE(Value::Deserialize(static_cast<ForgeBufferView*>(nullptr)).IsNull());
  EXPECT_TRUE(Value::Deserialize(bytes, 0).IsNull());
}

TEST(EncodableValueTest, CustomValueCannotBeSerialized) {
  const Value value = Map{{"key", List{Custom(1)}}};
  EXPECT_DEATH(value.Serialize(), "EncodedTypeForValue.*Assertion `false' failed");
}

}  // namespace
