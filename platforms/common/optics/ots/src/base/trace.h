// The one form of a trace call.
//
//   LUM_INFO(18, "LUM_API: entry: R/S/I: %d/%d/%d/\n", rack, slot, instance);
//
// The compiler checks the arguments against the format; their number and signature letters are
// computed at compile time. A source file says which area it belongs to once, in a constant named
// trace_area. The build extracts the catalogue of all trace points from these calls, so the point
// and the format are literals and stand first in the call.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "ctrace.h"
#include "lum.h"
#include "tern.h"

namespace lum {

// A text argument that may be null.
inline const char *or_empty(const char *text) { return text == nullptr ? "" : text; }

inline constexpr std::uint32_t trace_points = 278;

consteval std::uint32_t trace_point(std::uint32_t number) {
  if (number < 1 || number > trace_points) throw "no such trace point";
  return number;
}

// 's' a text, 'd' an integer of up to 32 bits, 'D' a wider integer or a pointer.
template <typename T>
consteval char trace_letter() {
  if constexpr (std::is_same_v<T, char *> || std::is_same_v<T, const char *>) {
    return 's';
  } else if constexpr (std::is_pointer_v<T>) {
    return 'D';
  } else {
    static_assert(std::is_integral_v<T>, "a trace argument is a text, an integer or a pointer");
    return sizeof(T) <= sizeof(std::uint32_t) ? 'd' : 'D';
  }
}

// Every line starts with the area, the thread's id and the tag: "sds".
template <typename... Arguments>
struct trace_arguments {
  static constexpr std::uint32_t count = 3 + sizeof...(Arguments);
  static constexpr std::array<char, count + 1> signature = {'s', 'd', 's',
                                                            trace_letter<Arguments>()..., '\0'};
};

template <typename... Arguments>
trace_arguments<std::decay_t<Arguments>...> trace_arguments_of(const Arguments &...);

}  // namespace lum

#define LUM_TRACE(channel, tag, point, format, ...)                                               \
  ctrace_internal(                                                                                \
      channel, lum::trace_point(point), decltype(lum::trace_arguments_of(__VA_ARGS__))::count, 1, \
      decltype(lum::trace_arguments_of(__VA_ARGS__))::signature.data(), "[%s][tid:%d]%s:" format, \
      trace_area, tern_gettid(), tag __VA_OPT__(, ) __VA_ARGS__)

#define LUM_INFO(point, format, ...) \
  LUM_TRACE(ct_info, "LUM_INFO", point, format __VA_OPT__(, ) __VA_ARGS__)
#define LUM_ERROR(point, format, ...) \
  LUM_TRACE(ct_err, "LUM_ERR", point, format __VA_OPT__(, ) __VA_ARGS__)
#define LUM_DEBUG(point, format, ...) \
  LUM_TRACE(ct_debug, "LUM_DEBUG", point, format __VA_OPT__(, ) __VA_ARGS__)
