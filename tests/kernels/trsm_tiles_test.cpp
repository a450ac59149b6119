// SPDX-License-Identifier: BSD-3-Clause
// Solutions of fixed tiles by name: the triangle packed by trsm_copya_a<A>, one strip of b<B> places solved in place,
// judged by host/check.h.

#include "kernels/operation.h"
#include "kernels/triangle_routines.h"
#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"

namespace tev::test {
namespace {

using namespace tev::kernels;

template <class T>
class TrsmTiles : public testing::Test {
 protected:
  using E = c_element_t<T>;

  // form: side, triangle of op(A), diagonal, as options and, in small letters, in the name.
  static void solve(const std::string& tier, const std::string& options, int64_t tile_lines, int64_t places,
                    engine& random) {
    const std::string copy_name = "?trsm_copya_a" + std::to_string(tile_lines) + (tile_lines == 4 ? "_rf" : "");
    std::string name = options;
    for (char& letter : name) letter = static_cast<char>(std::tolower(letter));
    name = "?trsm_ker_" + name + "_a" + std::to_string(tile_lines) + "_b" + std::to_string(places);
    triangle_copy_fn* const copy = find_kernel(tier, copy_name, kLetter<T>);
    solve_tile_fn<E>* const solve_tile = find_kernel(tier, name, kLetter<T>);
    ASSERT_TRUE(copy != nullptr && solve_tile != nullptr) << tier << name;

    const char trans = "NTC"[random() % 3];
    const bool left = options[0] == 'L', upper = options[1] == 'U';
    const char stored = upper == (trans == 'N') ? 'U' : 'L';
    const int64_t n = 1 + static_cast<int64_t>(random() % 21), lines = (n + tile_lines - 1) / tile_lines * tile_lines;
    const blas_case<T> x(problem_of<T>(operation::trsm, {options[0], stored, trans, options[2]}, left ? n : places,
                                       left ? places : n, 0, 1, 0),
                         random, values::fractions);
    operand triangle = make_operand(transposition_code(trans), x.p.a, n, n, x.p.lda);
    triangle.element_size = sizeof(T);
    triangle.copy_mode |= triangle_bit(stored);
    // Generous: every number of the square, the head and four numbers for each divisor.
    std::vector<T> panel(static_cast<size_t>(lines * (lines + 16) + 64));
    packed to = {panel.data(), 0, 0};
    copy(options.c_str(), &triangle, &to);
    guarded_array<T> strip(lines * places);
    const matrix<T> result = x.start();
    const auto at = [&](int64_t line, int64_t place) -> T& { return left ? result(line, place) : result(place, line); };
    for (int64_t i = 0; i < lines * places; ++i) strip.data()[i] = i < n * places ? at(i / places, i % places) : T(0);
    solve_tile(out(panel.data()), out(strip.data()));
    for (int64_t i = 0; i < n * places; ++i) at(i / places, i % places) = strip.data()[i];
    ASSERT_TRUE(is_right(x, result)) << tier << name;
  }
};
TYPED_TEST_SUITE(TrsmTiles, Elements);

TYPED_TEST(TrsmTiles, Solve) {
  engine random(20251122);
  for (const std::string tier : {"avx", "avx2"})
    for (const char* options : {"LLN", "LLU", "LUN", "LUU", "RLN", "RLU", "RUN", "RUU"})
      for (const int64_t lines : {2, 4, 8})
        for (const int64_t places : {4, 8, 16})
          if (processor_runs(tier)) this->solve(tier, options, lines, places, random);
}

TYPED_TEST(TrsmTiles, DenormalsOnTheDiagonal) {
  using T = TypeParam;
  has_denormal_fn<c_element_t<T>>* const has_denormal = find_kernel("def", "?trsm_has_denormal", kLetter<T>);
  matrix<T> a(3, 3);
  engine random(1);
  a.fill(random, values::whole);
  a(0, 0) = T(0), a(1, 0) = std::numeric_limits<real_part_t<T>>::denorm_min();
  const int64_t n = 3, lda = a.ld();
  const auto answer = [&] { return has_denormal(&n, at(a), &lda); };
  EXPECT_EQ(answer(), 0);
  a(2, 2) = -std::numeric_limits<real_part_t<T>>::min() / 2;
  EXPECT_EQ(answer(), 1);
}

}  // namespace
}  // namespace tev::test
