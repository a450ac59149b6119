// SPDX-License-Identifier: BSD-3-Clause
// Judges a result by computing it again: plain sums in the next wider type (double for s and c, long double for d and
// z), element by element, against a bound derived from the roundings that any order of summation may make:
//
//   trsm     |op(A) X - alpha B| <= gamma(r + 4) (|op(A)| |X| + |alpha| |B|)         residual, not error
//   others   |X - Xref| <= gamma(r + 4) (|alpha| |op(A)| |op(B)| + |beta| |C0|)      r: length of the sum
//
// gamma(n) = n u / (1 - n u) with u half the machine epsilon of T. Complex: gamma(2 r + 8), |re| + |im| as modulus,
// for each part. (N. J. Higham, Accuracy and Stability of Numerical Algorithms, 2nd ed., sections 3.1 and 8.1.) A few
// of the smallest numbers of T are added for what underflows; where no sum is formed and beta is 0 or 1 nothing is
// rounded and the bound is 0. Zero alpha and beta, unread triangles and unit diagonals are not read here, either.
//
// Elements that the wide result says are NaN or infinite must be so in the result, too: in the real precisions an
// infinity with its sign; in the complex ones either will do, and a part next to one that is not finite may be
// anything. An infinite alpha makes every element that has a sum NaN or infinite, either will do. Diagonals that must
// be real have imaginary parts of zero, whatever those of the operands are, which are not read. Of the rank-k updates
// the triangle that they write is looked at. Where the moduli add up to more than T can hold the result may have
// overflowed. The rows between m and the leading dimension are not looked at.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "host/problem.h"

namespace tev::host {

struct verdict {
  bool passed;
  double worst;         // largest error / bound that was seen; infinity for a NaN out of place
  int64_t row, column;  // where, from 0
  std::string text;     // one line: "largest error is 0.31 of the bound, at (3, 7)", or what is wrong, with both values
};

// `result` is the matrix after the call, with the leading dimension of C or, trmm and trsm, B.
// Checks columns in parallel on `threads` std::threads; `progress` (may be empty) is called with the share done, 0 to
// 1, from the calling thread.
template <class T>
verdict check(const problem<T>& p, const T* result, int threads, const std::function<void(double)>& progress = {});

extern template verdict check(const problem<float>&, const float*, int, const std::function<void(double)>&);
extern template verdict check(const problem<double>&, const double*, int, const std::function<void(double)>&);
extern template verdict check(const problem<std::complex<float>>&, const std::complex<float>*, int,
                              const std::function<void(double)>&);
extern template verdict check(const problem<std::complex<double>>&, const std::complex<double>*, int,
                              const std::function<void(double)>&);

}  // namespace tev::host
