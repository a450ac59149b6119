// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2 routines on drawn operands, judged: their result, the gaps between elements, the rows below a matrix.
// What they must not read is NaN.
#pragma once

#include "tests/support/judge.h"
#include "tests/support/strided.h"

namespace tev::test {

template <class T>
strided<T> drawn(int64_t n, int64_t inc, engine& random, values kind, bool is_read = true) {
  strided<T> x(n, inc);
  return is_read ? std::move(x.fill(random, kind)) : std::move(x);
}

// axpy, copy, scal and swap of r against the loop, with whole numbers, whose results are exact.
template <class T>
void expect_level1(const auto& r, int64_t n, int64_t incx, int64_t incy, engine& random) {
  SCOPED_TRACE(testing::Message() << n << " elements, increments " << incx << ' ' << incy);
  const T alpha = T(2) + random_element<T>(random, values::whole), zero(0);
  const auto x = drawn<T>(n, incx, random, values::whole), y = drawn<T>(n, incy, random, values::whole);
  const auto sum = y, copy = y, same = y, scaled = x, wanted_sum = y, wanted_copy = y, new_x = x, new_y = y;
  r.axpy(&n, in(&alpha), x.address(), x.inc(), sum.address(), y.inc());
  r.axpy(&n, in(&zero), nullptr, x.inc(), same.address(), y.inc());
  r.copy(&n, x.address(), x.inc(), copy.address(), y.inc());
  for (int64_t i = 0; i < n; ++i) wanted_sum[i] += alpha * x[i], wanted_copy[i] = x[i];
  EXPECT_TRUE(copy.same_bits(wanted_copy) && same.same_bits(y));
  for (int64_t i = 0; i < n; ++i) ASSERT_EQ(sum[i], wanted_sum[i]) << i;
  EXPECT_TRUE(sum.gaps_are_intact());
  if (incx == 0 || incy == 0) return;
  r.scal(&n, in(&alpha), scaled.address(), x.inc());
  r.swap(&n, new_x.address(), x.inc(), new_y.address(), y.inc());
  for (int64_t i = 0; i < n; ++i) ASSERT_TRUE(scaled[i] == alpha * x[i] && new_x[i] == y[i] && new_y[i] == x[i]) << i;
  EXPECT_TRUE(scaled.gaps_are_intact() && new_x.gaps_are_intact() && new_y.gaps_are_intact());
}

template <class T>
void expect_gemv(auto* gemv, char trans, int64_t m, int64_t n, int64_t incx, int64_t incy, engine& random, values kind,
                 int64_t padding = matrix<T>::kPadding) {
  SCOPED_TRACE(testing::Message() << "increments " << incx << ' ' << incy);
  const bool plain = (trans & ~0x20) == 'N';
  const T alpha = random_scalar<T>(random, kind), beta = random_scalar<T>(random, kind);
  matrix<T> a(m, n, padding);
  if (alpha != T(0)) a.fill(random, kind);
  const auto x = drawn<T>(plain ? n : m, incx, random, kind, alpha != T(0));
  const auto before = drawn<T>(plain ? m : n, incy, random, kind, beta != T(0)), y = before;
  const int64_t lda = a.ld();
  gemv(&trans, &m, &n, in(&alpha), at(a), &lda, x.address(), x.inc(), in(&beta), y.address(), y.inc());
  EXPECT_TRUE(y.gaps_are_intact());
  if (m < 1 || n < 1)
    EXPECT_TRUE(y.same_bits(before));
  else
    EXPECT_TRUE(is_product({trans, 'N'}, x.size(), alpha, a, column_of(x), beta, column_of(before), column_of(y),
                           kind == values::whole));
}

// letters: "ger" (in the complex precisions geru) or "gerc", which are r.geru and r.gerc; else those of r.gemmger. The
// first ones are the last one with beta = 1 and y plain or conjugated.
template <class T>
void expect_rank_1(const auto& r, const std::string& letters, int64_t m, int64_t n, int64_t incx, int64_t incy,
                   engine& random, values kind, int64_t padding = matrix<T>::kPadding) {
  SCOPED_TRACE(testing::Message() << letters << ", increments " << incx << ' ' << incy);
  const bool ger = letters[0] == 'g';
  const T alpha = random_scalar<T>(random, kind), beta = ger ? T(1) : random_scalar<T>(random, kind);
  const auto x = drawn<T>(m, incx, random, kind, alpha != T(0)), y = drawn<T>(n, incy, random, kind, alpha != T(0));
  matrix<T> before(m, n, padding);
  if (beta != T(0)) before.fill(random, kind);
  const matrix<T> c = before;
  const int64_t ldc = c.ld();
  if (ger)
    (letters == "ger" ? r.geru : r.gerc)(&m, &n, in(&alpha), x.address(), x.inc(), y.address(), y.inc(), at(c), &ldc);
  else
    r.gemmger(&letters[0], &letters[1], &m, &n, in(&alpha), x.address(), x.inc(), y.address(), y.inc(), in(&beta),
              at(c), &ldc);
  const auto form = [](char letter) { return (letter & ~0x20) == 'C' ? 'C' : 'T'; };
  EXPECT_TRUE(is_product({form(letters[0]), form(letters.back())}, 1, alpha, row_of(x), column_of(y), beta, before, c,
                         kind == values::whole));
}

}  // namespace tev::test
