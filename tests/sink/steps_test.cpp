// SPDX-License-Identifier: BSD-3-Clause
// The LAPACK workers of the real sink, called as a foreign host would: records written byte by byte.
//   Steps     one call of the routine, and only for the right parameter and count of buffers
//   LuStep    interchanges, solve, update by the guards, whatever the parameter and the count are
#include <algorithm>
#include <array>

#include "host/check.h"
#include "tests/sink/foreign_host.h"
#include "tests/support/strided.h"
#include "tev/lapack.h"

namespace {

using tev::host::operation;
using tev::host::problem;
using tev::test::c_element_t;

constexpr size_t kScalarsAt = kRecordAt + 128;

template <class T>
constexpr uint32_t kStepBytes = 128 + 16 * sizeof(T);

template <class T>
request_bytes step_request(const char* name, const std::string& letters, const std::vector<int64_t>& numbers) {
  request_bytes block = invoke_request(std::string("tev_lapack_") + kLetter<T> + name + "_worker");
  put(block, 4, kStepBytes<T>);
  size_t at = kRecordAt;
  for (const char letter : letters) put(block, at, letter), at += 8;
  for (const int64_t number : numbers) put(block, at, number), at += 8;
  return block;
}

template <class T>
using Host = foreign_host<T, 8, size_t{1} << 23>;

template <class T>
class Steps : public Host<T> {
 protected:
  // What is not the worker's changes nothing; then the request itself.
  void expect_only(request_bytes block, uint32_t buffers, int result, size_t elements) {
    const std::vector<T> before = this->contents(result, elements);
    const auto is_as_before = [&] {
      return std::memcmp(before.data(), this->matrix(result), elements * sizeof(T)) == 0;
    };
    for (const uint32_t other : {0u, 192u, 255u, 256u, 257u, 384u}) {
      if (other == kStepBytes<T>) continue;
      put(block, 4, other);
      this->send(block, buffers);
      EXPECT_TRUE(is_as_before()) << "parameter " << other;
    }
    put(block, 4, kStepBytes<T>);
    for (const uint32_t other : {buffers - 1, buffers + 1, 8u}) {
      this->send(block, other);
      EXPECT_TRUE(is_as_before()) << other << " buffers";
    }
    this->send(block, buffers);
  }

  void run(problem<T> p) {
    const bool gemm = p.op == operation::gemm, trsm = p.op == operation::trsm, plain = p.transa == 'N';
    const int64_t order = p.side == 'L' ? p.m : p.n;
    p.lda = (trsm ? order : !plain ? p.k : gemm ? p.m : p.n) + 2;
    p.ldb = (gemm ? (p.transb == 'N' ? p.k : p.n) : p.m) + 1;
    p.ldc = (gemm ? p.m : p.n) + 3;
    const int result = gemm ? 2 : 1;
    const int64_t ld = trsm ? p.ldb : p.ldc, columns = p.n;
    const auto elements = static_cast<size_t>((std::max({p.m, p.n, p.k}) + 3) * (std::max({p.m, p.n, p.k}) + 3));
    ASSERT_LE(elements, this->kElements);
    for (int i = 0; i <= result; ++i) this->fill(i, elements);
    for (int64_t i = 0; trsm && i < order; ++i) this->matrix(0)[i + i * p.lda] += T(8);
    const std::vector<T> before = this->contents(result, elements);
    p.a = this->matrix(0);
    p.b = gemm ? this->matrix(1) : before.data();
    p.c = before.data();

    request_bytes block = gemm   ? step_request<T>("gemm", {p.transa, p.transb}, {p.m, p.n, p.k, p.lda, p.ldb, p.ldc})
                          : trsm ? step_request<T>("trsm", {p.side, p.uplo, p.transa, p.diag}, {p.m, p.n, p.lda, p.ldb})
                                 : step_request<T>("syrk", {p.uplo, p.transa}, {p.n, p.k, p.lda, p.ldc});
    put(block, kScalarsAt, p.alpha);
    if (!trsm) put(block, kScalarsAt + sizeof(T), p.beta);
    expect_only(block, result + 1, result, elements);
    const tev::host::verdict judged = tev::host::check(p, this->matrix(result), 1);
    EXPECT_TRUE(judged.passed) << (gemm   ? "gemm "
                                   : trsm ? "trsm "
                                          : "syrk ")
                               << p.transa << p.uplo << ": " << judged.text;
    for (size_t e = 0; e < elements; ++e) {
      const int64_t i = static_cast<int64_t>(e) % ld, j = static_cast<int64_t>(e) / ld;
      const bool inside = p.op == operation::syrk ? (p.uplo == 'U' ? i <= j : i >= j && i < p.n) : i < p.m;
      if (!inside || j >= columns) ASSERT_EQ(std::memcmp(&before[e], this->matrix(result) + e, sizeof(T)), 0);
    }
  }

  T scalar() { return random_value<T>(this->random_); }
};
TYPED_TEST_SUITE(Steps, precisions);

TYPED_TEST(Steps, CallTheirRoutine) {
  using T = TypeParam;
  this->run({.op = operation::gemm,
             .transa = 'T',
             .transb = 'N',
             .m = 17,
             .n = 9,
             .k = 31,
             .alpha = this->scalar(),
             .beta = this->scalar()});
  this->run({.op = operation::trsm,
             .transa = 'T',
             .side = 'R',
             .uplo = 'L',
             .diag = 'N',
             .m = 9,
             .n = 17,
             .alpha = this->scalar()});
  for (const char uplo : {'U', 'L'})
    for (const int64_t n : {19, 450})  // alone, and over the team
      this->run({.op = operation::syrk,
                 .transa = uplo == 'U' ? 'N' : 'T',
                 .uplo = uplo,
                 .n = n,
                 .k = 23,
                 .alpha = this->scalar(),
                 .beta = T(uplo == 'U' ? 0 : 1) * this->scalar()});
}

#define TEV_LARFB(T, p) \
  [[maybe_unused]] constexpr auto larfb_of(T) { return tev_lapack_##p##larfb; }
TEV_LARFB(float, s)
TEV_LARFB(double, d)
TEV_LARFB(std::complex<float>, c)
TEV_LARFB(std::complex<double>, z)

TYPED_TEST(Steps, LarfbIsTheRoutineOfTheLibrary) {
  using T = TypeParam;
  const int64_t m = 21, n = 13, k = 6, ldv = 24, ldt = 7, ldc = 22, ldwork = 15;
  for (int i = 0; i < 4; ++i) this->fill(i, 600);
  std::vector<T> expected = this->contents(2, 600), work(600);
  const auto in = [](T* x) { return reinterpret_cast<c_element_t<T>*>(x); };
  larfb_of(T())("L", "C", "B", "C", &m, &n, &k, in(this->matrix(0)), &ldv, in(this->matrix(1)), &ldt,
                in(expected.data()), &ldc, in(work.data()), &ldwork, 1, 1, 1, 1);
  this->expect_only(step_request<T>("larfb", "LCBC", {m, n, k, ldv, ldt, ldc, ldwork}), 4, 2, 600);
  EXPECT_EQ(this->contents(2, 600), expected);
}

template <class T>
class LuStep : public Host<T> {};
TYPED_TEST_SUITE(LuStep, precisions);

TYPED_TEST(LuStep, InterchangesSolvesAndUpdatesByItsGuards) {
  using T = TypeParam;
  constexpr int64_t kColumns = 7, kOrder = 5, kSolved = 6, kM = 9, kN = 8, kK = 4;
  constexpr int64_t kLd[] = {14, 0, 6, 8, 11, 5, 10};
  constexpr size_t kUsed = 14 * 9;
  const int64_t pivots[] = {99, 3, 12, 4, 5, 99};  // of the rows 2 to 5
  for (const auto& [first, second, buffers] : {std::array<int64_t, 3>{1, 2, 7}, {2, 2, 8}, {3, 2, 4}}) {
    for (const int i : {0, 2, 3, 4, 5, 6}) this->fill(i, kUsed);
    std::memcpy(this->matrix(1), pivots, sizeof(pivots));
    std::vector<T> swapped = this->contents(0, kUsed);
    for (int64_t row = 1; row < 5; ++row)
      for (int64_t j = 0; j < kColumns; ++j)
        std::swap(swapped[row + j * kLd[0]], swapped[pivots[row] - 1 + j * kLd[0]]);
    const std::vector<T> right = this->contents(3, kUsed), c = this->contents(6, kUsed);

    request_bytes block = step_request<T>(
        "getrf", "",
        {kN, kM, kK, kLd[4], kLd[5], kLd[6], kOrder, kSolved, kLd[2], kLd[3], kColumns, kLd[0], 2, 5, first, second});
    put(block, 4, uint32_t{77});
    this->send(block, static_cast<uint32_t>(buffers));

    EXPECT_EQ(this->contents(0, kUsed), swapped);
    const problem<T> solve = {.op = operation::trsm,
                              .transa = 'N',
                              .side = 'L',
                              .uplo = 'L',
                              .diag = 'U',
                              .m = kOrder,
                              .n = kSolved,
                              .alpha = T(1),
                              .a = this->matrix(2),
                              .lda = kLd[2],
                              .b = right.data(),
                              .ldb = kLd[3]};
    EXPECT_TRUE(check(solve, this->matrix(3), 1).passed) << check(solve, this->matrix(3), 1).text;
    if (first >= second) {
      EXPECT_EQ(this->contents(6, kUsed), c) << first << ' ' << second;
      continue;
    }
    const problem<T> update = {
        operation::gemm, 'N',    'N',      'L',   'U', 'N', kM, kN, kK, T(-1), T(1), this->matrix(4), kLd[4],
        this->matrix(5), kLd[5], c.data(), kLd[6]};
    EXPECT_TRUE(check(update, this->matrix(6), 1).passed) << check(update, this->matrix(6), 1).text;
  }
}

}  // namespace
