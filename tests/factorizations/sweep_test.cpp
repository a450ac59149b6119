// SPDX-License-Identifier: BSD-3-Clause
// ?lasr of every tier beside two lines at a time, with whole numbers: results match exactly.
#include <string>
#include <vector>

#include "tests/factorizations/factored.h"
#include "tests/support/each_tier.h"
#include "tev/lapack.h"

namespace tev::test {
namespace {

template <class T>
struct calls_of;
#define TEV_CALLS_OF(T, p)                             \
  template <>                                          \
  struct calls_of<T> {                                 \
    static constexpr auto lasr = tev_lapack_##p##lasr; \
  };
TEV_CALLS_OF(float, s)
TEV_CALLS_OF(double, d)
TEV_CALLS_OF(std::complex<float>, c)
TEV_CALLS_OF(std::complex<double>, z)

template <class T>
void lasr(const std::string& letters, const std::vector<real_part_t<T>>& c, const std::vector<real_part_t<T>>& s,
          const matrix<T>& a) {
  const int64_t m = a.rows(), n = a.columns(), lda = a.ld();
  calls_of<T>::lasr(&letters[0], &letters[1], &letters[2], &m, &n, c.data(), s.data(), at(a), &lda);
}

template <class T>
void two_lines_at_a_time(const std::string& letters, const std::vector<real_part_t<T>>& c,
                         const std::vector<real_part_t<T>>& s, const matrix<T>& a) {
  const bool of_rows = letters[0] == 'L';
  const int64_t last = (of_rows ? a.rows() : a.columns()) - 1, across = of_rows ? a.columns() : a.rows();
  const auto element = [&](int64_t line, int64_t k) -> T& { return of_rows ? a(line, k) : a(k, line); };
  for (int64_t step = 0; step < last; ++step) {
    const int64_t i = letters[2] == 'F' ? step : last - 1 - step;
    if (c[i] == 1 && s[i] == 0) continue;
    for (int64_t k = 0; k < across; ++k) {
      T &x = element(letters[1] == 'T' ? 0 : i, k), &y = element(letters[1] == 'B' ? last : i + 1, k);
      const T old = x;
      x = c[i] * old + s[i] * y, y = c[i] * y - s[i] * old;
    }
  }
}

// Factors 0 and 1 of either sign: what is carried along a sweep grows by the length at most.
template <class T>
void examine(int64_t m, int64_t n) {
  using R = real_part_t<T>;
  engine random(test_seed());
  std::uniform_int_distribution<int> sign(-1, 1);
  for (const char* const letters : {"LVF", "LVB", "LTF", "LTB", "LBF", "LBB", "RVF", "RVB", "RTF", "RTB", "RBF", "RBB"})
    for (const bool infinite : {false, true}) {
      std::vector<R> c(std::max(m, n)), s(c.size());
      for (size_t i = 0; i < c.size(); ++i) {
        c[i] = infinite ? R(1) : static_cast<R>(sign(random));
        s[i] = infinite ? R(0) : static_cast<R>(sign(random));
      }
      matrix<T> a = random_matrix<T>(m, n, random, values::whole), expected = a;
      if (infinite) a(m / 2, n / 2) = expected(m / 2, n / 2) = std::numeric_limits<R>::infinity();
      two_lines_at_a_time(letters, c, s, expected);
      lasr(letters, c, s, a);
      ASSERT_TRUE(a.padding_is_intact()) << letters << " " << m << " x " << n;
      for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < m; ++i)
          ASSERT_EQ(a(i, j), expected(i, j)) << letters << " " << m << " x " << n << " at " << i << " " << j;
    }
}

template <class T>
void examine_all() {
  SCOPED_TRACE(sizeof(T));
  constexpr int64_t kSizes[][2] = {{1, 1},  {1, 5},  {2, 2},   {3, 8},   {8, 3},   {9, 9},
                                   {17, 7}, {5, 33}, {65, 16}, {33, 40}, {130, 9}, {300, 131}};  // the last over a team
  for (const auto& [m, n] : kSizes) examine<T>(m, n);
}

TEST(Sweep, GivesWhatTwoLinesAtATimeGive) {
  on_each_tier({{"TEV_NUM_THREADS", "2"}, {"TEV_DYNAMIC", "FALSE"}}, [](const tier_in_force&) {
    examine_all<float>();
    examine_all<double>();
    examine_all<std::complex<float>>();
    examine_all<std::complex<double>>();
    return 0;
  });
}

}  // namespace
}  // namespace tev::test
