// SPDX-License-Identifier: BSD-3-Clause
// Every routine of libtevlapack under every name, and of the library that computes: calls by chance, of which some have
// wrong arguments. These must be reported as by the distribution's LAPACK, with nothing touched; the others give the
// bits of the library that computes.
#include <sys/mman.h>

#include "tests/shim/calls_by_chance.h"

using namespace tev::shim;

namespace {

const library_file reference_blas(TEV_REFERENCE_BLAS), reference(TEV_REFERENCE_LAPACK), ours(TEV_LAPACK_FILE),
    ours64(TEV_LAPACK64_FILE);

constexpr int64_t kElements = 200;  // of an array; more than a matrix or a workspace has

// An array of integers in both widths, of which a call uses one.
struct indices {
  std::array<int64_t, kElements> wide;
  std::array<int32_t, kElements> narrow;
};

// Arrays and scalars of one call.
template <class E>
struct memory {
  std::array<std::array<E, kElements>, 8> arrays;
  std::array<indices, 2> integers;
  size_t arrays_used, integers_used;
};

constexpr bool is_index_array(kind k) { return k >= kind::INDICES; }

template <kind K, class E, class P>
[[gnu::noinline]] auto draw([[maybe_unused]] memory<E>& m, [[maybe_unused]] auto... rule) {
  if constexpr (is_letter(K)) {
    const char* const known = K == kind::SIDE ? "LRlr" : K == kind::UPLO ? "ULul" : "NTC1OIVBFntcvbf";
    return below(32) == 0 ? static_cast<char>(' ' + below(95)) : known[below(static_cast<int64_t>(std::strlen(known)))];
  } else if constexpr (is_integer(K)) {
    if (K == kind::LWORK) return below(4) == 0 ? -1 : below(8) == 0 ? below(12) : kElements;
    if (K == kind::LD) return below(12) == 0 ? below(kLargest + 1) : kLargest + 1 + below(3);
    return below(24) == 0 ? -1 : below(kLargest + 1);
  } else if constexpr (is_index_array(K)) {
    indices& drawn = m.integers[m.integers_used++];
    for (int64_t i = 0; i < kElements; ++i)
      drawn.narrow[i] = static_cast<int32_t>(drawn.wide[i] = 1 + below(1 + std::min(i, kLargest - 1)));
    return &drawn;
  } else {
    P* const parts = reinterpret_cast<P*>(m.arrays[m.arrays_used++].data());
    for (size_t i = 0; i < kElements * sizeof(E) / sizeof(P); ++i) parts[i] = static_cast<P>(below(2001) - 600) / 1000;
    return reinterpret_cast<field<K == kind::NORM ? kind::REAL : K, E, P>>(parts);
  }
}

template <kind K, class I>
auto pass(const auto& value) {
  if constexpr (!is_index_array(K))
    return to_fortran<K, I>(value);
  else if constexpr (sizeof(I) == 8)
    return value->wide.data();
  else
    return value->narrow.data();
}
template <kind K, class E, class P, class I>
using parameter =
    std::conditional_t<is_index_array(K), I*, fortran_parameter<is_index_array(K) ? kind::IN : K, E, P, I>>;

template <class Call>
void make_harmless(Call& call) {  // the reference checks nothing of this routine
  if constexpr (requires { call.k1; }) {
    call.lda = kLargest + 1;
    call.k1 = 1 + below(3), call.k2 = below(kLargest + 1), call.incx = below(5) - 2;
  }
}

struct outcome {
  std::string reported;
  int64_t info;
};

#define TEV_FIELD(kind_, name, ...) decltype(draw<kind::kind_, E, P>(std::declval<memory<E>&>())) name;
#define TEV_DRAW(kind_, name, ...) draw<kind::kind_, E, P>(m)
#define TEV_TYPE(kind_, name, ...) parameter<kind::kind_, E, P, I>
#define TEV_VALUE(kind_, name, ...) pass<kind::kind_, I>(name)
#define TEV_PROBE(name_, ...)                                                                                  \
  struct name_ {                                                                                               \
    using E = TEV_ELEMENT;                                                                                     \
    using P = TEV_PART;                                                                                        \
    static constexpr const char* kName = #name_;                                                               \
    TEV_EACH(TEV_FIELD, __VA_ARGS__)                                                                           \
    static name_ make(memory<E>& m) { return {TEV_LIST(TEV_DRAW, __VA_ARGS__)}; }                              \
    template <class I>                                                                                         \
    void call(void* function) const {                                                                          \
      reinterpret_cast<void (*)(TEV_LIST(TEV_TYPE, __VA_ARGS__))>(function)(TEV_LIST(TEV_VALUE, __VA_ARGS__)); \
    }                                                                                                          \
  };
#define TEV_LAPACK(name, work, ...) TEV_PROBE(name, __VA_ARGS__)
#define TEV_TABLE "shim/lapack_routines.inc"
#include "shim/each_routine.inc"

template <class I, class Call>
outcome attempt(const library_file& library, const std::string& symbol, const Call& call) {
  void* const function = library.find(symbol);
  if (!function) return {symbol + " does not exist", 0};
  complaint.clear();
  call.template call<I>(function);
  int64_t info = 0;
  if constexpr (requires { call.info; }) info = sizeof(I) == 8 ? call.info->wide[0] : call.info->narrow[0];
  return {complaint, info};
}

template <class Call>
[[gnu::noinline]] void examine() {
  const std::string name = Call::kName;
  for (int trial = 0; trial < (tev::test::long_run() ? 20000 : 300); ++trial) {
    static memory<typename Call::E> m, before, expected;
    m.arrays_used = m.integers_used = 0;
    Call call = Call::make(m);
    make_harmless(call);
    before = m;
    const outcome wanted = attempt<int32_t>(reference, name + "_", call);
    m = before;
    const outcome computed = [&] {
      const own_reports to_this_program;
      return attempt<int64_t>(computing, "tev_lapack_" + name, call);
    }();
    if (!wanted.reported.empty()) {
      ASSERT_EQ(without_blanks(computed.reported), without_blanks(wanted.reported));
      ASSERT_EQ(computed.info, wanted.info) << wanted.reported;
      ASSERT_EQ(std::memcmp(&m.arrays, &before.arrays, sizeof m.arrays), 0) << wanted.reported;
    }
    expected = m;
    m = before;
    const int64_t which = below(3);
    const outcome got = which == 0   ? attempt<int32_t>(ours, name + "_", call)
                        : which == 1 ? attempt<int64_t>(ours, name + "_64_", call)
                                     : attempt<int64_t>(ours64, name + "_", call);
    SCOPED_TRACE(name + " interface " + std::to_string(which) + " " + tev::test::repeat_with(tev::test::test_seed()));
    ASSERT_EQ(got.reported, wanted.reported);
    ASSERT_EQ(got.info, wanted.info);
    ASSERT_EQ(std::memcmp(&m.arrays, &expected.arrays, sizeof m.arrays), 0);
    for (size_t array = 0; array < m.integers_used; ++array)
      for (int64_t i = 0; wanted.reported.empty() && i < kElements; ++i)
        ASSERT_EQ(which == 0 ? m.integers[array].narrow[i] : m.integers[array].wide[i],
                  expected.integers[array].wide[i]);
  }
}

// Who asks for a workspace need not have any array yet.
template <class I, class Call>
void ask(const library_file& library, const std::string& symbol, Call call, void* forbidden) {
  typename Call::E best = {};
  indices info;
  const auto forbid = [forbidden](auto*& array) {
    array = static_cast<std::remove_reference_t<decltype(array)>>(forbidden);
  };
  forbid(call.a);
  if constexpr (requires { call.b; }) forbid(call.b), call.ldb = kLargest;
  if constexpr (requires { call.c; }) forbid(call.c), call.ldc = kLargest;
  if constexpr (requires { call.tau; }) forbid(call.tau);
  if constexpr (requires { call.ipiv; }) forbid(call.ipiv);
  if constexpr (requires { call.side; }) call.side = 'L';
  if constexpr (requires { call.trans; }) call.trans = 'N';
  if constexpr (requires { call.m; }) call.m = kLargest;
  if constexpr (requires { call.k; }) call.k = 3;
  if constexpr (requires { call.nrhs; }) call.nrhs = 2;
  call.n = 5, call.lda = kLargest, call.lwork = -1;
  call.workspace = &best, call.info = &info;
  const outcome told = attempt<I>(library, symbol, call);
  EXPECT_EQ(told.reported, "") << symbol;
  EXPECT_EQ(told.info, 0) << symbol;
  EXPECT_GE(reinterpret_cast<const typename Call::P&>(best), 5) << symbol;
}
template <class Call>
void ask_all(void* forbidden) {
  if constexpr (requires(Call call) { call.lwork; }) {
    static memory<typename Call::E> m;
    m.arrays_used = m.integers_used = 0;
    const Call call = Call::make(m);
    const std::string name = Call::kName;
    ask<int32_t>(ours, name + "_", call, forbidden);
    ask<int64_t>(ours, name + "_64_", call, forbidden);
    ask<int64_t>(ours64, name + "_", call, forbidden);
  }
}

TEST(Lapack, QuestionsForAWorkspaceTouchNoArray) {
  void* const forbidden = mmap(nullptr, sizeof(indices), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
#define TEV_LAPACK(name, ...) ask_all<name>(forbidden);
#define TEV_TABLE "shim/lapack_routines.inc"
#include "shim/each_routine.inc"
  munmap(forbidden, sizeof(indices));
}

TEST(Lapack, ComputesAsTheLibraryAndReportsAsTheReference) {
  ASSERT_TRUE(reference.handle && ours.handle && ours64.handle && computing.handle) << dlerror();
#define TEV_LAPACK(name, ...) examine<name>();
#define TEV_TABLE "shim/lapack_routines.inc"
#include "shim/each_routine.inc"
}

}  // namespace
