// SPDX-License-Identifier: BSD-3-Clause
// A type for each routine of shim/routines.inc. Its object is one call: the arguments by their names, which of them is
// wrong, and the computation.
#pragma once

#include "shim/arguments.h"
#include "shim/composed.h"
#include "shim/library.h"
#include "shim/thread_limit.h"
#include "shim/trace.h"

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

// Bytes up to which elements that are used once come from a cache, with a small first cache and with a large one.
struct cached_bytes {
  double small_first_cache = 0, large_first_cache = 0;
};
inline constexpr int64_t kLargeFirstCache = 48 * 1024;

// How much a call has to do.
struct amount {
  double work;           // what decides about teams: multiply-adds of a product, eight for an element that is used once
  double multiply_adds;  // as they are usually counted
  cached_bytes cached = {};
  double direct = 0;  // work below which a kernel may have all of the call
};

// What comes from a cache and is used once is ready on one thread before a team has begun. Two threads with 48 KiB L1
// and 1 MiB L2 take 1.0 to 2.5 times as long for vectors of 240 KB as one, 0.6 to 1.3 times for 800 KB, and twice as
// long for the product of a vector and a matrix of 128 KiB. With 32 KiB L1 they take 0.63 to 0.84 of the time for
// 240 KB.
constexpr cached_bytes cached_bytes_of(size_t sizes) {
  if (sizes == 1) return {192 * 1024, 384 * 1024};
  return {256 * 1024, 256 * 1024};
}

// Vectors of any length; matrices beside which the way through the library is not yet nothing.
constexpr double direct_work(size_t sizes) { return sizes == 1 ? 1e300 : 8 * 128 * 128; }

constexpr double product_of(auto... factors) { return (static_cast<double>(factors) * ...); }
constexpr amount products(auto... sizes) { return {product_of(sizes...), product_of(sizes...)}; }
constexpr amount some_products(double share, auto... sizes) {
  return {product_of(sizes...), share * product_of(sizes...)};
}
constexpr amount half_products(auto... sizes) { return some_products(0.5, sizes...); }
constexpr amount some_elements(double share, auto... sizes) {
  return {8 * product_of(sizes...), share * product_of(sizes...), cached_bytes_of(sizeof...(sizes)),
          direct_work(sizeof...(sizes))};
}
constexpr amount elements(auto... sizes) { return some_elements(1, sizes...); }
constexpr amount half_elements(auto... sizes) { return some_elements(0.5, sizes...); }
constexpr amount moved(auto... sizes) { return some_elements(0, sizes...); }

// Two vectors that are only read: a team is ready with more of them.
constexpr amount pairs_read(auto n) {
  amount result = elements(n);
  result.cached = {144 * 1024, 192 * 1024};
  return result;
}

// Of calls with less work the library never makes a team, in any precision, on any processor. So nothing needs to be
// decided for them.
inline constexpr double kAlone = 4096;

template <class... Arguments>
[[gnu::always_inline]] inline auto invoke(auto* function, Arguments... arguments) {
  return function(arguments...);
}

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

// What a call is, whatever computes it; for whoever includes this, too, with a TEV_FIELD of its own.
#define TEV_CHECK(kind_, name, ...) \
  ++position;                       \
  if (is_wrong<kind::kind_>(name __VA_OPT__(, ) __VA_ARGS__)) return position;
#define TEV_NOTE(kind_, name, ...) line.note(#name, name)
#define TEV_NAME_ALONE(kind_, name, ...) name
#define TEV_CALL_MEMBERS(name_, work_, ...)                                                    \
  using element = TEV_ELEMENT;                                                                 \
  using part = TEV_PART;                                                                       \
  static constexpr reported_name kName = reported(#name_);                                     \
  static constexpr const char* kRoutine = #name_;                                              \
  TEV_EACH(TEV_FIELD, __VA_ARGS__)                                                             \
  int32_t wrong() const { /* position of the first wrong argument, or 0 */                     \
    [[maybe_unused]] int32_t position = 0;                                                     \
    TEV_EACH(TEV_CHECK, __VA_ARGS__)                                                           \
    return 0;                                                                                  \
  }                                                                                            \
  void describe(trace_line& line) const { (TEV_LIST(TEV_NOTE, __VA_ARGS__)); }                 \
  auto give_fields(const auto& to) const { return to(TEV_LIST(TEV_NAME_ALONE, __VA_ARGS__)); } \
  amount work() const { return work_; }

#define TEV_FIELD(kind_, name, ...) field<kind::kind_, element, part> name;
#define TEV_ADDRESS(kind_, name, ...) by_address(decltype(name)(name))  // of a copy: see run()
#define TEV_IDLE(kind_, name, ...) || is_idle<kind::kind_>(name)
#define TEV_GAPLESS(kind_, name, ...) &&is_gapless<kind::kind_>(name)
// `, name`, but nothing for an INC.
#define TEV_BY_VALUE(kind_, name, ...) TEV_THIRD(TEV_GAP_##kind_, TEV_DROP, TEV_KEEP, )(name)
#define TEV_GAP_INC ,
#define TEV_THIRD(...) TEV_THIRD_OF(__VA_ARGS__)
#define TEV_THIRD_OF(a, b, c, ...) c
#define TEV_KEEP(name) , name
#define TEV_DROP(name)
#define TEV_CALL(name_, work_, computation, ...)                                                                     \
  struct name_ {                                                                                                     \
    TEV_CALL_MEMBERS(name_, work_, __VA_ARGS__)                                                                      \
    bool idle() const { return false TEV_EACH(TEV_IDLE, __VA_ARGS__); } /* nothing to be computed */                 \
    auto compute() const { return computation; }                                                                     \
    template <class Kernels>                                                                                         \
    static constexpr bool kHasKernel = requires(Kernels kernels) {                                                   \
      kernels.name_;                                                                                                 \
    };                                                                                                               \
    bool gapless() const { return true TEV_EACH(TEV_GAPLESS, __VA_ARGS__); } /* but for level 1 */                   \
    auto compute_by(const auto& kernels) const { return invoke(kernels.name_ TEV_EACH(TEV_BY_VALUE, __VA_ARGS__)); } \
  };
#define TEV_MATRIX(name, base, layout, work, ...) \
  TEV_CALL(name, work, library().name(TEV_LIST(TEV_ADDRESS, __VA_ARGS__)), __VA_ARGS__)
#define TEV_COMPOSED_MATRIX(name, base, layout, work, ...) TEV_CALL(name, work, compose_##base(*this), __VA_ARGS__)
#define TEV_COMPOSED_VECTOR(name, base, work, ...) TEV_CALL(name, work, compose_##base(*this), __VA_ARGS__)
#define TEV_COPY(name, base, work, ...) TEV_MATRIX(name, base, none, work, __VA_ARGS__)
#define TEV_VECTOR(name, base, work, ...) TEV_MATRIX(name, base, none, work, __VA_ARGS__)
#define TEV_FUNCTION(name, base, result, work, ...) \
  TEV_CALL(name, work, result_of<element>(library().name, TEV_LIST(TEV_ADDRESS, __VA_ARGS__)), __VA_ARGS__)
#include "shim/each_routine.inc"
#undef TEV_FIELD
#undef TEV_ADDRESS
#undef TEV_IDLE
#undef TEV_GAPLESS
#undef TEV_BY_VALUE
#undef TEV_GAP_INC
#undef TEV_THIRD
#undef TEV_THIRD_OF
#undef TEV_KEEP
#undef TEV_DROP
#undef TEV_CALL

// A call that could not be computed is reported as the library reports it.
inline constexpr int32_t kNotEnoughMemory = 1089;
template <class Call>
[[gnu::cold]] void report_no_memory(const Call&) {
  library().xerbla(Call::kName.text, &kNotEnoughMemory, Call::kName.length);
}

template <class Call>
[[gnu::noinline]] auto run_limited(const Call& call) {
  const amount work = call.work();
  const double cached =
      library().get_cache_size(1) < kLargeFirstCache ? work.cached.small_first_cache : work.cached.large_first_cache;
  const thread_limit limit(work.work / 8 * sizeof(typename Call::element) >= cached);
  return call.compute();
}

template <class Call>
[[gnu::noinline, gnu::cold]] auto run_traced(const Call& call) {
  library();
  const auto compute = [&] { return call.work().work < kAlone ? call.compute() : run_limited(call); };
  if (!tracing.load(std::memory_order_relaxed)) return compute();
  trace_line line(Call::kRoutine, call.work().multiply_adds * (kComplex<typename Call::element> ? 8 : 2));
  call.describe(line);
  line.begin();
  return compute();
}

template <class Call>
[[gnu::noinline]] auto run_apart(const Call& call) {
  if (tracing.load(std::memory_order_relaxed)) return run_traced(call);
  return call.work().work < kAlone ? call.compute() : run_limited(call);
}

// The same call from its fields: where registers hold them all, whoever jumps here needs no stack for them.
inline constexpr size_t kRegisters = 6;
template <class Call, class... Fields>
[[gnu::noinline]] auto run_apart_from(Fields... fields) {
  const Call call = {fields...};
  return run_apart(call);
}

// Nothing here takes the address of the call or of a part of it, so that it lives in registers and on the caller's
// stack. In memory of its own its arguments would be put two at a time, which has to wait until the caller's stores of
// them are through: some 10 ns.
template <class Call>
[[gnu::always_inline]] inline auto run(const Call& call) {
  const amount work = call.work();
  if constexpr (Call::template kHasKernel<tev_direct_kernels>) {
    const tev_direct_kernels* const kernels = direct_kernels.load(std::memory_order_acquire);
    // What any machine leaves to one thread.
    const double most = std::min(work.direct, 8 * work.cached.small_first_cache / sizeof(typename Call::element));
    if (kernels && work.work < most && call.gapless()) return call.compute_by(*kernels);
  } else if (!tracing.load(std::memory_order_relaxed) && work.work < kAlone) {
    return call.compute();
  }
  return call.give_fields([](auto... fields) __attribute__((always_inline)) {
    if constexpr (sizeof...(fields) <= kRegisters) return run_apart_from<Call>(fields...);
    const Call copy = {fields...};
    return run_apart(copy);
  });
}

}  // namespace tev::shim
