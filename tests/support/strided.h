// SPDX-License-Identifier: BSD-3-Clause
// Vectors whose elements stand apart: the array ends at an unmapped page, its gaps are NaN.
#pragma once

#include "tests/support/matrix.h"

namespace tev::test {

// n elements inc apart, counted from the far end if inc is negative. inc 0: one element.
template <class T>
class strided {
 public:
  strided(int64_t n, int64_t inc) : n_(n), inc_(inc), storage_(length()) {
    std::fill_n(data(), length(), nan_element<T>());
  }
  strided(const strided& other) : strided(other.n_, other.inc_) {
    std::memcpy(static_cast<void*>(data()), other.data(), length() * sizeof(T));
  }
  T& operator[](int64_t i) const { return data()[inc_ < 0 ? (i - n_ + 1) * inc_ : i * inc_]; }
  T* data() const { return storage_.data(); }
  auto* address() const { return out(data()); }
  int64_t size() const { return n_; }
  const int64_t* inc() const { return &inc_; }
  strided& fill(engine& random, values kind) {
    for (int64_t i = 0; i < n_; ++i) (*this)[i] = random_element<T>(random, kind);
    return *this;
  }
  bool same_bits(const strided& other) const { return std::memcmp(other.data(), data(), length() * sizeof(T)) == 0; }
  bool gaps_are_intact() const {
    strided expected(n_, inc_);
    for (int64_t i = 0; i < n_; ++i) expected[i] = (*this)[i];
    return same_bits(expected);
  }

 private:
  int64_t length() const { return n_ < 1 ? 0 : 1 + (n_ - 1) * std::abs(inc_); }
  int64_t n_, inc_;
  guarded_array<T> storage_;
};

extern template class strided<float>;
extern template class strided<double>;
extern template class strided<std::complex<float>>;
extern template class strided<std::complex<double>>;

// As a matrix of one column or one row without gaps; rows so that a letter conjugates without any other effect.
template <class T>
matrix<T> column_of(const strided<T>& x) {
  matrix<T> column(x.size(), 1, 0);
  for (int64_t i = 0; i < x.size(); ++i) column(i, 0) = x[i];
  return column;
}
template <class T>
matrix<T> row_of(const strided<T>& x) {
  matrix<T> row(1, x.size(), 0);
  for (int64_t i = 0; i < x.size(); ++i) row(0, i) = x[i];
  return row;
}

}  // namespace tev::test
