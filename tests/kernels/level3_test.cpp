// SPDX-License-Identifier: BSD-3-Clause
// Level 3 beside gemm of every tier that this processor can run, in all precisions, judged by host/check.h. One table
// has the routines; what they do is in the case that they are called for.
//   Exact     whole numbers: results match bit for bit (not trsm, which divides).
//   Rounding  random operands within the error bound of any order of summation.
//   Memory    unread triangles, unit diagonals and the rows below a matrix are NaN; operands end at an unmapped page.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <string>
#include <vector>

#include "host/check.h"
#include "kernels/operation.h"
#include "kernels/triangle_routines.h"
#include "tests/support/blas_case.h"
#include "tests/support/tier_list.h"

// row(tier, precision, operation, type, name after tev_blas_<tier>_)
#define TEV_REAL_AND_COMPLEX(row, t, p)                                               \
  row(t, p, symm, symm_fn, x##p##symm) row(t, p, trmm, triangular_fn, x##p##trmm)     \
      row(t, p, trsm, triangular_fn, x##p##trsm) row(t, p, syrk, syrk_fn, x##p##syrk) \
          row(t, p, syrk, syrk_fn, p##syrk_nobufs) row(t, p, syr2k, syr2k_fn, x##p##syr2k)
#define TEV_COMPLEX(row, t, p) \
  row(t, p, hemm, symm_fn, x##p##hemm) row(t, p, herk, herk_fn, x##p##herk) row(t, p, her2k, her2k_fn, x##p##her2k)
#define TEV_FRAMEWORK(row, p)                                                                     \
  row(avx2, p, syr2k, syr2k_fn, p##syr2k_nobufs) row(avx512, p, syr2k, syr2k_fn, p##syr2k_nobufs) \
      row(avx512_zel, p, syr2k, syr2k_fn, p##syr2k_nobufs)
#define TEV_HERMITIAN_FRAMEWORK(row, p)                                                                \
  row(avx2, p, herk, herk_fn, p##herk_nobufs) row(avx512, p, herk, herk_fn, p##herk_nobufs)            \
      row(avx512_zel, p, herk, herk_fn, p##herk_nobufs) row(avx2, p, her2k, her2k_fn, p##her2k_nobufs) \
          row(avx512, p, her2k, her2k_fn, p##her2k_nobufs) row(avx512_zel, p, her2k, her2k_fn, p##her2k_nobufs)
#define TEV_ROWS_OF(row, list, p)                                                                                 \
  list(row, def, p) list(row, cnr_def, p) list(row, mc, p) list(row, mc3, p) list(row, avx, p) list(row, avx2, p) \
      list(row, avx512, p) list(row, avx512_zel, p)
#define TEV_REAL_ROWS(row, p) TEV_ROWS_OF(row, TEV_REAL_AND_COMPLEX, p) TEV_FRAMEWORK(row, p)
#define TEV_COMPLEX_ROWS(row, p) TEV_REAL_ROWS(row, p) TEV_ROWS_OF(row, TEV_COMPLEX, p) TEV_HERMITIAN_FRAMEWORK(row, p)

#define TEV_ELEMENT_s float
#define TEV_ELEMENT_d double
#define TEV_ELEMENT_c tev_complex8
#define TEV_ELEMENT_z tev_complex16
#define TEV_DECLARE(tier, p, op, type, name) extern "C" tev::kernels::type<TEV_ELEMENT_##p> tev_blas_##tier##_##name;
TEV_REAL_ROWS(TEV_DECLARE, s)
TEV_REAL_ROWS(TEV_DECLARE, d)
TEV_COMPLEX_ROWS(TEV_DECLARE, c)
TEV_COMPLEX_ROWS(TEV_DECLARE, z)

namespace tev::test {
namespace {

constexpr uint64_t kSeed = 20240229;

template <class T>
auto in(const T* x) {
  return reinterpret_cast<const typename routines<T>::element*>(x);
}

// By the type of the routine; symm and syr2k share one.
template <class T, class E>
void call_routine(kernels::triangular_fn<E>* f, const problem<T>& p, E* out) {
  f(&p.side, &p.uplo, &p.transa, &p.diag, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, out, &p.ldb);
}
template <class T, class E>
void call_routine(kernels::symm_fn<E>* f, const problem<T>& p, E* out) {
  const bool updates = is_rank_k(p.op);
  f(updates ? &p.uplo : &p.side, updates ? &p.transa : &p.uplo, updates ? &p.n : &p.m, updates ? &p.k : &p.n,
    in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta), out, &p.ldc);
}
// C means transposed there, too.
template <class T, class E>
void call_routine(kernels::syrk_fn<E>* f, const problem<T>& p, E* out) {
  const char trans = p.transa == 'T' && p.k % 2 == 1 ? 'C' : p.transa;
  f(&p.uplo, &trans, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(&p.beta), out, &p.ldc, 0, 0);
}
template <class T, class E>
void call_routine(kernels::herk_fn<E>* f, const problem<T>& p, E* out) {
  const auto alpha = p.alpha.real(), beta = p.beta.real();
  f(&p.uplo, &p.transa, &p.n, &p.k, &alpha, in(p.a), &p.lda, &beta, out, &p.ldc, 0, 0);
}
template <class T, class E>
void call_routine(kernels::her2k_fn<E>* f, const problem<T>& p, E* out) {
  const auto beta = p.beta.real();
  f(&p.uplo, &p.transa, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, &beta, out, &p.ldc);
}

template <class T>
struct contestant {
  const char *tier, *name;
  operation op;
  void (*call)(const problem<T>&, typename routines<T>::element*);
};

template <class T>
const std::vector<contestant<T>>& contestants();
#define TEV_ROW(tier, p, op, type, name) \
  {#tier, #name, operation::op,          \
   [](const problem<value>& x, auto* out) { call_routine(tev_blas_##tier##_##name, x, out); }},
#define TEV_TABLE(type, rows, p)                                          \
  template <>                                                             \
  const std::vector<contestant<type>>& contestants() {                    \
    using value = type;                                                   \
    static const std::vector<contestant<type>> kAll = {rows(TEV_ROW, p)}; \
    return kAll;                                                          \
  }
TEV_TABLE(float, TEV_REAL_ROWS, s)
TEV_TABLE(double, TEV_REAL_ROWS, d)
TEV_TABLE(std::complex<float>, TEV_COMPLEX_ROWS, c)
TEV_TABLE(std::complex<double>, TEV_COMPLEX_ROWS, z)

// Around the groups of lines, the strips, the diagonal blocks and the orders at which routes change; empty. The second
// number is the depth of a rank-k update.
constexpr std::array<std::array<int64_t, 2>, 21> kShapes = {
    {{0, 3},  {3, 0},    {1, 1},    {2, 3},    {5, 17},  {17, 5},  {31, 33}, {33, 9},  {63, 2},  {3, 64}, {65, 31},
     {7, 97}, {130, 19}, {19, 161}, {129, 66}, {1, 200}, {11, 40}, {12, 41}, {88, 30}, {89, 37}, {92, 21}}};

// A sweep draws one in so many of its cases, the same for every tier and not for every option.
constexpr uint64_t kOneOf = 9;

std::vector<std::string> options_of(operation op) {
  std::vector<std::string> all;
  for (const char uplo : {'U', 'L'}) {
    if (is_rank_k(op))
      for (const char trans : {'N', is_hermitian(op) ? 'C' : 'T'}) all.push_back({uplo, trans});
    for (const char side : {'L', 'R'}) {
      if (!is_rank_k(op) && !in_place(op)) all.push_back({side, uplo});
      for (const char trans : {'N', 'T', 'C'})
        for (const char diag : {'N', 'U'})
          if (in_place(op)) all.push_back({side, uplo, trans, diag});
    }
  }
  return all;
}

template <class T>
T random_scalar(engine& random, values kind) {
  const auto choice = random() % 5;
  return choice < 2 ? T(static_cast<real_part_t<T>>(choice)) : random_element<T>(random, kind);
}

template <class T>
class TierLevel3 : public testing::Test {
 protected:
  using E = typename routines<T>::element;

  static void expect_solved(const blas_case<T>& x, const matrix<T>& result, values kind) {
    const host::verdict verdict = host::check(x.p, result.data(), 1);
    ASSERT_TRUE(verdict.passed && !(kind == values::whole && verdict.worst > 0)) << x << ": " << verdict.text;
    ASSERT_TRUE(x.unwritten_is_intact(result)) << x;
  }
};

using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(TierLevel3, Elements);

TYPED_TEST(TierLevel3, Routines) {
  using T = TypeParam;
  for (const contestant<T>& r : contestants<T>()) {
    if (!processor_runs(r.tier)) continue;
    SCOPED_TRACE(std::string(r.tier) + ' ' + r.name);
    engine random(kSeed);
    for (std::string options : options_of(r.op))
      for (const auto [m, n] : kShapes) {
        if (random() % kOneOf != 0) continue;
        const values kind = r.op != operation::trsm && random() % 2 == 0 ? values::whole : values::fractions;
        if (random() % 3 == 0)
          for (char& letter : options) letter = static_cast<char>(letter ^ 0x20);
        const T alpha = random_scalar<T>(random, kind), beta = random_scalar<T>(random, kind);
        const int64_t columns = is_rank_k(r.op) ? m : n;
        const blas_case<T> x(problem_of(r.op, options, m, columns, n, alpha, beta), random, kind);
        const matrix<T> result = x.start();
        r.call(x.p, reinterpret_cast<typename routines<T>::element*>(result.data()));
        this->expect_solved(x, result, kind);
        if (testing::Test::HasFatalFailure()) return;
      }
  }
}

}  // namespace
}  // namespace tev::test
