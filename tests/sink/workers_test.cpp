// SPDX-License-Identifier: BSD-3-Clause
// Every BLAS worker of the real sink, called as a foreign host would: records written byte by byte from the table
// below, not through the structs that both sides share.
#include "host/check.h"
#include "tests/sink/foreign_host.h"

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
  static constexpr gemm_offsets gemm = {32, 40, 48, 56, 64};
  static constexpr level3_offsets level3 = {32, 36, 40, 48, 56};
};
template <>
struct layout<double> {
  static constexpr gemm_offsets gemm = {32, 40, 48, 56, 64};
  static constexpr level3_offsets level3 = {32, 40, 48, 56, 64};
};
template <>
struct layout<std::complex<float>> {
  static constexpr gemm_offsets gemm = {32, 40, 48, 56, 64};
  static constexpr level3_offsets level3 = {32, 40, 48, 56, 64};
};
template <>
struct layout<std::complex<double>> {
  static constexpr gemm_offsets gemm = {32, 48, 56, 64, 80};
  static constexpr level3_offsets level3 = {32, 48, 64, 72, 80};
};

constexpr const char* kNames[] = {"gemm", "symm", "trmm", "trsm"};

template <class T>
request_bytes request_for(const problem<T>& p) {
  const std::string name = kNames[static_cast<int>(p.op)];
  request_bytes block = invoke_request(std::string("tev_blas_") + kLetter<T> + name + "_ao_worker");
  const size_t r = kRecordAt;
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
class Workers : public foreign_host<T, 3, 64 * 1024> {
 protected:
  using Host = foreign_host<T, 3, 64 * 1024>;
  using Host::kElements;
  using Host::matrix;

  // Fills the operands, sends the request, judges the result; B or C beyond the result must keep its bits.
  void run(problem<T> p) {
    const bool three = p.op == operation::gemm || p.op == operation::symm;
    const int64_t order = p.side == 'L' ? p.m : p.n;
    const bool plain_a = p.transa == 'N', plain_b = p.transb == 'N';
    p.lda = (p.op == operation::gemm ? (plain_a ? p.m : p.k) : order) + 2;
    p.ldb = (p.op == operation::gemm && !plain_b ? p.n : p.op == operation::gemm ? p.k : p.m) + 1;
    p.ldc = p.m + 3;
    for (int i = 0; i < 3; ++i) this->fill(i, kElements);
    if (p.op == operation::trsm)
      for (int64_t i = 0; i < order; ++i) matrix(0)[i + i * p.lda] += T(4);
    const int result = three ? 2 : 1;
    const std::vector<T> before = this->contents(result, kElements);
    p.a = matrix(0);
    p.b = three ? matrix(1) : before.data();
    p.c = three ? before.data() : nullptr;

    this->send(request_for(p), 3);

    const std::string where = std::string() + kLetter<T> + kNames[static_cast<int>(p.op)] + " " + p.transa + p.transb +
                              p.side + p.uplo + p.diag + " " + std::to_string(p.m) + " x " + std::to_string(p.n) +
                              " x " + std::to_string(p.k);
    const tev::host::verdict judged = tev::host::check(p, matrix(result), 1);
    EXPECT_TRUE(judged.passed) << where << ": " << judged.text;
    const int64_t ld = three ? p.ldc : p.ldb;
    for (size_t e = 0; e < kElements; ++e) {
      const bool inside = static_cast<int64_t>(e) % ld < p.m && static_cast<int64_t>(e) / ld < p.n;
      if (!inside) ASSERT_EQ(std::memcmp(&before[e], matrix(result) + e, sizeof(T)), 0) << where << ": element " << e;
    }
  }
};

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
