// SPDX-License-Identifier: BSD-3-Clause
// Every routine under every name, against the distribution's reference BLAS: calls by chance, of which most are right
// and the others have wrong arguments, which must be reported as the reference reports them. Both call the error
// handlers of this program.
//
// Elements that are only read are 1, -1, i or -i, so that the sums and quotients of these small calls are exact; what
// is written starts as NaN where beta is 0.

#include "tests/shim/calls_by_chance.h"
#include "tests/support/each_tier.h"

using namespace tev::shim;

extern "C" {
TEV_EXPORT void cblas_xerbla(int position, const char* name, const char*, ...) {
  report(name, std::strlen(name), position);
}
TEV_EXPORT void cblas_xerbla_64(int64_t position, const char* name, const char*, ...) {
  report(name, std::strlen(name), position);
}
}

namespace {

// Everything by which a routine can be called with these integers.
template <class I>
struct interface {
  const library_file* library;
  const char *fortran_suffix, *c_suffix;
};
const library_file reference(TEV_REFERENCE_BLAS), ours(TEV_BLAS), ours64(TEV_BLAS64);
const interface<int32_t> kReference = {&reference, "_", ""}, kOurs = { &ours, "_", "" };
const interface<int64_t> kWide[] = {
  {&ours, "_64_", "_64"}, {&ours, "_64_", "64_"}, { &ours64, "_", "" }
};

constexpr int64_t kElements = 120;  // of an array: 9 columns of at most 12, or 9 elements at most 3 apart

// The arrays and scalars of one call.
template <class E, class P>
struct memory {
  std::array<std::array<E, kElements>, 6> arrays;
  size_t used = 0;
  P* parts(size_t array) { return reinterpret_cast<P*>(arrays[array].data()); }
};
template <class E>
inline constexpr int64_t kParts = kComplex<E> ? 2 : 1;

template <kind K>
constexpr const char* kLetters = K == kind::TRANS  ? "NTC"
                                 : K == kind::UPLO ? "UL"
                                 : K == kind::DIAG ? "NU"
                                                   : "LR";

template <kind K, class E, class P>
[[gnu::noinline]] auto draw([[maybe_unused]] memory<E, P>& m) {
  if constexpr (is_letter(K)) {
    const char letter = kLetters<K>[below(static_cast<int64_t>(std::strlen(kLetters<K>)))];
    return below(32) == 0 ? static_cast<char>(' ' + below(95)) : letter;
  } else if constexpr (is_integer(K)) {
    if (K == kind::LD) return below(8) == 0 ? below(kLargest + 1) : kLargest + 1 + below(3);
    if (K == kind::INC || K == kind::STEP) return below(24) == 0 ? 0 : (1 + below(3)) * (below(2) == 0 ? 1 : -1);
    return below(24) == 0 ? -1 : below(kLargest + 1);
  } else {
    P* const parts = m.parts(m.used++);
    for (int64_t i = 0; i < kElements * kParts<E>; ++i) parts[i] = static_cast<P>(below(7) - 3);
    for (int64_t i = 0; K == kind::IN && i < kElements; ++i) {
      const int64_t which = below(kParts<E>);
      parts[i * kParts<E> + which] = below(2) == 0 ? P(1) : P(-1);
      if (kComplex<E>) parts[i * kParts<E> + 1 - which] = 0;
    }
    return reinterpret_cast<field<K, E, P>>(parts);
  }
}

// As C passes an argument.
template <kind K, class E, class P, class I, class Field>
c_parameter<K, E, P, I> to_c(const Field& value) {
  if constexpr (is_letter(K)) {
    constexpr int kFirst = K == kind::TRANS ? 111 : K == kind::UPLO ? 121 : K == kind::DIAG ? 131 : 141;
    const char* const found = std::strchr(kLetters<K>, capital(value));
    return found ? kFirst + static_cast<int>(found - kLetters<K>) : 900 + value;
  } else if constexpr (is_integer(K)) {
    return static_cast<I>(value);
  } else if constexpr (std::is_pointer_v<c_parameter<K, E, P, I>>) {
    return value;
  } else {
    return *value;
  }
}

bool same(double x, double y, double epsilon) {
  return (std::isnan(x) && std::isnan(y)) || std::abs(x - y) <= 8 * epsilon * std::max({std::abs(x), std::abs(y), 1.0});
}

template <class P>
bool is_nothing(const P* scalar, int64_t parts) {
  return scalar[0] == 0 && scalar[parts - 1] == 0;
}

// A result that is not read starts as NaN.
template <class Call>
void hide_result(Call& call) {
  if constexpr (requires { call.beta; }) {
    using E = typename Call::element;
    constexpr int64_t kScalarParts = sizeof(*call.beta) / sizeof(typename Call::part);
    auto* const beta = reinterpret_cast<const typename Call::part*>(call.beta);
    if (!is_nothing(beta, kScalarParts)) return;
    auto fill = [](E* result) {
      std::fill_n(reinterpret_cast<typename Call::part*>(result), kElements * kParts<E>, std::nanf(""));
    };
    if constexpr (requires { call.c; })
      fill(call.c);
    else
      fill(call.y);
  }
}

// How one routine is called, in Fortran and in C, with integers I; what a function returned.
using values = std::array<double, 2>;
template <class Call>
struct probe;

#define TEV_DRAW(kind_, name, ...) draw<kind::kind_, E, P>(m)
#define TEV_FORTRAN_TYPE(kind_, name, ...) fortran_parameter<kind::kind_, E, P, I>
#define TEV_FORTRAN_VALUE(kind_, name, ...) to_fortran<kind::kind_, I>(x.name)
#define TEV_C_TYPE(kind_, name, ...) c_parameter<kind::kind_, E, P, I>
#define TEV_C_VALUE(kind_, name, ...) to_c<kind::kind_, E, P, I>(x.name)
#define TEV_PROBE(routine, like, c_name, R, take, C_R, c_take, C_TYPES, C_VALUES, ...)  \
  template <>                                                                           \
  struct probe<routine> {                                                               \
    using E = TEV_ELEMENT;                                                              \
    using P = TEV_PART;                                                                 \
    static constexpr const char *kName = #routine, *kLike = #like, *kCTail = c_name;    \
    static routine make(memory<E, P>& m) { return {TEV_LIST(TEV_DRAW, __VA_ARGS__)}; }  \
    template <class I>                                                                  \
    static values fortran(void* f, const routine& x) {                                  \
      take((reinterpret_cast<R (*)(TEV_LIST(TEV_FORTRAN_TYPE, __VA_ARGS__))>(f)(        \
          TEV_LIST(TEV_FORTRAN_VALUE, __VA_ARGS__))));                                  \
    }                                                                                   \
    template <class I>                                                                  \
    static values c(void* f, [[maybe_unused]] int order, const routine& x) {            \
      [[maybe_unused]] E sub;                                                           \
      c_take((reinterpret_cast<C_R (*)(C_TYPES(TEV_LIST(TEV_C_TYPE, __VA_ARGS__)))>(f)( \
          C_VALUES(TEV_LIST(TEV_C_VALUE, __VA_ARGS__)))));                              \
    }                                                                                   \
  };
#define TEV_TAKE_NOTHING(call) \
  return call, values {}
#define TEV_TAKE_NUMBER(call) \
  return values { static_cast<double>(call) }
#define TEV_TAKE_COMPLEX(call) \
  const E result = call;       \
  return values { result.real, result.imag }
#define TEV_TAKE_SUB(call) \
  return call, values { sub.real, sub.imag }
#define TEV_PLAIN(...) __VA_ARGS__
#define TEV_ORDER_TYPE(...) int, __VA_ARGS__
#define TEV_ORDER_VALUE(...) order, __VA_ARGS__
#define TEV_SUB_TYPE(...) __VA_ARGS__, void*
#define TEV_SUB_VALUE(...) __VA_ARGS__, &sub
#define TEV_MATRIX(name, base, layout, work, ...)                                                            \
  TEV_PROBE(name, base, "", void, TEV_TAKE_NOTHING, void, TEV_TAKE_NOTHING, TEV_ORDER_TYPE, TEV_ORDER_VALUE, \
            __VA_ARGS__)
#define TEV_COMPOSED_MATRIX(...)  // extensions_test.cpp
#define TEV_COPY(...)
#define TEV_COMPOSED_VECTOR(...)
#define TEV_VECTOR(name, base, work, ...) \
  TEV_PROBE(name, base, "", void, TEV_TAKE_NOTHING, void, TEV_TAKE_NOTHING, TEV_PLAIN, TEV_PLAIN, __VA_ARGS__)
#define TEV_FUNCTION(name, base, result, work, ...) TEV_PROBE_##result(name, base, __VA_ARGS__)
#define TEV_PROBE_NUMBER(name, base, R, C_R, ...) \
  TEV_PROBE(name, base, "", R, TEV_TAKE_NUMBER, C_R, TEV_TAKE_NUMBER, TEV_PLAIN, TEV_PLAIN, __VA_ARGS__)
#define TEV_PROBE_real(name, base, ...) TEV_PROBE_NUMBER(name, base, P, P, __VA_ARGS__)
#define TEV_PROBE_double(name, base, ...) TEV_PROBE_NUMBER(name, base, double, double, __VA_ARGS__)
#define TEV_PROBE_index(name, base, ...) TEV_PROBE_NUMBER(name, base, I, size_t, __VA_ARGS__)
#define TEV_PROBE_complex(name, base, ...) \
  TEV_PROBE(name, base, "_sub", E, TEV_TAKE_COMPLEX, void, TEV_TAKE_SUB, TEV_SUB_TYPE, TEV_SUB_VALUE, __VA_ARGS__)
#include "shim/each_routine.inc"

struct outcome {
  std::string reported;
  values result;
};

template <class Call, class I>
outcome attempt(const interface<I>& by, const char* name, int order, const Call& call) {
  const std::string symbol = order == 0 ? name + std::string(by.fortran_suffix)
                                        : "cblas_" + std::string(name) + probe<Call>::kCTail + by.c_suffix;
  void* const function = by.library->find(symbol);
  if (!function) return {symbol + " does not exist", {}};
  complaint.clear();
  const values result =
      order == 0 ? probe<Call>::template fortran<I>(function, call) : probe<Call>::template c<I>(function, order, call);
  return {complaint, result};
}

// What both must report alike. The reference has no name for an extension; and for letters of row-major calls that are
// none it mixes the positions up.
std::string comparable(const std::string& text, bool extension, int order) {
  if (order == 101 && text.starts_with("cblas_")) return "a letter";
  return extension ? text.substr(text.rfind(' ') + 1) : text;
}

// The reference copies complex vectors of row-major calls before it looks at their arguments, for ever if need be.
template <class Call>
bool reference_survives(const Call& call) {
  if constexpr (kComplex<typename Call::element> && requires { call.incx; }) {
    if constexpr (requires { call.m; })
      if (call.m < 1) return false;
    return call.wrong() == 0 && call.n > 0;
  }
  return true;
}

// What the routine of the library that computes reports, where the reference does. Those of general matrices leave that
// to their callers.
template <class Call>
void expect_own_report(const Call& call) {
  const std::string name = probe<Call>::kName;
  void* const function = computing.find("tev_blas_" + name);
  if (!function || name.substr(1, 2) == "ge") return;
  const std::string wanted = attempt(kReference, probe<Call>::kName, 0, call).reported;
  if (wanted.empty()) return;
  const own_reports to_this_program;
  complaint.clear();
  probe<Call>::template fortran<int64_t>(function, call);
  ASSERT_EQ(without_blanks(complaint), without_blanks(wanted));
}

// In C an index of nothing is 0 as well.
template <class Call>
[[gnu::noinline]] void examine() {
  using E = typename Call::element;
  using P = typename Call::part;
  constexpr double kEpsilon = std::numeric_limits<P>::epsilon();
  const bool extension = !reference.find(std::string(probe<Call>::kName) + "_");
  const char* const like = extension ? probe<Call>::kLike : probe<Call>::kName;
  for (int trial = 0; trial < (tev::test::long_run() ? 20000 : 60); ++trial) {
    static memory<E, P> m, before, expected;
    m.used = 0;
    Call call = probe<Call>::make(m);
    hide_result(call);
    const int64_t choice = below(40);  // 0: Fortran
    const int order = choice < 15 ? 0 : choice < 27 ? 101 : choice < 39 ? 102 : 7;
    if (order == 101 && !reference_survives(call)) continue;
    before = m;
    if (!extension) ASSERT_NO_FATAL_FAILURE(expect_own_report(call)) << tev::test::repeat_with(tev::test::test_seed());
    m = before;
    const outcome wanted = attempt(kReference, like, order, call);
    // The reference goes on when this handler returns from a letter that is none, with any letter.
    expected = wanted.reported.starts_with("cblas_") ? before : m;
    m = before;
    const int64_t which = below(4);
    const outcome got = which == 3 ? attempt(kOurs, probe<Call>::kName, order, call)
                                   : attempt(kWide[which], probe<Call>::kName, order, call);
    SCOPED_TRACE(std::string(probe<Call>::kName) + " order " + std::to_string(order) + " interface " +
                 std::to_string(which) + " " + tev::test::repeat_with(tev::test::test_seed()));
    ASSERT_EQ(comparable(got.reported, extension, order), comparable(wanted.reported, extension, order));
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(same(got.result[i], wanted.result[i], kEpsilon)) << got.result[i];
    for (size_t array = 0; array < m.used; ++array)
      for (int64_t i = 0; i < kElements * kParts<E>; ++i)
        ASSERT_TRUE(same(m.parts(array)[i], expected.parts(array)[i], kEpsilon))
            << "array " << array << "[" << i << "]: " << m.parts(array)[i] << ", expected " << expected.parts(array)[i];
  }
}

int examine_all() {
#define TEV_EXAMINE(name) examine<tev::shim::name>();
#define TEV_MATRIX(name, ...) TEV_EXAMINE(name)
#define TEV_COMPOSED_MATRIX(...)
#define TEV_COPY(...)
#define TEV_COMPOSED_VECTOR(...)
#define TEV_VECTOR(name, ...) TEV_EXAMINE(name)
#define TEV_FUNCTION(name, ...) TEV_EXAMINE(name)
#include "shim/each_routine.inc"
  return 0;
}

TEST(Routines, ComputeAndReportAsTheReferenceOnEveryTier) {
  ASSERT_TRUE(reference.handle && ours.handle && ours64.handle) << dlerror();
  tev::test::on_each_tier({}, [](const tev::test::tier_in_force&) { return examine_all(); });
}

}  // namespace
