// SPDX-License-Identifier: BSD-3-Clause
// Solutions of fixed tiles by name: the triangle packed by trsm_copya_a<A>, one strip of b<B> places solved in place,
// judged by host/check.h.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "host/check.h"
#include "kernels/operation.h"
#include "kernels/triangle_routines.h"
#include "tests/support/blas_case.h"
#include "tests/support/tier_list.h"

namespace tev::test {
namespace {

using namespace tev::kernels;

template <class E>
struct solver {
  const char *tier, *options;  // side, triangle of op(A), diagonal
  int64_t lines, places;       // of a tile
  triangle_copy_fn* copy;
  solve_tile_fn<E>* solve;
};

// TEV_EACH_TILE(row, ...): row(form, side, triangle, A, copy of A, B, ...)
#define TEV_TILES_OF(row, form, s, u, A, copy, ...)                                 \
  row(form, s, u, A, copy, 4, __VA_ARGS__) row(form, s, u, A, copy, 8, __VA_ARGS__) \
      row(form, s, u, A, copy, 16, __VA_ARGS__)
#define TEV_LINES_OF(row, form, s, u, ...)          \
  TEV_TILES_OF(row, form, s, u, 2, a2, __VA_ARGS__) \
  TEV_TILES_OF(row, form, s, u, 4, a4_rf, __VA_ARGS__) TEV_TILES_OF(row, form, s, u, 8, a8, __VA_ARGS__)
#define TEV_EACH_TILE(row, ...)                \
  TEV_LINES_OF(row, ll, "L", "L", __VA_ARGS__) \
  TEV_LINES_OF(row, lu, "L", "U", __VA_ARGS__) \
  TEV_LINES_OF(row, rl, "R", "L", __VA_ARGS__) TEV_LINES_OF(row, ru, "R", "U", __VA_ARGS__)
#define TEV_DECLARE(form, s, u, A, copy, B, tier, p, T)                              \
  extern "C" solve_tile_fn<T> tev_blas_##tier##_##p##trsm_ker_##form##n_a##A##_b##B, \
      tev_blas_##tier##_##p##trsm_ker_##form##u_a##A##_b##B;                         \
  extern "C" triangle_copy_fn tev_blas_##tier##_##p##trsm_copya_##copy;
#define TEV_ROW(form, s, u, A, copy, B, tier, p, T)        \
  {#tier,                                                  \
   s u "N",                                                \
   A,                                                      \
   B,                                                      \
   tev_blas_##tier##_##p##trsm_copya_##copy,               \
   tev_blas_##tier##_##p##trsm_ker_##form##n_a##A##_b##B}, \
      {#tier,                                              \
       s u "U",                                            \
       A,                                                  \
       B,                                                  \
       tev_blas_##tier##_##p##trsm_copya_##copy,           \
       tev_blas_##tier##_##p##trsm_ker_##form##u_a##A##_b##B},
template <class T>
std::vector<solver<typename routines<T>::element>> solvers();
template <class T>
has_denormal_fn<typename routines<T>::element>* const has_denormal = nullptr;
#define TEV_PRECISION(p, value, E)                                                 \
  TEV_EACH_TILE(TEV_DECLARE, avx, p, E)                                            \
  TEV_EACH_TILE(TEV_DECLARE, avx2, p, E)                                           \
  template <>                                                                      \
  std::vector<solver<E>> solvers<value>() {                                        \
    return {TEV_EACH_TILE(TEV_ROW, avx, p, E) TEV_EACH_TILE(TEV_ROW, avx2, p, E)}; \
  }                                                                                \
  extern "C" has_denormal_fn<E> tev_blas_def_##p##trsm_has_denormal;               \
  template <>                                                                      \
  has_denormal_fn<E>* const has_denormal<value> = tev_blas_def_##p##trsm_has_denormal;
TEV_PRECISION(s, float, float)
TEV_PRECISION(d, double, double)
TEV_PRECISION(c, std::complex<float>, tev_complex8)
TEV_PRECISION(z, std::complex<double>, tev_complex16)

template <class T>
auto in(const T* x) {
  return reinterpret_cast<const typename routines<T>::element*>(x);
}

template <class T>
class TrsmTiles : public testing::Test {};
using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(TrsmTiles, Elements);

TYPED_TEST(TrsmTiles, Solve) {
  using T = TypeParam;
  engine random(20251122);
  for (const auto& s : solvers<T>()) {
    if (!processor_runs(s.tier)) continue;
    const char trans = "NTC"[random() % 3];
    const bool left = s.options[0] == 'L', upper = s.options[1] == 'U';
    const char stored = upper == (trans == 'N') ? 'U' : 'L';
    const int64_t n = 1 + static_cast<int64_t>(random() % 21), lines = (n + s.lines - 1) / s.lines * s.lines;
    const blas_case<T> x(problem_of<T>(operation::trsm, {s.options[0], stored, trans, s.options[2]},
                                       left ? n : s.places, left ? s.places : n, 0, 1, 0),
                         random, values::fractions);
    operand triangle = make_operand(transposition_code(trans), x.p.a, n, n, x.p.lda);
    triangle.element_size = sizeof(T);
    triangle.copy_mode |= triangle_bit(stored);
    // Generous: every number of the square, the head and four numbers for each divisor.
    std::vector<T> panel(static_cast<size_t>(lines * (lines + 16) + 64));
    packed to = {panel.data(), 0, 0};
    s.copy(s.options, &triangle, &to);
    guarded_array<T> strip(lines * s.places);
    matrix<T> result = x.start();
    const auto at = [&](int64_t line, int64_t place) -> T& { return left ? result(line, place) : result(place, line); };
    for (int64_t i = 0; i < lines * s.places; ++i)
      strip.data()[i] = i < n * s.places ? at(i / s.places, i % s.places) : T(0);
    s.solve(in(panel.data()), reinterpret_cast<typename routines<T>::element*>(strip.data()));
    for (int64_t i = 0; i < n * s.places; ++i) at(i / s.places, i % s.places) = strip.data()[i];
    const host::verdict verdict = host::check(x.p, result.data(), 1);
    ASSERT_TRUE(verdict.passed) << s.tier << ' ' << s.lines << " lines " << x << ": " << verdict.text;
  }
}

TYPED_TEST(TrsmTiles, DenormalsOnTheDiagonal) {
  using T = TypeParam;
  matrix<T> a(3, 3);
  engine random(1);
  a.fill(random, values::whole);
  a(0, 0) = T(0), a(1, 0) = std::numeric_limits<real_part_t<T>>::denorm_min();
  const int64_t n = 3, lda = a.ld();
  const auto answer = [&] { return has_denormal<T>(&n, in(a.data()), &lda); };
  EXPECT_EQ(answer(), 0);
  a(2, 2) = -std::numeric_limits<real_part_t<T>>::min() / 2;
  EXPECT_EQ(answer(), 1);
}

}  // namespace
}  // namespace tev::test
