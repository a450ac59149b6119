// SPDX-License-Identifier: BSD-3-Clause
// What the reference BLAS lacks, against plain sums of whole numbers: ?axpby, ?gemmtr, the batches, ?omatcopy and
// ?imatcopy.
#include <dlfcn.h>

#include "tests/support/effort.h"
#include "tests/support/matrix.h"

namespace {

using tev::test::kIsComplex;
using tev::test::random_element;

void* find(const std::string& name) {
  static void* const library = dlopen(TEV_BLAS, RTLD_NOW | RTLD_LOCAL);
  return dlsym(library, name.c_str());
}

template <class E>
constexpr char kLetter = kIsComplex<E> ? (sizeof(E) == 8 ? 'c' : 'z') : (sizeof(E) == 4 ? 's' : 'd');
template <class E>
using scalar = std::conditional_t<kIsComplex<E>, const E*, E>;  // as an argument in C
template <class E>
scalar<E> pass(const E& x) {
  if constexpr (kIsComplex<E>)
    return &x;
  else
    return x;
}

constexpr int kRows = 101, kUpper = 121, kPadding = 2;

template <class E>
class Extensions : public testing::Test {
 protected:
  std::mt19937_64 chance_{tev::test::test_seed()};
  int below(int n) { return static_cast<int>(chance_() % static_cast<unsigned>(n)); }
  E element() { return random_element<E>(chance_, tev::test::values::whole); }
  std::vector<E> elements(int count) {
    std::vector<E> drawn(static_cast<size_t>(count));
    for (E& x : drawn) x = element();
    return drawn;
  }
  std::string name(const std::string& stem) { return "cblas_" + std::string(1, kLetter<E>) + stem; }
};
using elements_of_all = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(Extensions, elements_of_all, );

TYPED_TEST(Extensions, Axpby) {
  using E = TypeParam;
  auto* const axpby =
      reinterpret_cast<void (*)(int, scalar<E>, const E*, int, scalar<E>, E*, int)>(find(this->name("axpby")));
  ASSERT_TRUE(axpby);
  for (int trial = 0; trial < 50; ++trial) {
    const int n = this->below(30), incx = this->below(2) == 0 ? 1 : -2, incy = this->below(2) == 0 ? -1 : 3;
    const E alpha = this->element(), beta = this->below(3) == 0 ? E(0) : this->element();
    const std::vector<E> x = this->elements(60), y = this->elements(90);
    std::vector<E> got = y, wanted = y;
    const auto at = [n](int i, int inc) { return static_cast<size_t>((inc < 0 ? i - n + 1 : i) * inc); };
    for (int i = 0; i < n; ++i) wanted[at(i, incy)] = alpha * x[at(i, incx)] + beta * y[at(i, incy)];
    if (beta == E(0))
      for (int i = 0; i < n; ++i) got[at(i, incy)] = tev::test::nan_element<E>();
    axpby(n, pass(alpha), x.data(), incx, pass(beta), got.data(), incy);
    ASSERT_EQ(got, wanted) << tev::test::repeat_with(tev::test::test_seed());
  }
}

// From matrix to matrix and in place: what belongs to no result keeps its value, in place too.
TYPED_TEST(Extensions, MatrixCopies) {
  using E = TypeParam;
  auto* const out_of_place =
      reinterpret_cast<void (*)(int, int, int, int, scalar<E>, const E*, int, E*, int)>(find(this->name("omatcopy")));
  auto* const in_place =
      reinterpret_cast<void (*)(int, int, int, int, scalar<E>, E*, int, int)>(find(this->name("imatcopy")));
  ASSERT_TRUE(out_of_place && in_place);
  for (int trial = 0; trial < 200; ++trial) {
    const int most = trial % 4 == 0 ? 150 : 9, rows = this->below(most),
              columns = this->below(3) == 0 ? rows : this->below(most);
    const bool by_rows = this->below(2) == 0, transposes = this->below(2) == 0, conjugates = this->below(2) == 0;
    const int trans = transposes ? (conjugates ? 113 : 112) : (conjugates ? 114 : 111);
    const int held = by_rows ? columns : rows, result_held = by_rows == transposes ? rows : columns;
    const int lda = std::max(held, 1) + this->below(kPadding), same = std::max({held, result_held, 1});
    const int ldb = this->below(2) == 0 && lda >= result_held
                        ? lda
                        : same - this->below(1 + same - std::max(result_held, 1)) + this->below(kPadding);
    const E alpha = this->below(4) == 0 ? E(static_cast<float>(this->below(2))) : this->element();
    const std::vector<E> a = this->elements((most + kPadding) * (most + kPadding)),
                         b = this->elements((most + kPadding) * (most + kPadding));
    const bool inside = this->below(2) == 0;
    std::vector<E> got = inside ? a : b, wanted = got;
    const auto at = [=](int i, int j, int ld) { return static_cast<size_t>(by_rows ? i * ld + j : i + j * ld); };
    for (int i = 0; i < rows; ++i)
      for (int j = 0; j < columns; ++j) {
        E x = a[at(i, j, lda)];
        if constexpr (kIsComplex<E>) x = conjugates ? std::conj(x) : x;
        wanted[transposes ? at(j, i, ldb) : at(i, j, ldb)] = alpha * x;
      }
    if (inside)
      in_place(by_rows ? kRows : kRows + 1, trans, rows, columns, pass(alpha), got.data(), lda, ldb);
    else
      out_of_place(by_rows ? kRows : kRows + 1, trans, rows, columns, pass(alpha), a.data(), lda, got.data(), ldb);
    ASSERT_TRUE(got == wanted) << rows << " x " << columns << " lda " << lda << " ldb " << ldb << " trans " << trans
                               << " rows " << by_rows << " in place " << inside << " alpha " << alpha << " "
                               << tev::test::repeat_with(tev::test::test_seed());
  }
}

// One product, or one triangle of a square one, of which there may be several at a distance.
TYPED_TEST(Extensions, TrianglesOfProductsAndBatches) {
  using E = TypeParam;
  using const_matrices = const E**;
  auto* const gemmtr = reinterpret_cast<void (*)(int, int, int, int, int, int, scalar<E>, const E*, int, const E*, int,
                                                 scalar<E>, E*, int)>(find(this->name("gemmtr")));
  auto* const strided =
      reinterpret_cast<void (*)(int, int, int, int, int, int, scalar<E>, const E*, int, int, const E*, int, int,
                                scalar<E>, E*, int, int, int)>(find(this->name("gemm_batch_strided")));
  auto* const batch = reinterpret_cast<void (*)(
      int, const int*, const int*, const int*, const int*, const int*, const E*, const_matrices, const int*,
      const_matrices, const int*, const E*, E**, const int*, int, const int*)>(find(this->name("gemm_batch")));
  ASSERT_TRUE(gemmtr && strided && batch);
  for (int trial = 0; trial < 40; ++trial) {
    const int n = this->below(trial % 4 == 0 ? 150 : 9), k = this->below(9), order = kRows + this->below(2);
    const int transa = 111 + this->below(3), transb = 111 + this->below(3), uplo = kUpper + this->below(2);
    const int ld = std::max(n, k) + kPadding, each = ld * ld, which = this->below(3), count = which == 0 ? 1 : 3;
    const E alpha = this->element(), beta = this->element();
    const std::vector<E> a = this->elements(each * count), b = this->elements(each * count),
                         c = this->elements(each * count);
    std::vector<E> got = c, wanted = c;
    const auto at = [=](int i, int j) { return static_cast<size_t>(order == kRows ? i * ld + j : i + j * ld); };
    const auto op = [&](const E* x, int trans, int i, int j) {
      const E value = trans == 111 ? x[at(i, j)] : x[at(j, i)];
      if constexpr (kIsComplex<E>)
        return trans == 113 ? std::conj(value) : value;
      else
        return value;
    };
    for (int one = 0; one < count; ++one)
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
          if (which == 0 && i != j && (i < j) != (uplo == kUpper)) continue;
          E sum = 0;
          for (int p = 0; p < k; ++p)
            sum += op(a.data() + one * each, transa, i, p) * op(b.data() + one * each, transb, p, j);
          E& element = wanted[at(i, j) + static_cast<size_t>(one * each)];
          element = alpha * sum + beta * element;
        }
    if (which == 0) {
      gemmtr(order, uplo, transa, transb, n, k, pass(alpha), a.data(), ld, b.data(), ld, pass(beta), got.data(), ld);
    } else if (which == 1) {
      strided(order, transa, transb, n, n, k, pass(alpha), a.data(), ld, each, b.data(), ld, each, pass(beta),
              got.data(), ld, each, count);
    } else {  // two groups alike, of one and of two
      const auto twice = [](const auto& x) { return std::vector<std::decay_t<decltype(x)>>{x, x}; };
      const E *as[] = {a.data(), a.data() + each, a.data() + 2 * each},
              *bs[] = {b.data(), b.data() + each, b.data() + 2 * each};
      E* cs[] = {got.data(), got.data() + each, got.data() + 2 * each};
      const int sizes[] = {1, 2};
      batch(order, twice(transa).data(), twice(transb).data(), twice(n).data(), twice(n).data(), twice(k).data(),
            twice(alpha).data(), as, twice(ld).data(), bs, twice(ld).data(), twice(beta).data(), cs, twice(ld).data(),
            2, sizes);
    }
    ASSERT_TRUE(got == wanted) << "n " << n << " k " << k << " order " << order << " " << which << " "
                               << tev::test::repeat_with(tev::test::test_seed());
  }
}

}  // namespace
