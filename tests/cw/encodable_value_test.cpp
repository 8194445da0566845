#include "cw/encodable_value.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "tests/support/values.h"

namespace {

using cw::CustomEncodableValue;
using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

template <typename T>
constexpr bool kConverts = std::is_convertible_v<T, EncodableValue>;
static_assert(!kConverts<int*> && !kConverts<const void*> && !kConverts<std::nullptr_t>);
static_assert(!kConverts<unsigned> && !kConverts<char> && !kConverts<float> && !kConverts<short>);
static_assert(std::is_nothrow_move_constructible_v<EncodableValue>);
static_assert(std::is_nothrow_move_assignable_v<EncodableValue>);

TEST(EncodableValueTest, HoldsTheAlternativeItIsMadeFrom) {
  const EncodableValue values[] = {EncodableValue(),
                                   true,
                                   int32_t{1},
                                   int64_t{1},
                                   1.0,
                                   "text",
                                   std::vector<uint8_t>{1},
                                   std::vector<int32_t>{1},
                                   std::vector<int64_t>{1},
                                   std::vector<double>{1},
                                   EncodableList{1},
                                   EncodableMap{{1, 1}},
                                   CustomEncodableValue(1),
                                   std::vector<float>{1}};
  for (size_t i = 0; i < std::size(values); ++i) EXPECT_EQ(i, values[i].GetIndex());
  EXPECT_TRUE(EncodableValue(std::string_view("a\0b", 3)).Is<std::string>());
  EXPECT_EQ("text", values[5].Get<std::string>());
  EXPECT_EQ(nullptr, values[5].GetIf<int32_t>());
  EXPECT_THROW(values[5].Get<int64_t>(), std::bad_variant_access);

  EncodableValue list = EncodableList{1, "two"};
  list.Get<EncodableList>().push_back(3.0);
  list.GetIf<EncodableList>()->front() = 4;
  const auto taken = std::move(list).Get<EncodableList>();
  EXPECT_EQ((EncodableList{4, "two", 3.0}), taken);
  EXPECT_EQ(2u, taken[1].Visit([](const auto& held) {
    return sizeof held == sizeof(std::string) ? size_t{2} : size_t{0};
  }));
}

TEST(EncodableValueTest, IsOrderedByAlternativeAndThenByContent) {
  const EncodableValue ascending[] = {
      EncodableValue(),
      false,
      true,
      int32_t{-1},
      int32_t{5},
      int64_t{-1},
      int64_t{1},
      -kInfinity,
      0.5,
      kInfinity,
      "",
      std::string_view("\0", 1),
      "a",
      "ab",
      "b",
      "\x80",
      std::vector<uint8_t>{},
      std::vector<uint8_t>{1},
      std::vector<uint8_t>{1, 0},
      std::vector<uint8_t>{0x80},
      std::vector<int32_t>{-1},
      std::vector<int32_t>{0, 9},
      std::vector<int64_t>{-1, 5},
      std::vector<int64_t>{-1, 6},
      std::vector<double>{0.5},
      std::vector<double>{0.5, -1},
      EncodableList{},
      EncodableList{EncodableValue()},
      EncodableList{int32_t{2}},
      EncodableList{int32_t{2}, EncodableValue()},
      EncodableList{int64_t{1}},
      EncodableList{EncodableList{}, 1},
      EncodableList{EncodableList{0}, 0},
      EncodableList{EncodableMap{{0, 1}}},
      EncodableList{EncodableMap{{0, 1}, {1, 0}}, 0},
      EncodableList{EncodableMap{{0, 2}}},
      EncodableMap{},
      EncodableMap{{"a", 1}},
      EncodableMap{{"a", 1}, {"b", 0}},
      EncodableMap{{"a", 2}},
      EncodableMap{{"b", 0}},
      EncodableMap{{EncodableList{1}, 2}},
      EncodableMap{{EncodableList{1, 0}, 1}},
      EncodableMap{{EncodableMap{{1, 1}}, 0}},
      CustomEncodableValue(1),
      std::vector<float>{-1},
      std::vector<float>{-1, 0},
  };
  for (const auto& left : ascending) {
    for (const auto& right : ascending) {
      SCOPED_TRACE(&left - ascending);
      SCOPED_TRACE(&right - ascending);
      EXPECT_EQ(&left < &right, left < right);
      EXPECT_EQ(&left == &right, left == right);
      EXPECT_EQ(&left != &right, left != right);
    }
  }
}

TEST(EncodableValueTest, NanIsEquivalentToEveryDoubleAndEqualToNone) {
  const EncodableValue nan = kNan;
  EXPECT_FALSE(nan < EncodableValue(1.0) || EncodableValue(1.0) < nan);
  EXPECT_FALSE(nan == nan);
  EXPECT_TRUE(nan < EncodableValue("") && EncodableValue(int64_t{1}) < nan);
  const std::vector<double> with_nan{kNan, 1}, without{0, 2};
  EXPECT_TRUE(EncodableValue(with_nan) < EncodableValue(without));
  EncodableMap map;
  for (const double key : {1.0, kNan, 2.0, 0.0, kNan}) map.emplace(key, 0);
  EXPECT_LE(map.size(), 3u);
}

// Built on the containers' own `<`, each level compared its key twice: 1.7 s for 20 levels.
TEST(EncodableValueTest, ComparisonVisitsEachPairOfNodesOnce) {
  EncodableValue left = 1, right = 2;
  for (int level = 0; level < 100; ++level) {
    left = EncodableMap{{EncodableList{left}, left.GetIndex() == 2}};
    right = EncodableMap{{EncodableList{right}, right.GetIndex() == 2}};
  }
  const EncodableValue copy = left;
  EXPECT_TRUE(left < right && !(right < left) && !(left < copy) && left == copy);
}

TEST(EncodableValueTest, CustomValueIsItselfAlone) {
  const EncodableValue one = CustomEncodableValue(std::string("x"));
  const EncodableValue same = one;
  const EncodableValue other = CustomEncodableValue(std::string("x"));
  EXPECT_TRUE(one == same && !(one < same) && one != other && (one < other || other < one));
  EXPECT_EQ("x", *one.Get<CustomEncodableValue>().GetIf<std::string>());
  EXPECT_EQ(nullptr, one.Get<CustomEncodableValue>().GetIf<int>());

  EncodableMap map{{one, 1}, {other, 2}};
  EXPECT_EQ(2u, map.size());
  EncodableValue from = one;
  const EncodableValue moved = std::move(from);
  EXPECT_EQ(1, map.at(moved).Get<int32_t>());
  EXPECT_EQ(2, EncodableMap(map).at(other).Get<int32_t>());

  struct MoveOnly {
    std::unique_ptr<int> number;
  };
  const CustomEncodableValue holder(MoveOnly{std::make_unique<int>(7)});
  EXPECT_EQ(7, *CustomEncodableValue(holder).GetIf<MoveOnly>()->number);
}

// Assignment destroyed the old content first, and then read the new one from it.
TEST(EncodableValueTest, MayBeAssignedFromWithinItself) {
  const EncodableValue kept[] = {1, "a text too long to lie in place", EncodableList{1, "two"}};
  for (const EncodableValue& inner : kept) {
    EncodableValue map = EncodableMap{{"data", inner}, {"more", EncodableList{inner}}};
    EncodableValue list = EncodableList{inner, map};
    EncodableValue copied = map;
    map = std::move(map.Get<EncodableMap>()["data"]);
    copied = copied.Get<EncodableMap>()["data"];
    list = std::move(list.Get<EncodableList>()[0]);
    EXPECT_TRUE(map == inner && copied == inner && list == inner);
    map = *&map;
    EXPECT_EQ(inner, map);
  }
}

TEST(EncodableValueTest, DeserializesWhateverDescribesBytes) {
  const uint8_t bytes[] = {3, 1, 0, 0, 0, 99};
  EXPECT_EQ(EncodableValue(1), EncodableValue::Deserialize(bytes, sizeof bytes));
  EXPECT_EQ(EncodableValue(1), EncodableValue::Deserialize(forge::Buffer(bytes, 5)));
  EXPECT_EQ(forge::Buffer(bytes, 5), EncodableValue(1).Serialize());

  ForgeBufferView view{sizeof view, bytes, sizeof bytes};
  EXPECT_EQ(EncodableValue(1), EncodableValue::Deserialize(&view));
  for (const size_t declared : {size_t{0}, sizeof(void*), 2 * sizeof(void*), sizeof view - 1}) {
    view.struct_size = static_cast<uint32_t>(declared);
    EXPECT_TRUE(EncodableValue::Deserialize(&view).IsNull()) << declared;
  }
  EXPECT_TRUE(EncodableValue::Deserialize(static_cast<ForgeBufferView*>(nullptr)).IsNull());
  EXPECT_TRUE(EncodableValue::Deserialize(nullptr, 5).IsNull());
  EXPECT_TRUE(EncodableValue::Deserialize(bytes, 0).IsNull());
  EXPECT_TRUE(EncodableValue::Deserialize(forge::Buffer()).IsNull());
}

TEST(EncodableValueTest, CustomValueCannotBeSerialized) {
  const EncodableValue value = EncodableMap{{"key", EncodableList{CustomEncodableValue(1)}}};
  EXPECT_DEATH(
      value.Serialize(),
      "cw/standard_codec.cpp:[0-9]+: .*EncodedTypeForValue\\(const cw::EncodableValue ?&\\)"
      ": Assertion `false' failed");
}

}  // namespace
