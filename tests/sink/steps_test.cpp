// SPDX-License-Identifier: BSD-3-Clause
// The LAPACK workers of the real sink, called as a foreign host would: records written byte by byte.
//   Steps     the routine is called for the right parameter and count of buffers only
//   LuStep    interchanges, solve, update by the guards, whatever the parameter and the count are

#include "host/check.h"
#include "tests/support/blas_case.h"
#include "tests/support/precision.h"
#include "tests/support/sink.h"

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
class Steps : public Host<T> {};
TYPED_TEST_SUITE(Steps, Elements);

// tests/host/tool_test.py has their results judged.
TYPED_TEST(Steps, AreTakenWithTheirParameterAndTheirBuffersAlone) {
  using T = TypeParam;
  constexpr int64_t kLd = 40;
  constexpr size_t kUsed = kLd * kLd;
  const struct {
    const char *name, *letters;
    std::vector<int64_t> numbers;
    int buffers, result;
  } rows[] = {{"gemm", "TN", {17, 9, 31, kLd, kLd, kLd}, 3, 2},
              {"trsm", "RLTU", {9, 17, kLd, kLd}, 2, 1},
              {"syrk", "LT", {19, 23, kLd, kLd}, 2, 1},
              {"larfb", "LCBC", {21, 13, 6, kLd, kLd, kLd, kLd}, 4, 2}};
  for (const auto& row : rows) {
    for (int i = 0; i < row.buffers; ++i) this->fill(i, kUsed);
    request_bytes block = step_request<T>(row.name, row.letters, row.numbers);
    for (const int scalar : {0, 1}) put(block, kScalarsAt + scalar * sizeof(T), T(2));
    const std::vector<T> before = this->contents(row.result, kUsed);
    for (const uint32_t other : {0u, 192u, 255u, 256u, 257u, 384u}) {
      if (other == kStepBytes<T>) continue;
      put(block, 4, other);
      this->serve(block, row.buffers);
      EXPECT_EQ(this->contents(row.result, kUsed), before) << row.name << ", parameter " << other;
    }
    put(block, 4, kStepBytes<T>);
    for (const int other : {row.buffers - 1, row.buffers + 1, 8}) {
      this->serve(block, other);
      EXPECT_EQ(this->contents(row.result, kUsed), before) << row.name << ", " << other << " buffers";
    }
    this->serve(block, row.buffers);
    EXPECT_NE(this->contents(row.result, kUsed), before) << row.name;
  }
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
