// SPDX-License-Identifier: BSD-3-Clause
// Factorizations of a handle with a real sink, the matrices for them, and how their factors are judged.
#pragma once

#include "tests/factorizations/reflected.h"
#include "tev/offload.h"

namespace tev::test {

#define TEV_CALL(name) static constexpr auto name = TEV_OF(T, tev_offload_, name)
template <class T>
struct offload_calls {
  TEV_CALL(getrf);
  TEV_CALL(getrs);
  TEV_CALL(getri);
  TEV_CALL(gecon);
  TEV_CALL(gels);
  TEV_CALL(gesv);
  TEV_CALL(potrf);
  TEV_CALL(potrs);
  TEV_CALL(potri);
  TEV_CALL(pocon);
  TEV_CALL(posv);
  TEV_CALL(geqrf);
};
#undef TEV_CALL

enum class what { lu, lower_cholesky, upper_cholesky, qr };

class sink_handle {
 public:
  explicit sink_handle(int32_t sink_threads, int32_t host_threads = 1, bool finish_here = false)
      : sink_handle(TEV_SINK_PATH, sink_threads, host_threads, finish_here) {}
  sink_handle(const char* sink, int32_t sink_threads, int32_t host_threads, bool finish_here = false) {
    const tev_offload_options options = {sink, nullptr, sink_threads, 1, finish_here, host_threads};
    EXPECT_EQ(tev_offload_open(&options, &handle_), TEV_OFFLOAD_OK) << tev_offload_last_error(nullptr);
  }
  sink_handle(const sink_handle&) = delete;
  sink_handle& operator=(const sink_handle&) = delete;
  ~sink_handle() { tev_offload_close(handle_); }
  tev_offload* get() const { return handle_; }

 private:
  tev_offload* handle_ = nullptr;
};

template <class T>
struct factored {
  matrix<T> a;
  matrix<T> tau;
  std::vector<int64_t> pivots;
  int64_t info;
  int code;
};

template <class T, class Calls = offload_calls<T>>
factored<T> factor(tev_offload* handle, what kind, const matrix<T>& start, T* shared = nullptr) {
  const int64_t m = start.rows(), n = start.columns(), order = std::min(m, n), lda = start.ld();
  factored<T> f = {start, {order, 1, 0}, std::vector<int64_t>(static_cast<size_t>(order)), 7, 7};
  if (shared != nullptr) std::copy_n(start.data(), start.size(), shared);
  auto* const a = reinterpret_cast<c_element_t<T>*>(shared != nullptr ? shared : f.a.data());
  if (kind == what::lu)
    f.code = Calls::getrf(handle, &m, &n, a, &lda, f.pivots.data(), &f.info);
  else if (kind == what::qr)
    f.code = Calls::geqrf(handle, &m, &n, a, &lda, at(f.tau), &f.info);
  else
    f.code = Calls::potrf(handle, kind == what::lower_cholesky ? "L" : "u", &n, a, &lda, &f.info);
  if (shared != nullptr) std::copy_n(shared, start.size(), f.a.data());
  return f;
}

template <class T>
matrix<T> start_for(what kind, int64_t m, int64_t n, engine& random) {
  matrix<T> a(m, n);
  a.fill(random, values::fractions);
  const auto diagonal = static_cast<real_part_t<T>>(2 * n);
  if (kind == what::lu || kind == what::qr) return a;
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < n; ++i)
      if (i != j && (i > j) != (kind == what::lower_cholesky)) a(i, j) = nan_element<T>();
    a(j, j) = T(diagonal);
  }
  return a;
}

// The entries of a triangle, zeros elsewhere; ones on the diagonal of a unit one.
template <class T>
wide_matrix<wide_t<T>> triangle(const matrix<T>& a, int64_t rows, int64_t columns, bool lower, bool unit) {
  wide_matrix<wide_t<T>> result(rows, columns);
  for (int64_t j = 0; j < columns; ++j)
    for (int64_t i = 0; i < rows; ++i)
      if (i == j || (i > j) == lower) result(i, j) = i == j && unit ? wide_t<T>(1) : wide_t<T>(a(i, j));
  return result;
}

template <class T>
void expect_factors(what kind, const matrix<T>& start, const factored<T>& f, const std::string& name) {
  engine random(5);
  const int64_t m = start.rows(), n = start.columns(), order = std::min(m, n);
  ASSERT_TRUE(f.a.padding_is_intact()) << name;
  if (kind == what::qr) {
    factored_qr<T> q(start);  // whose factors are replaced
    std::copy_n(f.a.data(), f.a.size(), q.a.data());
    std::copy_n(f.tau.data(), order, q.tau.data());
    const auto x = probes<T>(n, random);
    return expect_columns_close<T>(q.reflected(q.upper() * x, false), widened(start) * x,
                                   column_norms(moduli(widened(start)) * moduli(x)), m, name);
  }
  if (kind == what::lu) {
    wide_matrix<wide_t<T>> a = widened(start);
    for (int64_t i = 0; i < order; ++i)
      for (int64_t j = 0; j < n; ++j) std::swap(a(i, j), a(f.pivots[static_cast<size_t>(i)] - 1, j));
    return expect_product<T>(a, triangle(f.a, m, order, true, true), triangle(f.a, order, n, false, false), order + 1,
                             random, name);
  }
  const bool lower = kind == what::lower_cholesky;
  const auto half = triangle(f.a, n, n, lower, false);
  wide_matrix<wide_t<T>> whole = triangle(start, n, n, lower, false);
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = 0; i < n; ++i) {
      if (i != j && (i > j) != lower) ASSERT_TRUE(std::isnan(std::real(f.a(i, j)))) << name;
      if (i != j && (i > j) != lower) whole(i, j) = conjugate(whole(j, i));
    }
  expect_product<T>(whole, lower ? half : adjoint(half), lower ? adjoint(half) : half, n + 2, random, name);
}

inline constexpr struct {
  what kind;
  const char* name;
} kFactorizations[] = {
    {what::lu, "LU"}, {what::lower_cholesky, "Cholesky L"}, {what::upper_cholesky, "Cholesky U"}, {what::qr, "QR"}};

// X of A X = B by LU and Cholesky of these orders.
template <class T, class Calls>
void expect_systems_solved(tev_offload* handle, std::initializer_list<int64_t> orders) {
  for (const what kind : {what::lu, what::upper_cholesky})
    for (const int64_t n : orders) {
      engine random(6);
      const matrix<T> start = start_for<T>(kind, n, n, random);
      factored<T> f = {start, {1, 1}, std::vector<int64_t>(static_cast<size_t>(n)), 7, 7};
      matrix<T> x(n, 2);
      x.fill(random, values::fractions);
      wide_matrix<wide_t<T>> right = widened(x);
      const int64_t two = 2, lda = start.ld(), ldb = x.ld();
      f.code = kind == what::lu ? Calls::gesv(handle, &n, &two, at(f.a), &lda, f.pivots.data(), at(x), &ldb, &f.info)
                                : Calls::posv(handle, "U", &n, &two, at(f.a), &lda, at(x), &ldb, &f.info);
      ASSERT_EQ(f.code, TEV_OFFLOAD_OK);
      ASSERT_EQ(f.info, 0);
      for (int64_t i = 0; i < n && kind == what::lu; ++i)
        for (int64_t j = 0; j < 2; ++j) std::swap(right(i, j), right(f.pivots[static_cast<size_t>(i)] - 1, j));
      const auto upper = triangle(f.a, n, n, false, false);
      const auto lower = kind == what::lu ? triangle(f.a, n, n, true, true) : adjoint(upper);
      const auto solution = widened(x);
      expect_close<T>(lower * (upper * solution), right, moduli(lower) * (moduli(upper) * moduli(solution)), 3 * n,
                      "solution of order " + std::to_string(n));
    }
}

// Systems with a solution; went(): whether the last call had its sink.
template <class T, class Calls, class Went>
void expect_least_squares_solved(tev_offload* handle, Went went) {
  engine random(10);
  for (const char trans : {'N', kIsComplex<T> ? 'C' : 'T'})
    for (const auto& [m, n] : {std::pair<int64_t, int64_t>{560, 520}, {520, 560}}) {
      const matrix<T> start = start_for<T>(what::qr, m, n, random), a = start;
      const auto op_a = trans == 'N' ? widened(start) : adjoint(widened(start));
      matrix<T> b(560, 2), x(op_a.columns, 2);
      x.fill(random, values::fractions);
      const auto right = op_a * widened(x);
      for (int64_t j = 0; j < 2; ++j)
        for (int64_t i = 0; i < op_a.rows; ++i) b(i, j) = T(right(i, j));
      const int64_t rows = m, columns = n, two = 2, lda = a.ld(), ldb = b.ld();
      int64_t info = 7;
      ASSERT_EQ(Calls::gels(handle, &trans, &rows, &columns, &two, at(a), &lda, at(b), &ldb, &info), TEV_OFFLOAD_OK);
      EXPECT_EQ(info, 0);
      EXPECT_TRUE(went());
      for (int64_t j = 0; j < 2; ++j)
        for (int64_t i = 0; i < x.rows(); ++i) x(i, j) = b(i, j);
      expect_columns_close<T>(op_a * widened(x), right, column_norms(moduli(op_a) * moduli(widened(x))), m + n,
                              std::string("gels ") + trans + std::to_string(m));
    }
}

}  // namespace tev::test
