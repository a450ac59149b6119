// SPDX-License-Identifier: BSD-3-Clause
// A type for each routine of shim/routines.inc. Its object is one call: the arguments by their names, which of them is
// wrong, and the computation.
#pragma once

#include "shim/arguments.h"
#include "shim/composed.h"
#include "shim/library.h"
#include "shim/thread_limit.h"

namespace tev::shim {

// As the reference reports it: in capitals, with blanks up to six characters.
struct reported_name {
  char text[16];
  int32_t length;
};
constexpr reported_name reported(const char* name) {
  reported_name result = {};
  for (; *name != '\0'; ++name) result.text[result.length++] = capital(*name);
  while (result.length < 6) result.text[result.length++] = ' ';
  return result;
}

constexpr double work_of(auto... factors) { return (static_cast<double>(factors) * ...); }

// Of calls with less work the library never makes a team, in any precision, on any processor. So nothing needs to be
// decided for them.
inline constexpr double kAlone = 4096;

// A complex result is the first argument of those of tev/blas.h.
template <class E, class... Arguments>
auto result_of(auto* function, Arguments... arguments) {
  if constexpr (std::is_invocable_v<decltype(function), E*, Arguments...>) {
    E result;
    function(&result, arguments...);
    return result;
  } else {
    return function(arguments...);
  }
}

#define TEV_FIELD(kind_, name, ...) field<kind::kind_, element, part> name;
#define TEV_ADDRESS(kind_, name, ...) by_address(name)
#define TEV_CHECK(kind_, name, ...) \
  ++position;                       \
  if (is_wrong<kind::kind_>(name __VA_OPT__(, ) __VA_ARGS__)) return position;
#define TEV_IDLE(kind_, name, ...) || is_idle<kind::kind_>(name)
#define TEV_CALL(name_, work_, computation, ...)                                                     \
  struct name_ {                                                                                     \
    using element = TEV_ELEMENT;                                                                     \
    using part = TEV_PART;                                                                           \
    static constexpr reported_name kName = reported(#name_);                                         \
    TEV_EACH(TEV_FIELD, __VA_ARGS__)                                                                 \
    int32_t wrong() const { /* position of the first wrong argument, or 0 */                         \
      [[maybe_unused]] int32_t position = 0;                                                         \
      TEV_EACH(TEV_CHECK, __VA_ARGS__)                                                               \
      return 0;                                                                                      \
    }                                                                                                \
    bool idle() const { return false TEV_EACH(TEV_IDLE, __VA_ARGS__); } /* nothing to be computed */ \
    double work() const { return work_; }                                                            \
    auto compute() const { return computation; }                                                     \
  };
#define TEV_MATRIX(name, base, layout, work, ...) \
  TEV_CALL(name, work, library().name(TEV_LIST(TEV_ADDRESS, __VA_ARGS__)), __VA_ARGS__)
#define TEV_COMPOSED_MATRIX(name, base, layout, work, ...) TEV_CALL(name, work, compose_##base(*this), __VA_ARGS__)
#define TEV_COMPOSED_VECTOR(name, base, work, ...) TEV_CALL(name, work, compose_##base(*this), __VA_ARGS__)
#define TEV_VECTOR(name, base, work, ...) TEV_MATRIX(name, base, none, work, __VA_ARGS__)
#define TEV_FUNCTION(name, base, result, work, ...) \
  TEV_CALL(name, work, result_of<element>(library().name, TEV_LIST(TEV_ADDRESS, __VA_ARGS__)), __VA_ARGS__)
#include "shim/each_routine.inc"
#undef TEV_FIELD
#undef TEV_ADDRESS
#undef TEV_CHECK
#undef TEV_IDLE
#undef TEV_CALL

template <class Call>
auto run(const Call& call) {
  if (call.work() < kAlone) return call.compute();
  const thread_limit limit;
  return call.compute();
}

}  // namespace tev::shim
