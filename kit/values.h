// Types of a plug-in as values, and values as types.
//
//   struct Size { int32_t width = 0; int32_t height = 0; };
//   TAVO_DESCRIBE(Size, width, height)
//
//   cw::EncodableValue value = kit::From(Size{1920, 1080});
//   kit::Result<Size> size = kit::To<Size>(value, "params");
//   if (!size) Report(size.GetFailure().error.message);
//   // params.width: an integer is expected, not a text
//
// clang-format off
// | type                              | travels as                                             |
// | --------------------------------- | ------------------------------------------------------ |
// | bool, std::string                 | itself                                                 |
// | integers of all widths            | int32, or int64 if the type does not fit into it       |
// | double, float                     | double                                                 |
// | std::monostate                    | null                                                   |
// | cw::EncodableValue                | itself: anything fits                                  |
// | std::optional<T>                  | T, or null; an empty field of a struct is left out     |
// | std::vector<T>, std::array<T, N>  | bytes, a list of numbers, or a list, as fits T exactly |
// | std::pair, std::tuple             | a list of that length                                  |
// | std::map<K, T>                    | a map                                                  |
// | described structs                 | a map; unknown keys are ignored                        |
// | described enums                   | a text                                                 |
// clang-format on
//
// To reads more than From writes: any list of numbers as a list of any type of numbers, an integer
// of either width, a whole double as an integer, and an integer as a double, each if the number
// fits exactly. A double is rounded to a float. A field that is missing is read as null.
//
// Threads:   plain functions.
// Ownership: the result owns copies. From moves texts, bytes and lists out of a temporary.
// Errors:    a value that does not fit is a failure with Cause::kBadValue. Its message names the
//            place, what is expected there, and what is there instead; it is a short text in ASCII,
//            whatever the value holds. Structs that hold themselves are refused when they nest more
//            than cw::kDeepestNesting levels. From throws std::range_error for a number above the
//            range of int64_t, and for a number of an enum that has no name. Otherwise nothing but
//            std::bad_alloc is thrown.
#pragma once

#include <string_view>

#include "cw/encodable_value.h"
#include "kit/describe.h"
#include "kit/failure.h"

namespace tavo::kit {

// Returns the value as a T, which must be default constructible. `root` is what the message of the
// failure calls the value, for example "params" or "result".
template <typename T>
Result<T> To(const cw::EncodableValue& value, std::string_view root = "value");

// Returns the value of an object of one of the types above, or of any other type that an
// EncodableValue is made from, such as a literal text.
template <typename T>
cw::EncodableValue From(T&& object);

}  // namespace tavo::kit

// ------------------------------------------------------------------------------------------------

#include "kit/values_inl.h"
