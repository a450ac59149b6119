// SPDX-License-Identifier: BSD-3-Clause
// Random calls of every BLAS routine, by its public name and by its entry point, against the oracle of host/check.h.
// Options, sizes, scalars, strides, paddings and thread counts are drawn anew in each run. A child process runs one
// tier for a moment, then the next one follows. What a routine must not read is NaN, what it must not write keeps its
// bits, operands end at an unmapped page.
//
// A further routine is a row of rows() and, unless its operands look like another's, a function above it.
#include <omp.h>

#include "tests/support/each_tier.h"
#include "tests/support/effort.h"
#include "tests/support/entry_calls.h"
#include "tests/support/sample.h"
#include "tests/support/vector_checks.h"

namespace tev::test {
namespace {

// ---- Judging -------------------------------------------------------------------------------------------------------

// result = alpha op(A) op(B) + beta C ?
template <class T>
void expect_product(sample& s, const char* letters, int64_t k, T alpha, const matrix<T>& a, const matrix<T>& b, T beta,
                    const matrix<T>& c, const matrix<T>& result) {
  EXPECT_TRUE(is_product(letters, k, alpha, a, b, beta, c, result)) << s.words.str();
}

template <class T>
void expect_sum(sample& s, T alpha, const strided<T>& x, T beta, const strided<T>& y, const strided<T>& result) {
  matrix<T> one(1, 1);
  one(0, 0) = T(1);
  expect_product(s, "NN", 1, alpha, column_of(x), one, beta, column_of(y), column_of(result));
  EXPECT_TRUE(result.gaps_are_intact()) << s.words.str();
}

// ---- The routines --------------------------------------------------------------------------------------------------

// By public name and by entry point.
#define TEV_BOTH(name) static constexpr std::array name = {blas::blas_calls<E>::name, entries<T>::name};
template <class T>
struct calls_in_every_precision {
  using E = c_element_t<T>;
  TEV_BOTH(scal)
  TEV_BOTH(copy)
  TEV_BOTH(axpy)
  TEV_BOTH(swap) TEV_BOTH(gemv) TEV_BOTH(geru) TEV_BOTH(gerc) TEV_BOTH(gemmger)
};
template <class T>
struct calls;
#define TEV_CALLS(type, more)                           \
  template <>                                           \
  struct calls<type> : calls_in_every_precision<type> { \
    using T = type;                                     \
    more                                                \
  };
#define TEV_NAME(name, p, routine) static constexpr auto name = tev_blas_##p##routine;
// Level 2 with triangles: the names of the real types, sy, sb, sp, stand for he, hb, hp of the complex ones, too.
#define TEV_TRIANGLES(p, sy, sb, sp) \
  TEV_NAME(symv, p, sy##mv)          \
  TEV_NAME(sbmv, p, sb##mv)          \
  TEV_NAME(spmv, p, sp##mv)          \
  TEV_NAME(syr, p, sy##r)            \
  TEV_NAME(spr, p, sp##r)            \
  TEV_NAME(syr2, p, sy##r2)          \
  TEV_NAME(spr2, p, sp##r2)          \
  TEV_NAME(trmv, p, trmv)            \
  TEV_NAME(tbmv, p, tbmv)            \
  TEV_NAME(tpmv, p, tpmv)            \
  TEV_NAME(trsv, p, trsv) TEV_NAME(tbsv, p, tbsv) TEV_NAME(tpsv, p, tpsv) TEV_NAME(gbmv, p, gbmv)
#define TEV_NUMBERS(p, pp, rp) \
  TEV_NAME(asum, pp, asum) TEV_NAME(nrm2, pp, nrm2) TEV_NAME(rot, rp, rot) TEV_NAME(iamax, i, p##amax)
#define TEV_REAL_CALLS(p) TEV_BOTH(dotu) TEV_NAME(rotm, p, rotm) TEV_TRIANGLES(p, sy, sb, sp) TEV_NUMBERS(p, p, p)
#define TEV_COMPLEX_CALLS(p, pp, rp) \
  TEV_NAME(dotu, p, dotu)            \
  TEV_NAME(dotc, p, dotc) TEV_NAME(scal_by_real, rp, scal) TEV_TRIANGLES(p, he, hb, hp) TEV_NUMBERS(p, pp, rp)
TEV_CALLS(float, TEV_REAL_CALLS(s))
TEV_CALLS(double, TEV_REAL_CALLS(d))
TEV_CALLS(std::complex<float>, TEV_COMPLEX_CALLS(c, sc, cs))
TEV_CALLS(std::complex<double>, TEV_COMPLEX_CALLS(z, dz, zd))

template <class T>
void scal(sample& s) {
  const T alpha = s.scalar<T>();
  const strided<T> x = s.vector<T>(s.size(20000));
  const strided<T> result = x;
  const int64_t n = x.size(), inc = std::abs(*x.inc());
  s.one_of(calls<T>::scal)(&n, in(&alpha), result.address(), &inc);
  expect_sum(s, T(0), x, alpha, x, result);
}

template <class T>
void copy(sample& s) {
  const int64_t n = s.size(20000);
  const strided<T> x = s.vector<T>(n), result = s.vector<T>(n, false);
  s.one_of(calls<T>::copy)(&n, x.address(), x.inc(), result.address(), result.inc());
  expect_sum(s, T(0), x, T(1), x, result);
}

template <class T>
void swap(sample& s) {
  const int64_t n = s.size(20000);
  const strided<T> x = s.vector<T>(n), y = s.vector<T>(n), new_x = x, new_y = y;
  entries<T>::swap(&n, new_x.address(), x.inc(), new_y.address(), y.inc());
  expect_sum(s, T(0), x, T(1), x, new_y);
  expect_sum(s, T(0), y, T(1), y, new_x);
}

template <class T>
void axpy(sample& s) {
  const int64_t n = s.size(20000);
  const T alpha = s.scalar<T>();
  const strided<T> x = s.vector<T>(n), y = s.vector<T>(n), result = y;
  s.one_of(calls<T>::axpy)(&n, in(&alpha), x.address(), x.inc(), result.address(), y.inc());
  expect_sum(s, alpha, x, T(1), y, result);
}

// ---- Numbers of vectors --------------------------------------------------------------------------------------------

// result = op(x) . y ?
template <class T>
void expect_dot(sample& s, char op, const matrix<T>& x, const matrix<T>& y, T result) {
  const matrix<T> none(1, 1), number(1, 1, 0);
  number(0, 0) = result;
  const char letters[] = {op, 'N', 0};
  expect_product(s, letters, x.rows(), T(1), x, y, T(0), none, number);
}

template <class T, char Op>
void dot(sample& s) {
  const int64_t n = s.size(40000);
  const strided<T> x = s.vector<T>(n), y = s.vector<T>(n);
  T result;
  if constexpr (!kIsComplex<T>)
    result = s.one_of(calls<T>::dotu)(&n, x.address(), x.inc(), y.address(), y.inc());
  else
    (Op == 'C' ? calls<T>::dotc : calls<T>::dotu)(out(&result), &n, x.address(), x.inc(), y.address(), y.inc());
  expect_dot(s, Op, column_of(x), column_of(y), result);
}

// The sum is rounded once.
void dsdot(sample& s) {
  const int64_t n = s.size(40000);
  const strided<float> x = s.vector<float>(n), y = s.vector<float>(n);
  const float b = s.scalar<float>();
  long double sum = 0, moduli = 0;
  for (int64_t i = 0; i < n; ++i) sum += double{x[i]} * y[i], moduli += std::abs(double{x[i]} * y[i]);
  const double bound = static_cast<double>(n + 4) * 0x1p-53 * static_cast<double>(moduli);
  const double in_double = tev_blas_dsdot(&n, x.data(), x.inc(), y.data(), y.inc());
  EXPECT_TRUE(std::abs(in_double - static_cast<double>(sum)) <= bound) << s.words.str();
  EXPECT_EQ(tev_blas_sdsdot(&n, &b, x.data(), x.inc(), y.data(), y.inc()), static_cast<float>(in_double + b));
}

// The moduli of the real numbers in x.
template <class T>
matrix<real_part_t<T>> moduli_of(const strided<T>& x) {
  constexpr int64_t kParts = kIsComplex<T> ? 2 : 1;
  matrix<real_part_t<T>> moduli(kParts * x.size(), 1, 0);
  for (int64_t i = 0; i < moduli.rows(); ++i)
    moduli(i, 0) = std::abs(i % kParts == 0 ? std::real(x[i / kParts]) : std::imag(x[i / kParts]));
  return moduli;
}

template <class T>
void asum(sample& s) {
  const int64_t n = s.size(40000);
  const strided<T> x = s.vector<T>(n);
  const auto moduli = moduli_of(x), ones = moduli;
  std::fill_n(ones.data(), ones.size(), real_part_t<T>(1));
  const real_part_t<T> result = calls<T>::asum(&n, x.address(), x.inc());
  if (*x.inc() < 1)
    EXPECT_EQ(result, 0);
  else
    expect_dot(s, 'T', moduli, ones, result);
}

// Numbers of any size: near the middle, whose squares overflow, whose squares underflow, or all of these.
template <class T>
void nrm2(sample& s) {
  using R = real_part_t<T>;
  const int64_t n = s.size(40000),
                exponents[] = {0, std::numeric_limits<R>::max_exponent - 20, std::numeric_limits<R>::min_exponent - 5};
  const strided<T> x = s.vector<T>(n);
  const int64_t choice = s.below(4);
  for (int64_t i = 0; i < n; ++i)
    x[i] *= std::ldexp(R(1), static_cast<int>(exponents[choice < 3 ? choice : s.below(3)]));
  long double squares = 0;
  for (int64_t i = 0; i < n; ++i) squares += std::norm(std::complex<long double>(std::real(x[i]), std::imag(x[i])));
  const long double norm = std::sqrt(squares), u = std::numeric_limits<R>::epsilon() / 2;
  const long double bound = static_cast<long double>(n + 8) * u * norm + std::numeric_limits<R>::denorm_min();
  const R result = calls<T>::nrm2(&n, x.address(), x.inc());
  EXPECT_TRUE(std::abs(result - norm) <= bound) << s.words.str() << n << ": " << result << " for " << norm;
}

template <class T>
void iamax(sample& s) {
  const int64_t n = s.size(40000);
  const strided<T> x = s.vector<T>(n);
  for (int64_t i = s.below(3); i > 0 && n > 0; --i) x[s.below(n)] = nan_element<T>();
  const auto modulus = [&](int64_t i) { return std::abs(std::real(x[i])) + std::abs(std::imag(x[i])); };
  int64_t first = 0;
  for (int64_t i = 1; i < n; ++i)
    if (modulus(i) > modulus(first)) first = i;
  EXPECT_EQ(calls<T>::iamax(&n, x.address(), x.inc()), *x.inc() < 1 || n < 1 ? 0 : first + 1) << s.words.str() << n;
}

// ---- Rotations -----------------------------------------------------------------------------------------------------

// h by columns.
template <class T, class Rotate>
void rotate(sample& s, const std::array<real_part_t<T>, 4>& h, const Rotate& call) {
  const int64_t n = s.size(20000);
  const strided<T> x = s.vector<T>(n), y = s.vector<T>(n), new_x = x, new_y = y;
  call(&n, new_x.address(), x.inc(), new_y.address(), y.inc());
  expect_sum(s, T(h[2]), y, T(h[0]), x, new_x);
  expect_sum(s, T(h[1]), x, T(h[3]), y, new_y);
}

template <class T>
void rot(sample& s) {
  using R = real_part_t<T>;
  const R c = s.scalar<R>(), sine = s.scalar<R>();
  rotate<T>(s, {c, -sine, sine, c}, [&](auto... operands) { calls<T>::rot(operands..., &c, &sine); });
}

template <class T>
void rotm(sample& s) {
  const T h11 = s.scalar<T>(), h21 = s.scalar<T>(), h12 = s.scalar<T>(), h22 = s.scalar<T>(), nan = nan_element<T>();
  const struct {
    std::array<T, 5> param;
    std::array<T, 4> h;
  } forms[] = {{{-1, h11, h21, h12, h22}, {h11, h21, h12, h22}},
               {{0, nan, h21, h12, nan}, {1, h21, h12, 1}},
               {{1, h11, nan, nan, h22}, {h11, -1, 1, h22}},
               {{-2, nan, nan, nan, nan}, {1, 0, 0, 1}}};
  const auto& form = s.one_of(forms);
  rotate<T>(s, form.h, [&](auto... operands) { calls<T>::rotm(operands..., form.param.data()); });
}

template <class T>
void scal_by_real(sample& s) {
  const real_part_t<T> alpha = s.scalar<real_part_t<T>>();
  const strided<T> x = s.vector<T>(s.size(20000)), result = x;
  const int64_t n = x.size();
  calls<T>::scal_by_real(&n, &alpha, result.address(), x.inc());
  expect_sum(s, T(0), x, *x.inc() < 1 ? T(1) : T(alpha), x, result);
}

// ---- Matrices with vectors -----------------------------------------------------------------------------------------

// Of the routines in every precision those by one kind of name: a set of members, as the checks take them.
template <class T>
struct chosen_calls {
  explicit chosen_calls(sample& s) : by_entry(s.below(2) != 0) {}
  bool by_entry;
  decltype(calls<T>::gemv[0]) gemv = calls<T>::gemv[by_entry];
  decltype(calls<T>::geru[0]) geru = calls<T>::geru[by_entry], gerc = calls<T>::gerc[by_entry];
  decltype(calls<T>::gemmger[0]) gemmger = calls<T>::gemmger[by_entry];
};

template <class T>
void gemv(sample& s) {
  const char trans = s.letter("NTC");
  const auto [m, n] = s.sizes<2>();
  expect_gemv<T>(chosen_calls<T>(s).gemv, trans, m, n, s.increment(), s.increment(), s.random, s.kind, s.below(20));
}

template <class T>
void rank_1(sample& s) {
  const std::string pair = {s.letter("NTC"), s.letter("NTC")}, forms[] = {pair, "ger", "gerc"};
  const auto [m, n] = s.sizes<2>();
  expect_rank_1<T>(chosen_calls<T>(s), s.one_of(forms), m, n, s.increment(), s.increment(), s.random, s.kind,
                   s.below(20));
}

template <class T>
void mscale(sample& s) {
  const auto [m, n] = s.sizes<2>();
  const T beta = s.scalar<T>();
  const matrix<T> c = s.general<T>(m, n, beta != T(0)), result = c;
  const int64_t ldc = c.ld();
  blas::kernel_calls<c_element_t<T>>::mscale(&m, &n, in(&beta), at(result), &ldc);
  expect_product(s, "NN", 0, T(0), c, c, beta, c, result);
}

enum class stored { full, band, packed };

// The triangle of a matrix in its storage, where all that is no part of it is NaN. Of a band, the matrix becomes zero
// beside it.
template <class T, stored Kind>
class stored_triangle {
 public:
  stored_triangle(sample& s, char uplo, const matrix<T>& full)
      : n_(full.rows()),
        upper_(std::toupper(uplo) == 'U'),
        k(Kind == stored::band ? s.below(std::min<int64_t>(n_, 40) + 2) : n_),
        array_(Kind == stored::full   ? n_
               : Kind == stored::band ? k + 1
                                      : 1,
               Kind == stored::packed ? n_ * (n_ + 1) / 2 : n_, Kind == stored::packed ? 0 : s.below(20)),
        ld(array_.ld()) {
    each([&](int64_t i, int64_t j) {
      if (std::abs(i - j) > k)
        full(i, j) = T(0);
      else
        at(i, j) = full(i, j);
    });
  }
  void copy_to(const matrix<T>& full) const {
    each([&](int64_t i, int64_t j) { full(i, j) = at(i, j); });
    EXPECT_TRUE(array_.padding_is_intact());
  }

  // Calls f(head ..., k, middle ..., A, leading dimension, tail ...), with what the storage has of these.
  template <class... Head, class... Middle, class... Tail>
  void call(const auto& f, std::tuple<Head...> head, std::tuple<Middle...> middle, std::tuple<Tail...> tail) const {
    const auto a = std::tuple_cat(middle, std::tuple(out(array_.data())));
    if constexpr (Kind == stored::full) std::apply(f, std::tuple_cat(head, a, std::tuple(&ld), tail));
    if constexpr (Kind == stored::band) std::apply(f, std::tuple_cat(head, std::tuple(&k), a, std::tuple(&ld), tail));
    if constexpr (Kind == stored::packed) std::apply(f, std::tuple_cat(head, a, tail));
  }

 private:
  void each(const auto& body) const {
    for (int64_t j = 0; j < n_; ++j)
      for (int64_t i = upper_ ? 0 : j; i < (upper_ ? j + 1 : n_); ++i) body(i, j);
  }
  T& at(int64_t i, int64_t j) const {
    if (Kind == stored::full) return array_(i, j);
    if (Kind == stored::band) return array_((upper_ ? k : 0) + i - j, j);
    return array_(0, (upper_ ? j * (j + 1) / 2 : j * n_ - j * (j + 1) / 2) + i);
  }
  int64_t n_;
  bool upper_;
  int64_t k;
  matrix<T> array_;
  int64_t ld;
};

// A column as a vector with gaps, and back.
template <class T>
strided<T> vector_of(sample& s, const matrix<T>& column) {
  const strided<T> x = s.vector<T>(column.rows(), false);
  for (int64_t i = 0; i < x.size(); ++i) x[i] = column(i, 0);
  return x;
}
template <class T>
void expect_column(sample& s, const blas_case<T>& x, const strided<T>& result) {
  const matrix<T> column = x.start();
  for (int64_t i = 0; i < result.size(); ++i) column(i, 0) = result[i];
  EXPECT_TRUE(result.gaps_are_intact()) << s.words.str();
  EXPECT_TRUE(is_right(x, column)) << s.words.str();
}

template <class T, stored Kind, auto Call>
void symmetric_product(sample& s) {
  const std::string options = {'L', s.letter("UL")};
  const int64_t n = s.size(600);
  const blas_case<T> x(
      problem_of<T>(kIsComplex<T> ? operation::hemm : operation::symm, options, n, 1, 0, s.scalar<T>(), s.scalar<T>()),
      s.random, s.kind);
  const stored_triangle<T, Kind> a(s, x.p.uplo, x.a);
  const strided<T> b = vector_of(s, x.b), y = vector_of(s, x.c);
  a.call(Call, std::tuple(&x.p.uplo, &n), std::tuple(in(&x.p.alpha)),
         std::tuple(b.address(), b.inc(), in(&x.p.beta), y.address(), y.inc()));
  expect_column(s, x, y);
}

template <class T, stored Kind, operation Op, auto Call>
void triangular(sample& s) {
  const std::string options = {'L', s.letter("UL"), s.letter("NTC"), s.letter("NU")};
  const int64_t n = s.size(600);
  const blas_case<T> x(problem_of<T>(Op, options, n, 1, 0, T(1), T(0)), s.random,
                       Op == operation::trsm ? values::fractions : s.kind);
  const stored_triangle<T, Kind> a(s, x.p.uplo, x.a);
  const strided<T> b = vector_of(s, x.b);
  a.call(Call, std::tuple(&x.p.uplo, &x.p.transa, &x.p.diag, &n), std::tuple(), std::tuple(b.address(), b.inc()));
  expect_column(s, x, b);
}

// Op: of the rank-k update of which this is the one with k = 1.
template <class T, stored Kind, operation Op, auto Call>
void symmetric_update(sample& s) {
  const std::string options = {s.letter("UL"), 'N'};
  const int64_t n = s.size(600);
  const blas_case<T> x(problem_of<T>(Op, options, 0, n, 1, s.scalar<T>(), T(1)), s.random, s.kind);
  const stored_triangle<T, Kind> a(s, x.p.uplo, x.c);
  const strided<T> b = vector_of(s, x.a);
  const std::tuple head(&x.p.uplo, &n);
  const std::tuple first(b.address(), b.inc());
  if constexpr (Op == operation::herk) {
    a.call(Call, head, std::tuple_cat(std::tuple(&in(&x.p.alpha)->real), first), std::tuple());
  } else if constexpr (Op == operation::syrk) {
    a.call(Call, head, std::tuple_cat(std::tuple(&x.p.alpha), first), std::tuple());
  } else {
    const strided<T> y = vector_of(s, x.b);
    a.call(Call, head, std::tuple_cat(std::tuple(in(&x.p.alpha)), first, std::tuple(y.address(), y.inc())),
           std::tuple());
  }
  // Nothing happens where alpha is 0: a Hermitian diagonal keeps its imaginary parts.
  const matrix<T> result = x.start();
  a.copy_to(result);
  if (x.p.alpha == T(0))
    EXPECT_TRUE(result.same_bits(x.start())) << s.words.str();
  else
    EXPECT_TRUE(is_right(x, result)) << s.words.str();
}

template <class T>
void gbmv(sample& s) {
  const char trans = s.letter("NTC");
  const auto [m, n] = s.sizes<2>();
  const int64_t kl = s.below(std::min<int64_t>(m, 20) + 2), ku = s.below(std::min<int64_t>(n, 20) + 2);
  const bool plain = std::toupper(trans) == 'N';
  const T alpha = s.scalar<T>(), beta = s.scalar<T>();
  const matrix<T> a = s.general<T>(m, n), band(kl + ku + 1, n, s.below(20));
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = 0; i < m; ++i)
      if (i - j > kl || j - i > ku)
        a(i, j) = T(0);
      else
        band(ku + i - j, j) = a(i, j);
  const strided<T> x = s.vector<T>(plain ? n : m), y = s.vector<T>(plain ? m : n, beta != T(0)), result = y;
  const int64_t ld = band.ld();
  calls<T>::gbmv(&trans, &m, &n, &kl, &ku, in(&alpha), at(band), &ld, x.address(), x.inc(), in(&beta), result.address(),
                 y.inc());
  if (m == 0 || n == 0)
    EXPECT_TRUE(result.same_bits(y)) << s.words.str();
  else
    expect_product(s, std::string({trans, 'N'}).c_str(), x.size(), alpha, a, column_of(x), beta, column_of(y),
                   column_of(result));
  EXPECT_TRUE(result.gaps_are_intact()) << s.words.str();
}

template <class T, operation Op>
void level3(sample& s) {
  const blas_case<T> x = s.level3<T>(Op);
  const matrix<T> result = x.start();
  if (s.below(2) == 0)
    call(x.p, result.data());
  else
    call(x.p, result.data(), entries<T>{});
  EXPECT_TRUE(is_right(x, result)) << s.words.str();
}

struct row {
  const char* name;
  void (*run)(sample&);
};

template <class T>
const std::vector<row>& rows() {
  static const std::vector<row> all = [] {
    constexpr auto kRank1 = kIsComplex<T> ? operation::herk : operation::syrk;
    constexpr auto kRank2 = kIsComplex<T> ? operation::her2k : operation::syr2k;
    std::vector<row> both = {{"scal", scal<T>},
                             {"copy", copy<T>},
                             {"axpy", axpy<T>},
                             {"swap", swap<T>},
                             {"asum", asum<T>},
                             {"nrm2", nrm2<T>},
                             {"iamax", iamax<T>},
                             {"rot", rot<T>},
                             {"symv", symmetric_product<T, stored::full, calls<T>::symv>},
                             {"sbmv", symmetric_product<T, stored::band, calls<T>::sbmv>},
                             {"spmv", symmetric_product<T, stored::packed, calls<T>::spmv>},
                             {"syr", symmetric_update<T, stored::full, kRank1, calls<T>::syr>},
                             {"spr", symmetric_update<T, stored::packed, kRank1, calls<T>::spr>},
                             {"syr2", symmetric_update<T, stored::full, kRank2, calls<T>::syr2>},
                             {"spr2", symmetric_update<T, stored::packed, kRank2, calls<T>::spr2>},
                             {"trmv", triangular<T, stored::full, operation::trmm, calls<T>::trmv>},
                             {"tbmv", triangular<T, stored::band, operation::trmm, calls<T>::tbmv>},
                             {"tpmv", triangular<T, stored::packed, operation::trmm, calls<T>::tpmv>},
                             {"trsv", triangular<T, stored::full, operation::trsm, calls<T>::trsv>},
                             {"tbsv", triangular<T, stored::band, operation::trsm, calls<T>::tbsv>},
                             {"tpsv", triangular<T, stored::packed, operation::trsm, calls<T>::tpsv>},
                             {"gbmv", gbmv<T>},
                             {"gemv", gemv<T>},
                             {"rank one", rank_1<T>},
                             {"mscale", mscale<T>},
                             {"gemm", level3<T, operation::gemm>},
                             {"symm", level3<T, operation::symm>},
                             {"trmm", level3<T, operation::trmm>},
                             {"trsm", level3<T, operation::trsm>},
                             {"syrk", level3<T, operation::syrk>},
                             {"syr2k", level3<T, operation::syr2k>}};
    if constexpr (kIsComplex<T>)
      both.insert(both.end(), {{"dotu", dot<T, 'T'>},
                               {"dotc", dot<T, 'C'>},
                               {"scal by real", scal_by_real<T>},
                               {"hemm", level3<T, operation::hemm>},
                               {"herk", level3<T, operation::herk>},
                               {"her2k", level3<T, operation::her2k>}});
    else
      both.insert(both.end(), {{"dot", dot<T, 'T'>}, {"dsdot", dsdot}, {"rotm", rotm<T>}});
    return both;
  }();
  return all;
}

// ---- The runs ------------------------------------------------------------------------------------------------------

using steady = std::chrono::steady_clock;

// One of the rows in one of the precisions, on a team of any size.
template <class... T>
void call_one(sample& s) {
  const std::vector<row>* const precisions[] = {&rows<T>()...};
  const auto precision = static_cast<size_t>(s.below(std::ssize(precisions)));
  const row& chosen = s.one_of(*precisions[precision]);
  const int threads[] = {1, 2, 3, 4, 7};
  const int team = s.one_of(threads);
  omp_set_num_threads(team);
  tev_serv_set_num_threads_local(static_cast<int32_t>(s.below(2) * team));
  s.words << "sdcz"[precision] << chosen.name << ' ' << team << " threads ";
  chosen.run(s);
}

int run_until(steady::time_point end, uint64_t seed) {
  engine random(seed);
  int64_t count = 0;
  for (; steady::now() < end && !testing::Test::HasFailure(); ++count) {
    sample s = {random, random() % 2 ? values::whole : values::fractions, {}};
    call_one<float, double, std::complex<float>, std::complex<double>>(s);
  }
  std::printf("%ld calls\n", static_cast<long>(count));
  return testing::Test::HasFailure();
}

TEST(Differential, EveryRoutineOnEveryTierAgreesWithTheOracle) {
  const auto end = steady::now() + std::chrono::seconds(long_run() ? 600 : 5);
  int64_t calls = 0;
  for (uint64_t seed = test_seed(); steady::now() < end; ++seed) {
    const tier_in_force& tier = kTiersInForce[seed % std::size(kTiersInForce)];
    if (!processor_runs(tier.name)) continue;
    environment settings = tier.settings;
    settings.emplace_back("TEV_DYNAMIC", seed / 8 % 2 ? "TRUE" : "FALSE");
    const child_result result = in_child(
        settings, [&] { return run_until(std::min(end, steady::now() + std::chrono::milliseconds(600)), seed); });
    ASSERT_EQ(result.status, 0) << tier.name << ", " << repeat_with(seed) << '\n' << result.out << result.err;
    calls += std::stol(result.out);
  }
  std::printf("%ld calls, %s\n", static_cast<long>(calls), repeat_with(test_seed()).c_str());
}

}  // namespace
}  // namespace tev::test
