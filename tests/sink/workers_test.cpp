// SPDX-License-Identifier: BSD-3-Clause
// Every BLAS worker of the real sink, called as a foreign host would: records written byte by byte from the table
// below, not through the structs that both sides share.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "host/check.h"
#include "tev/request.h"
#include "vro/host.h"

namespace {

using tev::host::operation;
using tev::host::problem;

// Byte offsets within the record.
struct gemm_offsets {
  size_t alpha, lda, ldb, beta, ldc;
};
struct level3_offsets {
  size_t alpha, beta, lda, ldb, ldc;
};
template <class T>
struct layout;
template <>
struct layout<float> {
  static constexpr char letter = 's';
  static constexpr gemm_offsets gemm = {32, 40, 48, 56, 64};
  static constexpr level3_offsets level3 = {32, 36, 40, 48, 56};
};
template <>
struct layout<double> {
  static constexpr char letter = 'd';
  static constexpr gemm_offsets gemm = {32, 40, 48, 56, 64};
  static constexpr level3_offsets level3 = {32, 40, 48, 56, 64};
};
template <>
struct layout<std::complex<float>> {
  static constexpr char letter = 'c';
  static constexpr gemm_offsets gemm = {32, 40, 48, 56, 64};
  static constexpr level3_offsets level3 = {32, 40, 48, 56, 64};
};
template <>
struct layout<std::complex<double>> {
  static constexpr char letter = 'z';
  static constexpr gemm_offsets gemm = {32, 48, 56, 64, 80};
  static constexpr level3_offsets level3 = {32, 48, 64, 72, 80};
};

constexpr const char* kNames[] = {"gemm", "symm", "trmm", "trsm"};

template <class V>
void put(std::vector<unsigned char>& block, size_t offset, const V& value) {
  std::memcpy(block.data() + offset, &value, sizeof(value));
}

template <class T>
std::vector<unsigned char> request_for(const problem<T>& p) {
  std::vector<unsigned char> block(32320, 0xee);  // whatever a worker must not read is not zero
  std::memset(block.data() + 30264, 0, 1016);
  put(block, 0, uint32_t{1});
  const std::string worker =
      std::string("tev_blas_") + layout<T>::letter + kNames[static_cast<int>(p.op)] + "_ao_worker";
  std::memcpy(block.data() + 8, worker.c_str(), worker.size() + 1);
  put(block, 31280, int32_t{1});
  put(block, 32316, int32_t{0});
  const size_t r = 264;
  put(block, r + 8, p.m);
  put(block, r + 16, p.n);
  if (p.op == operation::gemm) {
    const gemm_offsets& at = layout<T>::gemm;
    put(block, r, p.transa);
    put(block, r + 1, p.transb);
    put(block, r + 24, p.k);
    put(block, r + at.alpha, p.alpha);
    put(block, r + at.lda, p.lda);
    put(block, r + at.ldb, p.ldb);
    put(block, r + at.beta, p.beta);
    put(block, r + at.ldc, p.ldc);
    return block;
  }
  const level3_offsets& at = layout<T>::level3;
  put(block, r, p.side);
  put(block, r + 1, p.transa);
  put(block, r + 2, p.uplo);
  put(block, r + 3, p.diag);
  put(block, r + at.alpha, p.alpha);
  put(block, r + at.lda, p.lda);
  put(block, r + at.ldb, p.ldb);
  if (p.op == operation::symm) {
    put(block, r + at.beta, p.beta);
    put(block, r + at.ldc, p.ldc);
  }
  return block;
}

template <class T>
T random_value(std::mt19937_64& source) {
  std::uniform_real_distribution<double> range(-1.0, 1.0);
  if constexpr (std::is_floating_point_v<T>)
    return static_cast<T>(range(source));
  else
    return T(static_cast<typename T::value_type>(range(source)), static_cast<typename T::value_type>(range(source)));
}

template <class T>
class Workers : public testing::Test {
 protected:
  void SetUp() override {
    const vro_process_options options = {TEV_SINK_PATH, nullptr, nullptr, -1};
    ASSERT_EQ(vro_process_create(&options, &process_), VRO_OK) << vro_last_error();
    for (vro_buffer*& buffer : buffers_)
      ASSERT_EQ(vro_buffer_create(process_, kBytes, &buffer), VRO_OK) << vro_last_error();
  }
  void TearDown() override { EXPECT_EQ(vro_process_shutdown(process_, 10000), VRO_OK) << vro_last_error(); }

  T* matrix(int i) { return static_cast<T*>(vro_buffer_map(buffers_[i])); }

  // Fills the operands, sends the request, judges the result; B or C beyond the result must keep its bits.
  void run(problem<T> p) {
    const bool three = p.op == operation::gemm || p.op == operation::symm;
    const int64_t order = p.side == 'L' ? p.m : p.n;
    const bool plain_a = p.transa == 'N', plain_b = p.transb == 'N';
    p.lda = (p.op == operation::gemm ? (plain_a ? p.m : p.k) : order) + 2;
    p.ldb = (p.op == operation::gemm && !plain_b ? p.n : p.op == operation::gemm ? p.k : p.m) + 1;
    p.ldc = p.m + 3;
    const size_t elements = kBytes / sizeof(T);
    for (int i = 0; i < 3; ++i)
      for (size_t e = 0; e < elements; ++e) matrix(i)[e] = random_value<T>(random_);
    if (p.op == operation::trsm)
      for (int64_t i = 0; i < order; ++i) matrix(0)[i + i * p.lda] += T(4);
    const int result = three ? 2 : 1;
    const std::vector<T> before(matrix(result), matrix(result) + elements);
    p.a = matrix(0);
    p.b = three ? matrix(1) : before.data();
    p.c = three ? before.data() : nullptr;

    const std::vector<unsigned char> block = request_for(p);
    vro_completion* done = nullptr;
    ASSERT_EQ(vro_run(process_, "ueaa_prv_card_invoke", buffers_, 3, block.data(), block.size(), 0, &done), VRO_OK);
    ASSERT_EQ(vro_completion_wait(done, 60000), VRO_OK) << vro_last_error();
    vro_completion_release(done);

    const std::string where = std::string() + layout<T>::letter + kNames[static_cast<int>(p.op)] + " " + p.transa +
                              p.transb + p.side + p.uplo + p.diag + " " + std::to_string(p.m) + " x " +
                              std::to_string(p.n) + " x " + std::to_string(p.k);
    const tev::host::verdict judged = tev::host::check(p, matrix(result), 1);
    EXPECT_TRUE(judged.passed) << where << ": " << judged.text;
    const int64_t ld = three ? p.ldc : p.ldb;
    for (size_t e = 0; e < elements; ++e) {
      const bool inside = static_cast<int64_t>(e) % ld < p.m && static_cast<int64_t>(e) / ld < p.n;
      if (!inside) ASSERT_EQ(std::memcmp(&before[e], matrix(result) + e, sizeof(T)), 0) << where << ": element " << e;
    }
  }

  static constexpr size_t kBytes = 64 * 1024;
  vro_process* process_ = nullptr;
  vro_buffer* buffers_[3] = {};
  std::mt19937_64 random_{20260407};
};

using precisions = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(Workers, precisions);

constexpr int64_t kSizes[][3] = {{1, 1, 1}, {2, 3, 5}, {17, 9, 31}, {40, 33, 7}, {0, 4, 3}, {5, 0, 3}, {7, 6, 0}};

TYPED_TEST(Workers, GemmTakesEveryPairOfForms) {
  for (char transa : {'N', 'T', 'C'})
    for (char transb : {'N', 'T', 'C'})
      for (const auto& [m, n, k] : kSizes)
        this->run({operation::gemm,
                   transa,
                   transb,
                   'L',
                   'U',
                   'N',
                   m,
                   n,
                   k,
                   random_value<TypeParam>(this->random_),
                   random_value<TypeParam>(this->random_),
                   {},
                   {},
                   {},
                   {},
                   {},
                   {}});
}

TYPED_TEST(Workers, SymmTakesEverySideAndTriangle) {
  for (char side : {'L', 'R'})
    for (char uplo : {'U', 'L'})
      for (const auto& [m, n, k] : kSizes)
        this->run({operation::symm,
                   'N',
                   'N',
                   side,
                   uplo,
                   'N',
                   m,
                   n,
                   0,
                   random_value<TypeParam>(this->random_),
                   random_value<TypeParam>(this->random_),
                   {},
                   {},
                   {},
                   {},
                   {},
                   {}});
}

TYPED_TEST(Workers, TriangularRoutinesTakeEveryOption) {
  for (operation op : {operation::trmm, operation::trsm})
    for (char side : {'L', 'R'})
      for (char uplo : {'U', 'L'})
        for (char trans : {'N', 'T', 'C'})
          for (char diag : {'N', 'U'})
            for (const auto& [m, n, k] : {std::array<int64_t, 3>{1, 1, 0}, {5, 3, 0}, {9, 17, 0}, {12, 8, 0}})
              this->run({op,
                         trans,
                         'N',
                         side,
                         uplo,
                         diag,
                         m,
                         n,
                         0,
                         random_value<TypeParam>(this->random_),
                         {},
                         {},
                         {},
                         {},
                         {},
                         {},
                         {}});
}

}  // namespace
