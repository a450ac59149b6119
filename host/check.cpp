// SPDX-License-Identifier: BSD-3-Clause
// The judgement of check.h. Every operation is brought to one form, a product of two general matrices,
//
//   trsm     0    =        L R  - alpha B      L = op(A), R = X (side L) or L = X, R = op(A) (side R)
//   others   Xref = alpha (L R) + beta C0
//
// The two products of a rank-2k update are one: L = [op(A) op(B)], and R holds one transpose above the other; from the
// middle of the sum on its terms are multiplied by the other alpha.
//
// where L is kept by rows and R by columns, so that an element is a product of two contiguous vectors. A triangle
// restricts the sum to the entries that exist: the others are neither read nor taken as zeros, which would turn an
// infinity of the other operand into a NaN. Sums are kept in the wider type, their moduli in double: both are far more
// exact than the roundings that the bound allows (a thousandth of them for d and z).
#include "host/check.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <sstream>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace tev::host {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Of a residual that is not finite though its own element of X is: less than infinity, so that the element named is
// the one that spoilt it.
constexpr double kSpoiltResidual = std::numeric_limits<double>::max();

template <class T>
struct real_of {
  using type = T;
};
template <class R>
struct real_of<std::complex<R>> {
  using type = R;
};
template <class T>
using real = typename real_of<T>::type;
template <class T>
using wide = std::conditional_t<std::is_same_v<real<T>, float>, double, long double>;

template <class T>
constexpr bool kComplex = !std::is_same_v<T, real<T>>;

// An element in the wider type; a real one has no imaginary part.
template <class W>
struct value {
  W re, im;
};

template <class T>
value<wide<T>> widen(T x) {
  if constexpr (kComplex<T>)
    return {x.real(), x.imag()};
  else
    return {x, 0};
}

// Real elements keep their imaginary part out of it: infinity times its zero would be NaN.
template <class T>
value<wide<T>> multiply(value<wide<T>> x, value<wide<T>> y) {
  if constexpr (kComplex<T>)
    return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
  else
    return {x.re * y.re, 0};
}

template <class T>
double modulus(T x) {
  if constexpr (kComplex<T>)
    return std::abs(static_cast<double>(x.real())) + std::abs(static_cast<double>(x.imag()));
  else
    return std::abs(static_cast<double>(x));
}

// Letters may come in lower case.
bool is_letter(char option, char letter) { return option == letter || option == letter + ('a' - 'A'); }

template <class T>
T transformed(char trans, T x) {
  if constexpr (kComplex<T>)
    return is_letter(trans, 'C') ? std::conj(x) : x;
  else
    return x;
}

bool is_transposed(char trans) { return is_letter(trans, 'T') || is_letter(trans, 'C'); }

// op(A) element by element.
template <class T>
T general_at(const T* a, int64_t lda, char trans, int64_t i, int64_t j) {
  return transformed(trans, is_transposed(trans) ? a[j + i * lda] : a[i + j * lda]);
}

bool is_hermitian(operation op) { return op == operation::hemm || op == operation::herk || op == operation::her2k; }
bool has_two_terms(operation op) { return op == operation::syr2k || op == operation::her2k; }
bool is_rank_k(operation op) { return op == operation::syrk || op == operation::herk || has_two_terms(op); }

template <class T>
T conjugate_of(T x) {
  return transformed('C', x);
}

// Element (i, j) of a Hermitian matrix as it is stored: the imaginary parts of its diagonal do not count.
template <class T>
T hermitian_part(bool hermitian, int64_t i, int64_t j, T x) {
  if constexpr (kComplex<T>)
    return hermitian && i == j ? T(x.real()) : x;
  else
    return x;
}

template <class T>
T symmetric_at(const problem<T>& p, int64_t i, int64_t j) {
  const bool swap = is_letter(p.uplo, 'U') ? i > j : i < j, hermitian = is_hermitian(p.op);
  if (swap) return hermitian ? conjugate_of(p.a[j + i * p.lda]) : p.a[j + i * p.lda];
  return hermitian_part(hermitian, i, j, p.a[i + j * p.lda]);
}

// Entries outside the triangle of op(A) are zeros that no sum uses.
template <class T>
T triangular_at(const problem<T>& p, bool upper, int64_t i, int64_t j) {
  if (i == j && is_letter(p.diag, 'U')) return T(1);
  return (upper ? i > j : i < j) ? T(0) : general_at(p.a, p.lda, p.transa, i, j);
}

// Of an operand, or of the result.
enum class triangle { none, left_upper, left_lower, right_upper, right_lower, result_upper, result_lower };

// The operation in the form that the file's head describes.
template <class T>
struct product_form {
  int64_t m, n, k;
  std::vector<T> left;   // by rows
  std::vector<T> right;  // by columns
  triangle shape;        // what is triangular
  int64_t k_other;       // terms from here on have the other alpha
  T alpha_other;
  bool hermitian;  // the result
  T alpha, beta;   // of the sum, of the added matrix
  const T* added;  // C0, or B of trsm; null when nothing is added
  int64_t ld_added;
  bool residual;  // the sum must vanish, else it must match the result
  double gamma;
  bool untouched;    // neither a sum nor a factor: the result is what it was
  double underflow;  // what roundings below the normal range can add to an error
};

template <class T, class At>
std::vector<T> by_rows(int64_t rows, int64_t columns, const At& at) {
  std::vector<T> copy(rows * columns);
  for (int64_t i = 0; i < rows; ++i)
    for (int64_t j = 0; j < columns; ++j) copy[i * columns + j] = at(i, j);
  return copy;
}

template <class T, class At>
std::vector<T> by_columns(int64_t rows, int64_t columns, const At& at) {
  std::vector<T> copy(rows * columns);
  for (int64_t j = 0; j < columns; ++j)
    for (int64_t i = 0; i < rows; ++i) copy[i + j * rows] = at(i, j);
  return copy;
}

template <class T>
double largest_finite_modulus(const std::vector<T>& values) {
  double largest = 0;
  for (const T& x : values)
    if (std::isfinite(modulus(x))) largest = std::max(largest, modulus(x));
  return largest;
}

// gamma and the underflow term for sums of k products: k products and k - 1 sums in a row, one each for alpha, beta
// and the last sum, one to spare (trsm: the division). A complex product takes two roundings per part instead of one.
template <class T>
void set_bounds(product_form<T>& form) {
  const double unit = static_cast<double>(std::numeric_limits<real<T>>::epsilon()) / 2;
  const double roundings = static_cast<double>(kComplex<T> ? 2 * form.k + 8 : form.k + 4);
  form.gamma = roundings * unit / (1 - roundings * unit);
  // What vanishes in a product may be multiplied by alpha or an element of the other operand afterwards.
  const double factor =
      1 + modulus(form.alpha) + largest_finite_modulus(form.left) + largest_finite_modulus(form.right);
  form.underflow = roundings * factor * static_cast<double>(std::numeric_limits<real<T>>::denorm_min());
  // No sum and a trivial beta: nothing is rounded.
  if (form.k == 0 && (form.added == nullptr || form.beta == T(1))) form.gamma = form.underflow = 0;
  form.untouched = form.k == 0 && form.added != nullptr && form.beta == T(1);
}

// Of a rank-k update: both operands by rows of op(A) and op(B), the right one conjugated where it is for herk.
template <class T>
void set_rank_k_operands(const problem<T>& p, product_form<T>& form) {
  const T* second = has_two_terms(p.op) ? p.b : p.a;
  const int64_t ld_second = has_two_terms(p.op) ? p.ldb : p.lda;
  const auto at = [&](bool swapped, int64_t i, int64_t l) {
    const bool other = (l >= p.k) != swapped;
    return general_at(other ? second : p.a, other ? ld_second : p.lda, p.transa, i, l % p.k);
  };
  form.left = by_rows<T>(form.n, form.k, [&](int64_t i, int64_t l) { return at(false, i, l); });
  form.right = by_columns<T>(form.k, form.n, [&](int64_t l, int64_t j) {
    const T x = at(true, j, l);
    return form.hermitian ? conjugate_of(x) : x;
  });
}

template <class T>
product_form<T> make_form(const problem<T>& p, const T* result) {
  const bool in_place = p.op == operation::trmm || p.op == operation::trsm;
  const bool left_side = is_letter(p.side, 'L');
  product_form<T> form = {};
  form.m = std::max<int64_t>(is_rank_k(p.op) ? p.n : p.m, 0);
  form.n = std::max<int64_t>(p.n, 0);
  form.alpha = p.alpha;
  if (!in_place && p.beta != T(0)) form.beta = p.beta, form.added = p.c, form.ld_added = p.ldc;
  const bool own_k = p.op == operation::gemm || is_rank_k(p.op);
  if (p.alpha != T(0)) form.k = own_k ? std::max<int64_t>(p.k, 0) : left_side ? p.m : p.n;
  form.k_other = form.k;
  if (has_two_terms(p.op)) form.k *= 2;
  if (is_rank_k(p.op)) {
    form.hermitian = is_hermitian(p.op);
    form.shape = is_letter(p.uplo, 'U') ? triangle::result_upper : triangle::result_lower;
    form.alpha_other = form.hermitian ? conjugate_of(p.alpha) : p.alpha;
  }

  if (form.k == 0 || form.m == 0 || form.n == 0) {  // nothing is read but C
    set_bounds(form);
    return form;
  }

  if (is_rank_k(p.op)) {
    set_rank_k_operands(p, form);
    set_bounds(form);
    return form;
  }

  const bool upper = is_letter(p.uplo, 'U') != is_transposed(p.transa);  // of op(A)
  form.residual = p.op == operation::trsm;
  if (form.residual) form.alpha = T(1), form.beta = -p.alpha, form.added = p.b, form.ld_added = p.ldb;
  if (in_place)
    form.shape = left_side ? (upper ? triangle::left_upper : triangle::left_lower)
                           : (upper ? triangle::right_upper : triangle::right_lower);

  const auto a = [&](int64_t i, int64_t j) {
    switch (p.op) {
      case operation::gemm:
        return general_at(p.a, p.lda, p.transa, i, j);
      case operation::symm:
      case operation::hemm:
        return symmetric_at(p, i, j);
      default:
        return triangular_at(p, upper, i, j);
    }
  };
  const T* other = form.residual ? result : p.b;
  const auto b = [&](int64_t i, int64_t j) {
    return general_at(other, p.ldb, p.op == operation::gemm ? p.transb : 'N', i, j);
  };
  if (p.op == operation::gemm || left_side) {
    form.left = by_rows<T>(form.m, form.k, a);
    form.right = by_columns<T>(form.k, form.n, b);
  } else {
    form.left = by_rows<T>(form.m, form.k, b);
    form.right = by_columns<T>(form.k, form.n, a);
  }
  set_bounds(form);
  return form;
}

// The terms of element (i, j) that exist: [first, second).
template <class T>
std::pair<int64_t, int64_t> terms(const product_form<T>& form, int64_t i, int64_t j) {
  switch (form.shape) {
    case triangle::left_upper:
      return {i, form.k};
    case triangle::left_lower:
      return {0, i + 1};
    case triangle::right_upper:
      return {0, j + 1};
    case triangle::right_lower:
      return {j, form.k};
    default:
      return {0, form.k};
  }
}

template <class T>
struct sum {
  value<wide<T>> total;
  double moduli;
};

// Several sums at once, since one alone would wait for each addition.
template <class T>
sum<T> dot(int64_t n, const T* x, const T* y) {
  constexpr int kLanes = kComplex<T> ? 2 : 4;  // what the eight registers of long double hold
  value<wide<T>> lane[kLanes] = {};
  double moduli[kLanes] = {};
  const auto take = [&](int q, int64_t l) {
    const value<wide<T>> term = multiply<T>(widen(x[l]), widen(y[l]));
    lane[q].re += term.re;
    if constexpr (kComplex<T>) lane[q].im += term.im;
    moduli[q] += modulus(x[l]) * modulus(y[l]);
  };
  int64_t l = 0;
  for (; l + kLanes <= n; l += kLanes)
    for (int q = 0; q < kLanes; ++q) take(q, l + q);
  for (; l < n; ++l) take(0, l);
  for (int q = 1; q < kLanes; ++q) {
    lane[0].re += lane[q].re;
    lane[0].im += lane[q].im;
    moduli[0] += moduli[q];
  }
  return {lane[0], moduli[0]};
}

// alpha times the sum plus beta times the added element, with the moduli of all that was added.
template <class T>
sum<T> expected_element(const product_form<T>& form, int64_t i, int64_t j) {
  sum<T> x = {};
  if (form.k > 0) {
    const auto [begin, end] = terms(form, i, j);
    const auto add_terms = [&, &row = i, &column = j](int64_t first, int64_t last, T alpha) {
      const sum<T> part =
          dot(last - first, form.left.data() + row * form.k + first, form.right.data() + column * form.k + first);
      const value<wide<T>> scaled = multiply<T>(widen(alpha), part.total);
      x = {{x.total.re + scaled.re, x.total.im + scaled.im}, x.moduli + part.moduli * modulus(alpha)};
    };
    add_terms(begin, std::min(end, form.k_other), form.alpha);
    if (end > form.k_other) add_terms(form.k_other, end, form.alpha_other);
  }
  if (form.added != nullptr) {
    const T c = hermitian_part(form.hermitian, i, j, form.added[i + j * form.ld_added]);
    const value<wide<T>> term = form.beta == T(1) ? widen(c) : multiply<T>(widen(form.beta), widen(c));
    x.total = form.k > 0 ? value<wide<T>>{x.total.re + term.re, x.total.im + term.im} : term;
    x.moduli += modulus(form.beta) * modulus(c);
  }
  return x;
}

// The error of one part in units of the bound; infinity for a NaN or infinity out of place, 0 for one in place.
//
// An infinity of a real result has its sign, unless alpha is one: terms that alpha has multiplied before they are added
// end up as NaN when their signs differ. In a complex product an infinity may as well end up as NaN, and a part next to
// one that is not finite may be anything: there alpha = 1 + 0 i makes a difference when an implementation leaves it
// out.
template <class T>
double part_error(wide<T> got, wide<T> expected, bool other_finite, double moduli, const product_form<T>& form) {
  if (std::isfinite(expected)) {
    if (!other_finite) return 0;
    // Sums that overflow on the way: finite results are still held to the bound.
    if (!std::isfinite(got) && moduli > static_cast<double>(std::numeric_limits<real<T>>::max())) return 0;
    const double error = static_cast<double>(std::abs(got - expected));
    const double bound = moduli > 0 || form.k > 0 ? form.gamma * moduli + form.underflow : 0;
    if (error == 0 || bound == kInfinity) return 0;
    return error / bound >= 0 ? error / bound : kInfinity;
  }
  if (std::isfinite(got)) return kInfinity;
  if (kComplex<T> || std::isnan(expected) || !std::isfinite(modulus(form.alpha))) return 0;
  return got == expected ? 0 : kInfinity;
}

struct finding {
  double worst = -1;  // -1: nothing seen
  int64_t row = 0, column = 0;
};

// Of equally bad ones the first in column order, whichever thread saw it.
void keep_worse(finding& kept, const finding& other) {
  const bool earlier = std::pair(other.column, other.row) < std::pair(kept.column, kept.row);
  if (other.worst > kept.worst || (other.worst == kept.worst && earlier)) kept = other;
}

template <class T>
double element_error(const product_form<T>& form, int64_t i, int64_t j, T result) {
  const sum<T> x = expected_element(form, i, j);
  if (form.residual && !std::isfinite(modulus(form.beta))) return std::isfinite(modulus(result)) ? kInfinity : 0;
  if (form.residual && !std::isfinite(modulus(result))) return kInfinity;
  if (form.residual && !std::isfinite(x.total.re + x.total.im)) return kSpoiltResidual;
  const value<wide<T>> got = form.residual ? value<wide<T>>{} : widen(result);
  const double re = part_error(got.re, x.total.re, std::isfinite(x.total.im), x.moduli, form);
  if constexpr (!kComplex<T>) return re;
  if (form.hermitian && i == j) return got.im == 0 || form.untouched ? re : kInfinity;
  return std::max(re, part_error(got.im, x.total.im, std::isfinite(x.total.re), x.moduli, form));
}

template <class T>
finding check_column(const product_form<T>& form, int64_t j, const T* column) {
  finding worst;
  const int64_t begin = form.shape == triangle::result_lower ? j : 0;
  const int64_t end = form.shape == triangle::result_upper ? j + 1 : form.m;
  for (int64_t i = begin; i < end; ++i) keep_worse(worst, {element_error(form, i, j, column[i]), i, j});
  return worst;
}

template <class T>
std::string text_of(T x) {
  std::ostringstream text;
  text.precision(std::numeric_limits<real<T>>::max_digits10);
  text << x;
  return text.str();
}

template <class T>
std::string describe(const product_form<T>& form, const finding& worst, T result) {
  std::ostringstream text;
  text.precision(3);
  const auto at = [&] { text << "at (" << worst.row << ", " << worst.column << ")"; };
  if (worst.worst <= 1) {
    text << "largest " << (form.residual ? "residual" : "error") << " is " << worst.worst << " of the bound, ";
    at();
    return text.str();
  }
  at();
  text << " the result is " << text_of(result);
  if (form.residual && worst.worst >= kSpoiltResidual) {
    text << ": the matrix looks singular, or an operand is not finite";
    return text.str();
  }
  if (form.residual) {
    text << ", and its residual " << worst.worst << " times the bound";
    return text.str();
  }
  const value<wide<T>> x = expected_element(form, worst.row, worst.column).total;
  if constexpr (kComplex<T>)
    text << ", expected " << text_of(T(static_cast<real<T>>(x.re), static_cast<real<T>>(x.im)));
  else
    text << ", expected " << text_of(static_cast<T>(x.re));
  text << ": " << worst.worst << " times the bound";
  return text.str();
}

}  // namespace

template <class T>
verdict check(const problem<T>& p, const T* result, int threads, const std::function<void(double)>& progress) {
  const product_form<T> form = make_form(p, result);
  if (form.m == 0 || form.n == 0) return {true, 0, 0, 0, "the result is empty"};

  const int64_t ld_result = p.op == operation::trmm || p.op == operation::trsm ? p.ldb : p.ldc;
  std::atomic<int64_t> next = 0;
  const auto work = [&](finding& worst, const auto& after_column) {
    for (int64_t j = next++; j < form.n; j = next++) {
      keep_worse(worst, check_column(form, j, result + j * ld_result));
      after_column(j);
    }
  };

  const int64_t helpers = std::max<int64_t>(0, std::min<int64_t>(threads, form.n) - 1);
  std::vector<finding> found(helpers);
  std::vector<std::jthread> team;
  team.reserve(helpers);
  try {
    for (finding& worst : found) team.emplace_back([&work, &worst] { work(worst, [](int64_t) {}); });
  } catch (const std::system_error&) {  // no more threads to be had: those that run share the columns
  }
  finding worst;
  work(worst, [&](int64_t j) {
    if (progress) progress(static_cast<double>(j) / static_cast<double>(form.n));
  });
  team.clear();  // joins
  if (progress) progress(1);

  for (const finding& other : found) keep_worse(worst, other);
  return {worst.worst <= 1, worst.worst, worst.row, worst.column,
          describe(form, worst, result[worst.row + worst.column * ld_result])};
}

template verdict check(const problem<float>&, const float*, int, const std::function<void(double)>&);
template verdict check(const problem<double>&, const double*, int, const std::function<void(double)>&);
template verdict check(const problem<std::complex<float>>&, const std::complex<float>*, int,
                       const std::function<void(double)>&);
template verdict check(const problem<std::complex<double>>&, const std::complex<double>*, int,
                       const std::function<void(double)>&);

}  // namespace tev::host
