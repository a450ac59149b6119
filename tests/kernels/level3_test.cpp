// SPDX-License-Identifier: BSD-3-Clause
// Level 3 of every tier that this processor can run, in all precisions, judged by host/check.h. One table
// has the routines; what they do is in the case that they are called for.
//   Exact     whole numbers: results match bit for bit (not trsm, which divides).
//   Rounding  random operands within the error bound of any order of summation.
//   Memory    unread triangles, unit diagonals and the rows below a matrix are NaN; operands end at an unmapped page.

#include "host/wide.h"
#include "tests/support/fake_processor.h"
#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"

namespace tev::test {
namespace {

constexpr struct {
  const char* name;
  operation op;
} kRoutines[] = {
    {"x?symm", operation::symm},         {"x?trmm", operation::trmm},       {"x?trsm", operation::trsm},
    {"x?syrk", operation::syrk},         {"?syrk_nobufs", operation::syrk}, {"x?syr2k", operation::syr2k},
    {"?syr2k_nobufs", operation::syr2k}, {"x?hemm", operation::hemm},       {"x?herk", operation::herk},
    {"?herk_nobufs", operation::herk},   {"x?her2k", operation::her2k},     {"?her2k_nobufs", operation::her2k}};

// Around the groups of lines, the strips, the diagonal blocks and the orders at which routes change; empty. The second
// number is the depth of a rank-k update.
constexpr std::array<std::array<int64_t, 2>, 29> kShapes = {
    {{0, 3},   {0, 24},  {3, 0},   {1, 1},   {2, 3},   {8, 4},   {4, 49},    {5, 17},   {17, 5},   {32, 24},
     {31, 33}, {33, 9},  {63, 2},  {3, 64},  {65, 31}, {7, 97},  {130, 19},  {19, 161}, {129, 66}, {1, 200},
     {11, 40}, {12, 41}, {88, 30}, {89, 37}, {92, 21}, {66, 70}, {132, 400}, {371, 18}, {530, 60}}};

// A sweep draws one in so many of its cases, the same for every tier and not for every option.
constexpr uint64_t kOneOf = 9;

template <class T>
class TierLevel3 : public testing::Test {};
TYPED_TEST_SUITE(TierLevel3, Elements);

TYPED_TEST(TierLevel3, Routines) {
  using T = TypeParam;
  for (const auto& r : kRoutines)
    for (const std::string& tier : tiers_with<T>(r.name)) {
      const kernel_calls<T> kernel = {find_kernel(tier, r.name, kLetter<T>)};
      engine random(20240229);
      for (std::string options : options_of<T>(r.op))
        for (const auto [m, n] : kShapes) {
          if (random() % kOneOf != 0) continue;
          const values kind = r.op != operation::trsm && random() % 2 == 0 ? values::whole : values::fractions;
          if (random() % 3 == 0)
            for (char& letter : options) letter = static_cast<char>(letter ^ 0x20);
          const T alpha = random_scalar<T>(random, kind), beta = random_scalar<T>(random, kind);
          const blas_case<T> x(problem_of(r.op, options, m, is_rank_k(r.op) ? m : n, n, alpha, beta), random, kind);
          const matrix<T> result = x.start();
          problem<T> p = x.p;
          if (r.op == operation::syrk && p.transa == 'T' && n % 2 == 1) p.transa = 'C';  // the same there
          call(p, result.data(), kernel);
          ASSERT_TRUE(is_right(x, result, kind == values::whole)) << tier << ' ' << r.name;
        }
    }
}

// Triangles that stay where they lie meet registers of places, full and not, on processors that compute 512-bit ones in
// one piece or in two.
TYPED_TEST(TierLevel3, RegistersInOnePieceOrTwo) {
  using T = TypeParam;
  expect_silent_by_halves([] {
    for (const operation op : {operation::trmm, operation::trsm}) {
      const std::string name = op == operation::trmm ? "x?trmm" : "x?trsm";
      const std::vector<std::string> options = options_of<T>(op);
      engine random(20261124);
      for (const std::string& tier : tiers_with<T>(name)) {
        if (tier != "avx512") continue;
        const kernel_calls<T> kernel = {find_kernel(tier, name, kLetter<T>)};
        for (const int64_t lines : {1, 6, 23})
          for (int64_t places = 1; places <= 52; ++places) {
            const std::string& letters = options[random() % options.size()];
            const bool left = letters[0] == 'L';
            const T alpha = random() % 2 == 0 ? T(1) : T(-2);
            const blas_case<T> x(problem_of(op, letters, left ? lines : places, left ? places : lines, 0, alpha, T(0)),
                                 random, values::fractions);
            const matrix<T> result = x.start();
            call(x.p, result.data(), kernel);
            ASSERT_TRUE(is_right(x, result)) << letters << ' ' << lines << ' ' << places;
          }
      }
    }
  });
}

// Columns of so few rows that several share a register, with gaps between them and without: as many as fit, then half
// as many, down to one.
TYPED_TEST(TierLevel3, ColumnsThatShareRegisters) {
  using T = TypeParam;
  for (const std::string& tier : tiers_with<T>("x?symm")) {
    const kernel_calls<T> kernel = {find_kernel(tier, "x?symm", kLetter<T>)};
    engine random(20261123);
    for (const int64_t m : {2, 4, 8, 16})
      for (const int64_t padding : {int64_t{0}, matrix<T>::kPadding})
        for (const T beta : {T(0), T(-2)}) {
          const blas_case<T> x(problem_of(operation::symm, m % 3 == 1 ? "LU" : "LL", m, 23, 0, T(3), beta), random,
                               values::whole, padding);
          const matrix<T> result = x.start();
          call(x.p, result.data(), kernel);
          ASSERT_TRUE(is_right(x, result, true)) << tier;
        }
  }
}

// Sums over more of A than a second cache holds, of one strip of rows to more rows than any block has.
TYPED_TEST(TierLevel3, DeepRankK) {
  using T = TypeParam;
  engine random(20261125);
  for (const auto& r : kRoutines) {
    const std::vector<std::string> tiers = tiers_with<T>(r.name);
    if (!is_rank_k(r.op) || tiers.empty()) continue;
    for (const int64_t n : {5, 22, 47, 103}) {
      const std::vector<std::string> all = options_of<T>(r.op);
      const std::string& options = all[random() % all.size()];
      const int64_t k = (600 << 10) / static_cast<int64_t>(sizeof(T)) / n;
      const T beta = random() % 2 == 0 ? T(0) : random_scalar<T>(random, values::fractions);
      const blas_case<T> x(problem_of(r.op, options, n, n, k, random_scalar<T>(random, values::fractions), beta),
                           random, values::fractions);
      for (const std::string& tier : tiers) {
        const matrix<T> result = x.start();
        call(x.p, result.data(), kernel_calls<T>{find_kernel(tier, r.name, kLetter<T>)});
        ASSERT_TRUE(is_right(x, result, false)) << tier << ' ' << r.name << ' ' << options << n;
      }
    }
  }
}

// Panels of a rank-2k update whose products are not packed: the last ones, which are shallow, and those of rows that
// clash.
TYPED_TEST(TierLevel3, PanelsOfRank2K) {
  using T = TypeParam;
  engine random(20261126);
  for (const auto& r : kRoutines)
    for (const std::string& options : is_rank_2k(r.op) ? options_of<T>(r.op) : std::vector<std::string>{})
      for (const auto [n, k] : {std::array<int64_t, 2>{48, 515}, {104, 256}, {150, 259}, {100, 390}}) {
        const blas_case<T> x(problem_of(r.op, options, n, n, k, T(-1), T(2)), random, values::whole, k % 2);
        for (const std::string& tier : tiers_with<T>(r.name)) {
          const matrix<T> result = x.start();
          call(x.p, result.data(), kernel_calls<T>{find_kernel(tier, r.name, kLetter<T>)});
          ASSERT_TRUE(is_right(x, result, true)) << tier << ' ' << r.name << ' ' << options << n;
        }
      }
}

// A shallow triangle of more bytes than the caches hold, in whole lines, is written past them.
TYPED_TEST(TierLevel3, RankKPastCaches) {
  using T = TypeParam;
  const auto n = static_cast<int64_t>(std::sqrt((25 << 20) / sizeof(T))) | 1;
  constexpr bool kSingle = sizeof(real_part_t<T>) == 4, kComplex = kIsComplex<T>;
  const operation op =
      kComplex ? (kSingle ? operation::herk : operation::her2k) : (kSingle ? operation::syrk : operation::syr2k);
  const std::string name = kComplex ? (kSingle ? "x?herk" : "x?her2k") : (kSingle ? "x?syrk" : "x?syr2k");
  const std::string options = kComplex ? (kSingle ? "LC" : "UN") : (kSingle ? "UT" : "LN");
  engine random(20261124);
  const blas_case<T> x(problem_of(op, options, n, n, 3, T(2), T(0)), random, values::whole, 16 - n % 16);
  for (const std::string& tier : tiers_with<T>(name)) {
    const matrix<T> result = x.start();
    call(x.p, result.data(), kernel_calls<T>{find_kernel(tier, name, kLetter<T>)});
    ASSERT_TRUE(is_right(x, result, true)) << tier;
  }
}

// Whole numbers times powers of two, one for each line of the equations and some far apart: quotients are exact, but
// reciprocals, and what a line takes of a correction, leave the range.
TYPED_TEST(TierLevel3, SolutionsAtTheEndsOfTheRange) {
  using T = TypeParam;
  using R = real_part_t<T>;
  constexpr int kMost = std::numeric_limits<R>::max_exponent;
  constexpr int kExponents[] = {0, kMost * 3 / 4, -kMost * 3 / 4, kMost - 6, 6 - kMost};
  constexpr int64_t kOrder = 19, kPlaces = 9;
  engine random(19);
  const auto part = [&] { return static_cast<double>(random() % 3) - 1; };
  const auto whole = [&] { return number<T>(part(), part()); };
  for (const std::string& tier : tiers_with<T>("x?trsm"))
    for (const std::string& options : options_of<T>(operation::trsm)) {
      if (options[3] == 'U') continue;
      const bool left = options[0] == 'L', plain = options[2] == 'N';
      const int64_t m = left ? kOrder : kPlaces, n = left ? kPlaces : kOrder;
      blas_case<T> x(problem_of<T>(operation::trsm, options, m, n, 0, 1, 0), random, values::whole);
      matrix<T> solution = x.start(), result = x.start();
      for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < m; ++i) solution(i, j) = whole(), result(i, j) = 0;
      for (int64_t line = 0; line < kOrder; ++line) {
        const R scale = std::ldexp(R(1), kExponents[random() % 5]);
        for (int64_t from = 0; from < kOrder; ++from) {
          const int64_t row = left == plain ? line : from, column = left == plain ? from : line;
          if (row != column && (row < column) != (options[1] == 'U')) continue;
          T& a = x.a(row, column) = (row == column ? number<T>(1, 1) : whole()) * scale;
          const T factor = options[2] == 'C' ? conjugate(a) : a;
          for (int64_t p = 0; p < kPlaces; ++p)
            result(left ? line : p, left ? p : line) += factor * solution(left ? from : p, left ? p : from);
        }
      }
      call(x.p, result.data(), kernel_calls<T>{find_kernel(tier, "x?trsm", kLetter<T>)});
      for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < m; ++i) ASSERT_EQ(result(i, j), solution(i, j)) << tier << ' ' << options;
    }
}

// Products large enough for panels: remainders of every strip width; k about the thresholds and caps of the panels;
// rows beyond the largest block; what NaN and infinity reach; nothing to sum.
TYPED_TEST(TierLevel3, ProductsOfPanels) {
  using T = TypeParam;
  const T alpha = number<T>(2, -1), beta = number<T>(-1, 1), nan = nan_element<T>();
  const struct {
    const char* letters;
    shape s;
    T alpha, beta;
    values kind = values::whole;
    bool is_infinite = false;  // one element of A
  } cases[] = {{"NN", {239, 95, 47}, 1, beta},
               {"NT", {199, 77, 129}, alpha, 0},
               {"TN", {73, 223, 257}, 1, 1},
               {"CT", {209, 81, 385}, alpha, beta},
               {"NC", {75, 211, 193}, 1, 0},
               {"CN", {196, 83, 97}, alpha, 1},
               {"TC", {206, 74, 769}, 1, beta},
               {"NN", {10010, 73, 3}, alpha, 0},
               {"NT", {203, 99, 401}, alpha, beta, values::fractions},
               {"NN", {205, 79, 60}, 1, nan},
               {"NN", {205, 79, 60}, 0, 0},
               {"NN", {205, 79, 60}, 0, 1},
               {"NN", {205, 79, 0}, 1, 0},
               {"NN", {205, 79, 0}, 1, 1},
               {"NN", {205, 79, 60}, 1, 1, values::whole, true}};
  engine random(1009);
  for (const auto& c : cases) {
    blas_case<T> x(problem_of(operation::gemm, c.letters, c.s.m, c.s.n, c.s.k, c.alpha, c.beta), random, c.kind);
    if (c.alpha == T(0)) x.p.a = x.p.b = nullptr;
    if (c.is_infinite) x.a(204, 3) = T(std::numeric_limits<real_part_t<T>>::infinity());
    for (const std::string& tier : tiers_with<T>("x?gemm")) {
      const matrix<T> result = x.start();
      call(x.p, result.data(), kernel_calls<T>{find_kernel(tier, "x?gemm", kLetter<T>)});
      EXPECT_TRUE(is_right(x, result, c.kind == values::whole)) << tier;
    }
  }
}

}  // namespace
}  // namespace tev::test
