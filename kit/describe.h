// The fields of a struct and the names of an enum, so that they travel as values (kit/values.h).
//
//   enum class Color { kRed, kDarkGreen };
//   TAVO_DESCRIBE_ENUM(Color, kRed, kDarkGreen)
//
//   struct Shape { int32_t width = 0; std::optional<Color> color; };
//   TAVO_DESCRIBE(Shape, width, color)
//
// The macros stand at namespace scope, in the namespace of the type, which may be anonymous. They
// name up to 32 fields, or enumerators. A type within a class is described behind the class.
//
// A struct travels as a map from the names of its fields. Fields that are not named do not travel.
// An enumerator travels as a text: its name, without the k of a constant ("red", "darkGreen").
//
// Threads: any. Nothing is stored.
#pragma once

#include <array>
#include <string_view>

// Declares a function template that calls `visit` with the name and the member pointer of each
// field, as long as `visit` returns true.
#define TAVO_DESCRIBE(Type, ...)                                     \
  template <typename TavoVisitor>                                    \
  constexpr bool TavoVisitFields(const Type*, TavoVisitor&& visit) { \
    using TavoType = Type;                                           \
    return TAVO_FOR_EACH(TAVO_DESCRIBE_FIELD, __VA_ARGS__) true;     \
  }

// Declares a function that returns the enumerators with their names.
#define TAVO_DESCRIBE_ENUM(Type, ...)                                        \
  [[maybe_unused]] constexpr auto TavoGetEnumerators(const Type*) {          \
    using TavoType = Type;                                                   \
    return std::array{TAVO_FOR_EACH(TAVO_DESCRIBE_ENUMERATOR, __VA_ARGS__)}; \
  }

namespace tavo::kit::details {

template <typename T>
struct Enumerator {
  T value;
  std::string_view name;  // As in the source.
};

}  // namespace tavo::kit::details

// ------------------------------------------------------------------------------------------------

#define TAVO_DESCRIBE_FIELD(name) visit(std::string_view(#name), &TavoType::name)&&
#define TAVO_DESCRIBE_ENUMERATOR(name) \
  ::tavo::kit::details::Enumerator<TavoType>{TavoType::name, #name},

// TAVO_FOR_EACH(macro, a, b) is macro(a) macro(b). C++17 has no macro that repeats itself.
// clang-format off
#define TAVO_FOR_EACH(macro, ...) TAVO_JOIN(TAVO_EACH_, TAVO_COUNT(__VA_ARGS__))(macro, __VA_ARGS__)
#define TAVO_JOIN(left, right) TAVO_JOIN_EXPANDED(left, right)
#define TAVO_JOIN_EXPANDED(left, right) left##right
#define TAVO_COUNT(...) TAVO_PICK_33RD(__VA_ARGS__, 32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
#define TAVO_PICK_33RD(_1, _2, _3, _4, _5, _6, _7, _8, _9, _10, _11, _12, _13, _14, _15, _16, _17, _18, _19, _20, _21, _22, _23, _24, _25, _26, _27, _28, _29, _30, _31, _32, count, ...) count
#define TAVO_EACH_1(macro, name) macro(name)
#define TAVO_EACH_2(macro, name, ...) macro(name) TAVO_EACH_1(macro, __VA_ARGS__)
#define TAVO_EACH_3(macro, name, ...) macro(name) TAVO_EACH_2(macro, __VA_ARGS__)
#define TAVO_EACH_4(macro, name, ...) macro(name) TAVO_EACH_3(macro, __VA_ARGS__)
#define TAVO_EACH_5(macro, name, ...) macro(name) TAVO_EACH_4(macro, __VA_ARGS__)
#define TAVO_EACH_6(macro, name, ...) macro(name) TAVO_EACH_5(macro, __VA_ARGS__)
#define TAVO_EACH_7(macro, name, ...) macro(name) TAVO_EACH_6(macro, __VA_ARGS__)
#define TAVO_EACH_8(macro, name, ...) macro(name) TAVO_EACH_7(macro, __VA_ARGS__)
#define TAVO_EACH_9(macro, name, ...) macro(name) TAVO_EACH_8(macro, __VA_ARGS__)
#define TAVO_EACH_10(macro, name, ...) macro(name) TAVO_EACH_9(macro, __VA_ARGS__)
#define TAVO_EACH_11(macro, name, ...) macro(name) TAVO_EACH_10(macro, __VA_ARGS__)
#define TAVO_EACH_12(macro, name, ...) macro(name) TAVO_EACH_11(macro, __VA_ARGS__)
#define TAVO_EACH_13(macro, name, ...) macro(name) TAVO_EACH_12(macro, __VA_ARGS__)
#define TAVO_EACH_14(macro, name, ...) macro(name) TAVO_EACH_13(macro, __VA_ARGS__)
#define TAVO_EACH_15(macro, name, ...) macro(name) TAVO_EACH_14(macro, __VA_ARGS__)
#define TAVO_EACH_16(macro, name, ...) macro(name) TAVO_EACH_15(macro, __VA_ARGS__)
#define TAVO_EACH_17(macro, name, ...) macro(name) TAVO_EACH_16(macro, __VA_ARGS__)
#define TAVO_EACH_18(macro, name, ...) macro(name) TAVO_EACH_17(macro, __VA_ARGS__)
#define TAVO_EACH_19(macro, name, ...) macro(name) TAVO_EACH_18(macro, __VA_ARGS__)
#define TAVO_EACH_20(macro, name, ...) macro(name) TAVO_EACH_19(macro, __VA_ARGS__)
#define TAVO_EACH_21(macro, name, ...) macro(name) TAVO_EACH_20(macro, __VA_ARGS__)
#define TAVO_EACH_22(macro, name, ...) macro(name) TAVO_EACH_21(macro, __VA_ARGS__)
#define TAVO_EACH_23(macro, name, ...) macro(name) TAVO_EACH_22(macro, __VA_ARGS__)
#define TAVO_EACH_24(macro, name, ...) macro(name) TAVO_EACH_23(macro, __VA_ARGS__)
#define TAVO_EACH_25(macro, name, ...) macro(name) TAVO_EACH_24(macro, __VA_ARGS__)
#define TAVO_EACH_26(macro, name, ...) macro(name) TAVO_EACH_25(macro, __VA_ARGS__)
#define TAVO_EACH_27(macro, name, ...) macro(name) TAVO_EACH_26(macro, __VA_ARGS__)
#define TAVO_EACH_28(macro, name, ...) macro(name) TAVO_EACH_27(macro, __VA_ARGS__)
#define TAVO_EACH_29(macro, name, ...) macro(name) TAVO_EACH_28(macro, __VA_ARGS__)
#define TAVO_EACH_30(macro, name, ...) macro(name) TAVO_EACH_29(macro, __VA_ARGS__)
#define TAVO_EACH_31(macro, name, ...) macro(name) TAVO_EACH_30(macro, __VA_ARGS__)
#define TAVO_EACH_32(macro, name, ...) macro(name) TAVO_EACH_31(macro, __VA_ARGS__)
// clang-format on
