// SPDX-License-Identifier: BSD-3-Clause
// Column-major test matrices: the last element ends at an unmapped page, and the rows between the matrix and its
// leading dimension hold a pattern (a NaN, so that reading it shows, too) whose bits must stay.
#pragma once

#include "tests/support/guarded.h"
#include "tev/types.h"

namespace tev::test {

// The element type of the library's C interface.
template <class T>
struct c_element {
  using type = T;
};
template <>
struct c_element<std::complex<float>> {
  using type = tev_complex8;
};
template <>
struct c_element<std::complex<double>> {
  using type = tev_complex16;
};
template <class T>
using c_element_t = typename c_element<T>::type;

template <class T>
struct part_of {
  using type = T;
};
template <class R>
struct part_of<std::complex<R>> {
  using type = R;
};
template <class T>
using real_part_t = typename part_of<T>::type;

template <class T>
inline constexpr bool kIsComplex = !std::is_same_v<T, real_part_t<T>>;

// What a matrix is filled with: whole numbers from -3 to 3, whose sums are exact, or numbers between -1 and 1.
enum class values { whole, fractions };

using engine = std::mt19937_64;

#if __has_feature(thread_sanitizer)  // whoever races does so in both real precisions, and in both complex ones
using Elements = testing::Types<double, std::complex<float>>;
#else
using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;
#endif

struct shape {
  int64_t m, n, k;
};

// Between -1 and 1, of all digits. (The library's distribution takes two logarithms for each number.)
template <class R>
R random_fraction(engine& random) {
  constexpr int kDigits = std::numeric_limits<R>::digits;
  return static_cast<R>(static_cast<int64_t>(random()) >> (63 - kDigits)) / static_cast<R>(int64_t{1} << kDigits);
}

template <class T>
T random_element(engine& random, values kind) {
  using R = real_part_t<T>;
  const auto part = [&]() -> R {
    if (kind == values::whole) return static_cast<R>(std::uniform_int_distribution<int>(-3, 3)(random));
    return random_fraction<R>(random);
  };
  if constexpr (kIsComplex<T>) {
    const R re = part(), im = part();
    return {re, im};
  } else {
    return part();
  }
}

// A number with these parts; a real one has the first.
template <class T>
T number(double re, double im) {
  using R = real_part_t<T>;
  if constexpr (kIsComplex<T>)
    return {static_cast<R>(re), static_cast<R>(im)};
  else
    return static_cast<R>(re);
}

template <class T>
T nan_element() {
  return number<T>(std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::quiet_NaN());
}

// What alpha and beta are: 0, 1, or anything.
template <class T>
T random_scalar(engine& random, values kind) {
  const auto choice = random() % 4;
  return choice < 2 ? number<T>(static_cast<double>(choice), 0) : random_element<T>(random, kind);
}

// In the types of the C interface.
template <class T>
auto in(const T* x) {
  return reinterpret_cast<const c_element_t<T>*>(x);
}
template <class T>
auto out(T* x) {
  return reinterpret_cast<c_element_t<T>*>(x);
}

template <class T>
class matrix {
 public:
  static constexpr int64_t kPadding = 3;

  // All elements NaN. Non-positive sizes make an empty matrix.
  matrix(int64_t rows, int64_t columns, int64_t padding = kPadding)
      : rows_(std::max<int64_t>(rows, 0)),
        columns_(std::max<int64_t>(columns, 0)),
        ld_(std::max<int64_t>(rows_ + padding, 1)),
        storage_(size()) {
    std::fill_n(data(), size(), nan_element<T>());
  }
  matrix(const matrix& other) : matrix(other.rows_, other.columns_, other.ld_ - other.rows_) {
    std::memcpy(static_cast<void*>(data()), other.data(), size() * sizeof(T));
  }
  matrix& operator=(const matrix&) = delete;

  T* data() const { return storage_.data(); }
  int64_t rows() const { return rows_; }
  int64_t columns() const { return columns_; }
  int64_t ld() const { return ld_; }
  int64_t size() const { return columns_ == 0 ? 0 : ld() * (columns_ - 1) + rows_; }  // elements, padding included
  T& operator()(int64_t i, int64_t j) const { return data()[i + j * ld()]; }

  void fill(engine& random, values kind, T factor = T(1)) {
    for (int64_t j = 0; j < columns_; ++j)
      for (int64_t i = 0; i < rows_; ++i) (*this)(i, j) = factor * random_element<T>(random, kind);
  }

  // Bitwise, padding included.
  bool same_bits(const matrix& other) const {
    return size() == other.size() && std::memcmp(data(), other.data(), size() * sizeof(T)) == 0;
  }

  bool padding_is_intact() const {
    const T nan = nan_element<T>();
    for (int64_t j = 0; j + 1 < columns_; ++j)
      for (int64_t i = rows_; i < ld(); ++i)
        if (std::memcmp(&(*this)(i, j), &nan, sizeof(T)) != 0) return false;
    return true;
  }

 private:
  int64_t rows_, columns_, ld_;
  guarded_array<T> storage_;
};

extern template class matrix<float>;
extern template class matrix<double>;
extern template class matrix<std::complex<float>>;
extern template class matrix<std::complex<double>>;

template <class T>
c_element_t<T>* at(const matrix<T>& a) {
  return out(a.data());
}

}  // namespace tev::test
