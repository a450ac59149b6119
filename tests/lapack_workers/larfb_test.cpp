// SPDX-License-Identifier: BSD-3-Clause
// ?larfb in all forms against H applied in the next wider type. All that must not be read is NaN: V outside its
// trapezoid and on the unit diagonal, the other triangle of T, the work array; operands end at an unmapped page.

#include "tests/support/precision.h"
#include "tests/support/wide.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace tev::test {
namespace {

struct shape {
  int64_t m, n, k;
  int threads;
};
// Nothing to do, V a triangle only, one reflector, around tiles, over teams.
constexpr shape kShapes[] = {{0, 3, 0, 2},    {3, 0, 0, 2},     {4, 5, 0, 2},   {1, 1, 1, 2},
                             {5, 1, 5, 2},    {7, 7, 7, 1},     {9, 12, 1, 1},  {17, 8, 5, 2},
                             {31, 33, 16, 2}, {110, 60, 40, 2}, {70, 90, 33, 3}};

template <class T>
struct larfb_case {
  larfb_case(const std::string& letters, const shape& s, engine& random)
      : options(letters),
        x(s),
        length(left() ? s.m : s.n),
        v(by_rows() ? s.k : length, by_rows() ? length : s.k),
        t(s.k, s.k),
        c(s.m, s.n),
        work(left() ? s.n : s.m, s.k),
        wide_v(length, s.k),
        wide_t_(s.k, s.k) {
    c.fill(random, values::fractions);
    for (int64_t j = 0; j < s.k; ++j) {
      for (int64_t i = 0; i < length; ++i) {
        const int64_t below = forward() ? i - j : length - s.k + j - i;  // the diagonal, in the order of a reflector
        if (below > 0) {
          const T value = random_element<T>(random, values::fractions);
          (by_rows() ? v(j, i) : v(i, j)) = value;
          wide_v(i, j) = by_rows() ? conjugate(value) : value;
        } else {
          wide_v(i, j) = below == 0;
        }
      }
      for (int64_t i = 0; i < s.k; ++i)
        if (forward() ? i <= j : i >= j) wide_t_(i, j) = t(i, j) = random_element<T>(random, values::fractions);
    }
  }

  bool left() const { return std::toupper(options[0]) == 'L'; }
  bool transposed() const { return std::toupper(options[1]) != 'N'; }
  bool forward() const { return std::toupper(options[2]) == 'F'; }
  bool by_rows() const { return std::toupper(options[3]) == 'R'; }

  void run() {
    // Of one column no leading dimension matters, however large.
    constexpr int64_t kHuge = INT64_MAX / sizeof(T);
    const int64_t ldv = (by_rows() ? length : x.k) == 1 ? kHuge : v.ld(), ldt = x.k == 1 ? kHuge : t.ld();
    const int64_t ldc = x.n == 1 ? kHuge : c.ld(), ldwork = x.k == 1 ? kHuge : work.ld();
    TEV_LAPACK(larfb)
    (&options[0], &options[1], &options[2], &options[3], &x.m, &x.n, &x.k, at(v), &ldv, at(t), &ldt, at(c), &ldc,
     at(work), &ldwork, 1, 1, 1, 1);
  }

  // C - V op(T) V^H C from the left; from the right the same with everything transposed and conjugated.
  template <class W>
  static wide_matrix<W> product(const larfb_case& y, const wide_matrix<W>& h_v, const wide_matrix<W>& h_t,
                                const wide_matrix<W>& start) {
    const wide_matrix<W> turned = y.transposed() == y.left() ? adjoint(h_t) : h_t;
    return y.left() ? h_v * (turned * (adjoint(h_v) * start))
                    : adjoint(h_v * (turned * (adjoint(h_v) * adjoint(start))));
  }

  void run_and_judge() {
    const wide_matrix<wide_t<T>> start = widened(c), change = product(*this, wide_v, wide_t_, start);
    const auto size = product(*this, moduli(wide_v), moduli(wide_t_), moduli(start));
    run();
    // The sums are of length, k and k terms, and there is the subtraction.
    const double bound = rounding_bound<T>(length + 2 * x.k + 2);
    for (int64_t j = 0; j < x.n; ++j)
      for (int64_t i = 0; i < x.m; ++i) {
        const auto error = std::abs(wide_t<T>(c(i, j)) - (start(i, j) - change(i, j)));
        ASSERT_TRUE(error <= bound * (std::abs(start(i, j)) + size(i, j)))
            << options << ' ' << x.m << 'x' << x.n << 'x' << x.k << " at " << i << ", " << j << ": " << c(i, j);
      }
    ASSERT_TRUE(c.padding_is_intact() && work.padding_is_intact()) << options;
  }

  std::string options;
  shape x;
  int64_t length;
  matrix<T> v, t, c, work;
  wide_matrix<wide_t<T>> wide_v, wide_t_;
};

template <class T>
class Larfb : public testing::Test {};
TYPED_TEST_SUITE(Larfb, Elements);

TYPED_TEST(Larfb, EveryFormAppliesTheBlockReflector) {
  engine random(71);
  for (const shape& s : kShapes) {
    const int32_t before = tev_serv_set_num_threads_local(s.threads);
    for (const char side : {'L', 'r'})
      for (const char trans : {'n', 'C', 'x'})
        for (const char direct : {'F', 'b'})
          for (const char storev : {'c', 'R'}) {
            if (s.k > (side == 'L' ? s.m : s.n)) continue;
            larfb_case<TypeParam>({side, trans, direct, storev}, s, random).run_and_judge();
          }
    tev_serv_set_num_threads_local(before);
  }
}

}  // namespace
}  // namespace tev::test
