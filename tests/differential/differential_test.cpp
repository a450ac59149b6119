// SPDX-License-Identifier: BSD-3-Clause
// Random calls of every BLAS routine, by its public name and by its entry point, against the oracle of host/check.h.
// Options, sizes, scalars, strides, paddings and thread counts are drawn anew in each run. A child process runs one
// tier for a moment, then the next one follows. What a routine must not read is NaN, what it must not write keeps its
// bits, operands end at an unmapped page.
//
// A further routine is a row of rows() and, unless its operands look like another's, a function above it.
#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <cctype>
#include <chrono>
#include <string>
#include <vector>

#include "host/check.h"
#include "kernels/dispatch/dispatch.h"
#include "tests/support/effort.h"
#include "tests/support/in_child.h"
#include "tests/support/sample.h"
#include "tests/support/tier_list.h"
#include "tev/service.h"

namespace tev::test {
namespace {

// ---- Judging -------------------------------------------------------------------------------------------------------

// A vector as a matrix of one column without gaps.
template <class T>
matrix<T> column_of(const strided<T>& x) {
  matrix<T> column(x.size(), 1, 0);
  for (int64_t i = 0; i < x.size(); ++i) column(i, 0) = x[i];
  return column;
}

template <class T>
void expect_passed(sample& s, const problem<T>& p, const matrix<T>& result) {
  const host::verdict verdict = host::check(p, result.data(), 1);
  EXPECT_TRUE(verdict.passed) << s.words.str() << ' ' << p.m << 'x' << p.n << 'x' << p.k << " alpha " << p.alpha
                              << " beta " << p.beta << ": " << verdict.text;
  EXPECT_TRUE(result.padding_is_intact()) << s.words.str();
}

// result = alpha op(A) op(B) + beta C ?
template <class T>
void expect_product(sample& s, const char* letters, int64_t k, T alpha, const matrix<T>& a, const matrix<T>& b, T beta,
                    const matrix<T>& c, const matrix<T>& result) {
  problem<T> p = problem_of<T>(operation::gemm, letters, c.rows(), c.columns(), k, alpha, beta);
  p.a = a.data(), p.lda = a.ld();
  p.b = b.data(), p.ldb = b.ld();
  p.c = c.data(), p.ldc = c.ld();
  expect_passed(s, p, result);
}

template <class T>
void expect_sum(sample& s, T alpha, const strided<T>& x, T beta, const strided<T>& y, const strided<T>& result) {
  matrix<T> one(1, 1);
  one(0, 0) = T(1);
  expect_product(s, "NN", 1, alpha, column_of(x), one, beta, column_of(y), column_of(result));
  EXPECT_TRUE(result.gaps_are_intact()) << s.words.str();
}

// ---- The routines --------------------------------------------------------------------------------------------------

// By public name and by entry point, or by entry point alone.
template <class T>
struct calls;
#define TEV_BOTH(name, p) static constexpr std::array name = {&tev_blas_##p##name, &tev_blas_x##p##name};
#define TEV_CALLS(type, p, entries, ...)                               \
  template <>                                                          \
  struct calls<type> {                                                 \
    TEV_BOTH(scal, p)                                                  \
    TEV_BOTH(copy, p)                                                  \
    TEV_BOTH(axpy, p)                                                  \
    TEV_BOTH(gemv, p)                                                  \
    TEV_BOTH(gemmger, p)                                               \
    static constexpr std::array mscale = {&tev_blas_##p##gemm_mscale}; \
    __VA_ARGS__                                                        \
  };                                                                   \
  struct p##_entries {                                                 \
    using element = c_element_t<type>;                                 \
    static constexpr auto gemm = tev_blas_x##p##gemm;                  \
    static constexpr auto symm = tev_blas_x##p##symm;                  \
    static constexpr auto trmm = tev_blas_x##p##trmm;                  \
    static constexpr auto trsm = tev_blas_x##p##trsm;                  \
    static constexpr auto syr2k = tev_blas_x##p##syr2k;                \
    static void syrk(auto... x) { tev_blas_x##p##syrk(x..., 0, 0); }   \
    entries                                                            \
  };                                                                   \
  [[maybe_unused]] p##_entries entries_of(type);
#define TEV_COMPLEX_ENTRIES(p)                        \
  static constexpr auto hemm = tev_blas_x##p##hemm;   \
  static constexpr auto her2k = tev_blas_x##p##her2k; \
  static void herk(auto... x) { tev_blas_x##p##herk(x..., 0, 0); }
#define TEV_COMPLEX_CALLS(p) \
  TEV_BOTH(geru, p) TEV_BOTH(gerc, p) static constexpr std::array swap = {&tev_blas_x##p##swap};
TEV_CALLS(float, s, , TEV_BOTH(ger, s))
TEV_CALLS(double, d, , TEV_BOTH(ger, d))
TEV_CALLS(std::complex<float>, c, TEV_COMPLEX_ENTRIES(c), TEV_COMPLEX_CALLS(c))
TEV_CALLS(std::complex<double>, z, TEV_COMPLEX_ENTRIES(z), TEV_COMPLEX_CALLS(z))

template <class T>
auto in(const T* x) {
  return reinterpret_cast<const c_element_t<T>*>(x);
}
template <class T>
auto out(T* x) {
  return reinterpret_cast<c_element_t<T>*>(x);
}

template <class T>
void scal(sample& s) {
  const T alpha = s.scalar<T>();
  const strided<T> x = s.vector<T>(s.size(20000));
  const strided<T> result = x;
  const int64_t n = x.size(), inc = std::abs(*x.inc());
  s.one_of(calls<T>::scal)(&n, in(&alpha), out(result.data()), &inc);
  expect_sum(s, T(0), x, alpha, x, result);
}

template <class T>
void copy(sample& s) {
  const int64_t n = s.size(20000);
  const strided<T> x = s.vector<T>(n), result = s.vector<T>(n, false);
  s.one_of(calls<T>::copy)(&n, x.address(), x.inc(), result.address(), result.inc());
  expect_sum(s, T(0), x, T(1), x, result);
}

template <class T>
void swap(sample& s) {
  const int64_t n = s.size(20000);
  const strided<T> x = s.vector<T>(n), y = s.vector<T>(n), new_x = x, new_y = y;
  s.one_of(calls<T>::swap)(&n, out(new_x.data()), x.inc(), out(new_y.data()), y.inc());
  expect_sum(s, T(0), x, T(1), x, new_y);
  expect_sum(s, T(0), y, T(1), y, new_x);
}

template <class T>
void axpy(sample& s) {
  const int64_t n = s.size(20000);
  const T alpha = s.scalar<T>();
  const strided<T> x = s.vector<T>(n), y = s.vector<T>(n), result = y;
  s.one_of(calls<T>::axpy)(&n, in(&alpha), x.address(), x.inc(), out(result.data()), y.inc());
  expect_sum(s, alpha, x, T(1), y, result);
}

template <class T>
void gemv(sample& s) {
  const char trans = s.letter("NTC");
  const auto [m, n] = s.sizes<2>();
  const bool plain = std::toupper(trans) == 'N';
  const T alpha = s.scalar<T>(), beta = s.scalar<T>();
  const matrix<T> a = s.general<T>(m, n);
  const strided<T> x = s.vector<T>(plain ? n : m), y = s.vector<T>(plain ? m : n, beta != T(0)), result = y;
  const int64_t lda = a.ld();
  s.one_of(calls<T>::gemv)(&trans, &m, &n, in(&alpha), in(a.data()), &lda, x.address(), x.inc(), in(&beta),
                           out(result.data()), y.inc());
  if (m == 0 || n == 0)
    EXPECT_TRUE(result.same_bits(y)) << s.words.str();
  else
    expect_product(s, std::string({trans, 'N'}).c_str(), x.size(), alpha, a, column_of(x), beta, column_of(y),
                   column_of(result));
  EXPECT_TRUE(result.gaps_are_intact()) << s.words.str();
}

// x and y stand as rows, so that a letter conjugates without any other effect.
template <class T>
matrix<T> row_of(const strided<T>& x) {
  matrix<T> row(1, x.size(), 0);
  for (int64_t i = 0; i < x.size(); ++i) row(0, i) = x[i];
  return row;
}

template <class T, const auto& Calls, char LetterY>
void rank_1(sample& s) {
  const auto [m, n] = s.sizes<2>();
  const T alpha = s.scalar<T>();
  const strided<T> x = s.vector<T>(m), y = s.vector<T>(n);
  const matrix<T> a = s.general<T>(m, n), result = a;
  const int64_t lda = a.ld();
  s.one_of(Calls)(&m, &n, in(&alpha), x.address(), x.inc(), y.address(), y.inc(), out(result.data()), &lda);
  const char letters[] = {'N', LetterY, 0};
  expect_product(s, letters, 1, alpha, column_of(x), column_of(y), T(1), a, result);
}

template <class T>
void gemmger(sample& s) {
  const char transa = s.letter("NTC"), transb = s.letter("NTC");
  const auto [m, n] = s.sizes<2>();
  const T alpha = s.scalar<T>(), beta = s.scalar<T>();
  const strided<T> x = s.vector<T>(m), y = s.vector<T>(n);
  const matrix<T> c = s.general<T>(m, n, beta != T(0)), result = c;
  const int64_t ldc = c.ld();
  s.one_of(calls<T>::gemmger)(&transa, &transb, &m, &n, in(&alpha), x.address(), x.inc(), y.address(), y.inc(),
                              in(&beta), out(result.data()), &ldc);
  const auto form = [](char letter) { return std::toupper(letter) == 'C' ? 'C' : 'T'; };
  const char letters[] = {form(transa), form(transb), 0};
  expect_product(s, letters, 1, alpha, row_of(x), column_of(y), beta, c, result);
}

template <class T>
void mscale(sample& s) {
  const auto [m, n] = s.sizes<2>();
  const T beta = s.scalar<T>();
  const matrix<T> c = s.general<T>(m, n, beta != T(0)), result = c;
  const int64_t ldc = c.ld();
  s.one_of(calls<T>::mscale)(&m, &n, in(&beta), out(result.data()), &ldc);
  expect_product(s, "NN", 0, T(0), c, c, beta, c, result);
}

template <class T, operation Op>
void level3(sample& s) {
  const blas_case<T> x = s.level3<T>(Op);
  const matrix<T> result = x.start();
  if (s.below(2) == 0)
    call(x.p, result.data());
  else
    call<T, decltype(entries_of(T()))>(x.p, result.data());
  expect_passed(s, x.p, result);
  EXPECT_TRUE(x.unwritten_is_intact(result)) << s.words.str();
}

struct row {
  const char* name;
  void (*run)(sample&);
};

template <class T>
const std::vector<row>& rows() {
  static const std::vector<row> all = [] {
    std::vector<row> both = {{"scal", scal<T>},
                             {"copy", copy<T>},
                             {"axpy", axpy<T>},
                             {"gemv", gemv<T>},
                             {"gemmger", gemmger<T>},
                             {"mscale", mscale<T>},
                             {"gemm", level3<T, operation::gemm>},
                             {"symm", level3<T, operation::symm>},
                             {"trmm", level3<T, operation::trmm>},
                             {"trsm", level3<T, operation::trsm>},
                             {"syrk", level3<T, operation::syrk>},
                             {"syr2k", level3<T, operation::syr2k>}};
    if constexpr (kIsComplex<T>)
      both.insert(both.end(), {{"swap", swap<T>},
                               {"geru", rank_1<T, calls<T>::geru, 'T'>},
                               {"gerc", rank_1<T, calls<T>::gerc, 'C'>},
                               {"hemm", level3<T, operation::hemm>},
                               {"herk", level3<T, operation::herk>},
                               {"her2k", level3<T, operation::her2k>}});
    else
      both.push_back({"ger", rank_1<T, calls<T>::ger, 'T'>});
    return both;
  }();
  return all;
}

// ---- The runs ------------------------------------------------------------------------------------------------------

using steady = std::chrono::steady_clock;

// One of the rows in one of the precisions, on a team of any size.
template <class... T>
void call_one(sample& s) {
  const std::vector<row>* const precisions[] = {&rows<T>()...};
  const auto precision = static_cast<size_t>(s.below(std::ssize(precisions)));
  const row& chosen = s.one_of(*precisions[precision]);
  const int threads[] = {1, 2, 3, 4, 7};
  const int team = s.one_of(threads);
  omp_set_num_threads(team);
  tev_serv_set_num_threads_local(static_cast<int32_t>(s.below(2) * team));
  s.words << "sdcz"[precision] << chosen.name << ' ' << team << " threads ";
  chosen.run(s);
}

int run_until(steady::time_point end, uint64_t seed) {
  engine random(seed);
  int64_t count = 0;
  for (; steady::now() < end && !testing::Test::HasFailure(); ++count) {
    sample s = {random, random() % 2 ? values::whole : values::fractions, {}};
    call_one<float, double, std::complex<float>, std::complex<double>>(s);
  }
  std::printf("%ld calls\n", static_cast<long>(count));
  return testing::Test::HasFailure();
}

TEST(Differential, EveryRoutineOnEveryTierAgreesWithTheOracle) {
  const struct {
    const char *tier, *code;
  } tiers[] = {{"def", "0"},  {"mc", "2"},         {"mc3", "3"},    {"avx", "4"},
               {"avx2", "5"}, {"avx512_zel", "6"}, {"avx512", "7"}, {"cnr_def", nullptr}};
  const auto end = steady::now() + std::chrono::seconds(long_run() ? 600 : 5);
  int64_t calls = 0;
  for (uint64_t seed = test_seed(); steady::now() < end; ++seed) {
    const auto& [tier, code] = tiers[seed % std::size(tiers)];
    if (!processor_runs(tier)) continue;
    const char* const tools = std::getenv("OMP_TOOL_LIBRARIES");  // what tells the thread sanitizer of OpenMP
    const environment settings = {{code ? "TEV_DEBUG_CPU_TYPE" : "TEV_CBWR", code ? code : "COMPATIBLE"},
                                  {"TEV_DYNAMIC", seed / 8 % 2 ? "TRUE" : "FALSE"},
                                  {"OMP_TOOL_LIBRARIES", tools ? tools : ""}};
    const child_result result = in_child(
        settings, [&] { return run_until(std::min(end, steady::now() + std::chrono::milliseconds(600)), seed); });
    ASSERT_EQ(result.status, 0) << tier << ", " << repeat_with(seed) << '\n' << result.out << result.err;
    calls += std::stol(result.out);
  }
  std::printf("%ld calls, %s\n", static_cast<long>(calls), repeat_with(test_seed()).c_str());
}

}  // namespace
}  // namespace tev::test
