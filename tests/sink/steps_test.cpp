// SPDX-License-Identifier: BSD-3-Clause
// The LAPACK workers of the real sink, called as a foreign host would: records written byte by byte.
//   Steps     one call of the routine, and only for the right parameter and count of buffers
//   LuStep    interchanges, solve, update by the guards, whatever the parameter and the count are

#include "host/check.h"
#include "tests/support/blas_case.h"
#include "tests/support/precision.h"
#include "tests/support/sink.h"
#include "tev/lapack.h"

namespace tev::test {
namespace {

using request_bytes = std::vector<unsigned char>;

constexpr size_t kRecordAt = 264, kScalarsAt = kRecordAt + 128, kBytes = size_t{1} << 23;

template <class V>
void put(request_bytes& block, size_t offset, const V& value) {
  std::memcpy(block.data() + offset, &value, sizeof(value));
}

template <class T>
constexpr uint32_t kStepBytes = 128 + 16 * sizeof(T);

// What a worker must not read is not zero.
template <class T>
request_bytes step_request(const std::string& name, const std::string& letters, const std::vector<int64_t>& numbers) {
  const std::string worker = std::string("tev_lapack_") + *of_precision<T>("s", "d", "c", "z") + name + "_worker";
  request_bytes block(32320, 0xee);
  std::memset(block.data() + 30264, 0, 1016);
  put(block, 0, uint32_t{1});
  put(block, 4, kStepBytes<T>);
  std::memcpy(block.data() + 8, worker.c_str(), worker.size() + 1);
  put(block, 31280, int32_t{1});
  put(block, 32316, int32_t{0});
  size_t at = kRecordAt;
  for (const char letter : letters) put(block, at, letter), at += 8;
  for (const int64_t number : numbers) put(block, at, number), at += 8;
  return block;
}

// A sink with eight buffers.
template <class T>
class Host : public testing::Test {
 protected:
  void SetUp() override {
    process_ = start_sink();
    ASSERT_NE(process_, nullptr) << vro_last_error();
    for (vro_buffer*& buffer : buffers_)
      ASSERT_EQ(vro_buffer_create(process_, kBytes, &buffer), VRO_OK) << vro_last_error();
  }
  void TearDown() override { EXPECT_EQ(vro_process_shutdown(process_, 10000), VRO_OK) << vro_last_error(); }

  T* matrix(int i) { return static_cast<T*>(vro_buffer_map(buffers_[static_cast<size_t>(i)])); }
  std::vector<T> contents(int i, size_t elements) { return {matrix(i), matrix(i) + elements}; }
  void fill(int i, size_t elements) {
    for (size_t e = 0; e < elements; ++e) matrix(i)[e] = scalar();
  }
  T scalar() { return random_element<T>(random_, values::fractions); }

  void serve(const request_bytes& block, int64_t buffers) {
    vro_completion* const done = send(process_, block.data(), {buffers_.begin(), buffers_.begin() + buffers});
    ASSERT_EQ(vro_completion_wait(done, 60000), VRO_OK) << vro_last_error();
    vro_completion_release(done);
  }

  vro_process* process_ = nullptr;
  std::array<vro_buffer*, 8> buffers_ = {};
  engine random_{20260407};
};

template <class T>
class Steps : public Host<T> {
 protected:
  // What is not the worker's changes nothing; then the request itself.
  void expect_only(request_bytes block, int buffers, int result, size_t elements) {
    const std::vector<T> before = this->contents(result, elements);
    const auto is_as_before = [&] {
      return std::memcmp(before.data(), this->matrix(result), elements * sizeof(T)) == 0;
    };
    for (const uint32_t other : {0u, 192u, 255u, 256u, 257u, 384u}) {
      if (other == kStepBytes<T>) continue;
      put(block, 4, other);
      this->serve(block, buffers);
      EXPECT_TRUE(is_as_before()) << "parameter " << other;
    }
    put(block, 4, kStepBytes<T>);
    for (const int other : {buffers - 1, buffers + 1, 8}) {
      this->serve(block, other);
      EXPECT_TRUE(is_as_before()) << other << " buffers";
    }
    this->serve(block, buffers);
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
    ASSERT_LE(elements * sizeof(T), kBytes);
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
    const host::verdict judged = host::check(p, this->matrix(result), 1);
    EXPECT_TRUE(judged.passed) << host::name_of(p.op) << ' ' << p.transa << p.uplo << ": " << judged.text;
    for (size_t e = 0; e < elements; ++e) {
      const int64_t i = static_cast<int64_t>(e) % ld, j = static_cast<int64_t>(e) / ld;
      const bool inside = p.op == operation::syrk ? (p.uplo == 'U' ? i <= j : i >= j && i < p.n) : i < p.m;
      if (!inside || j >= columns) ASSERT_EQ(std::memcmp(&before[e], this->matrix(result) + e, sizeof(T)), 0);
    }
  }
};
TYPED_TEST_SUITE(Steps, Elements);

TYPED_TEST(Steps, CallTheirRoutine) {
  using T = TypeParam;
  this->run(problem_of<T>(operation::gemm, "TN", 17, 9, 31, this->scalar(), this->scalar()));
  this->run(problem_of<T>(operation::trsm, "RLTN", 9, 17, 0, this->scalar(), T(0)));
  for (const int64_t n : {19, 450}) {  // alone, and over the team
    this->run(problem_of<T>(operation::syrk, "UN", 0, n, 23, this->scalar(), T(0)));
    this->run(problem_of<T>(operation::syrk, "LT", 0, n, 23, this->scalar(), this->scalar()));
  }
}

TYPED_TEST(Steps, LarfbIsTheRoutineOfTheLibrary) {
  using T = TypeParam;
  const int64_t m = 21, n = 13, k = 6, ldv = 24, ldt = 7, ldc = 22, ldwork = 15;
  for (int i = 0; i < 4; ++i) this->fill(i, 600);
  std::vector<T> expected = this->contents(2, 600), work(600);
  TEV_LAPACK(larfb)
  ("L", "C", "B", "C", &m, &n, &k, out(this->matrix(0)), &ldv, out(this->matrix(1)), &ldt, out(expected.data()), &ldc,
   out(work.data()), &ldwork, 1, 1, 1, 1);
  this->expect_only(step_request<T>("larfb", "LCBC", {m, n, k, ldv, ldt, ldc, ldwork}), 4, 2, 600);
  EXPECT_EQ(this->contents(2, 600), expected);
}

template <class T>
class LuStep : public Host<T> {};
TYPED_TEST_SUITE(LuStep, Elements);

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
    this->serve(block, buffers);

    EXPECT_EQ(this->contents(0, kUsed), swapped);
    problem<T> solve = problem_of<T>(operation::trsm, "LLNU", kOrder, kSolved, 0, 1, 0);
    solve.a = this->matrix(2), solve.lda = kLd[2], solve.b = right.data(), solve.ldb = kLd[3];
    EXPECT_TRUE(check(solve, this->matrix(3), 1).passed) << check(solve, this->matrix(3), 1).text;
    if (first >= second) {
      EXPECT_EQ(this->contents(6, kUsed), c) << first << ' ' << second;
      continue;
    }
    problem<T> update = problem_of<T>(operation::gemm, "NN", kM, kN, kK, -1, 1);
    update.a = this->matrix(4), update.lda = kLd[4], update.b = this->matrix(5), update.ldb = kLd[5];
    update.c = c.data(), update.ldc = kLd[6];
    EXPECT_TRUE(check(update, this->matrix(6), 1).passed) << check(update, this->matrix(6), 1).text;
  }
}

}  // namespace
}  // namespace tev::test
