// SPDX-License-Identifier: BSD-3-Clause
#include "bench/factorizations/serving.h"

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <limits>
#include <random>

#include "contest/sample_clock.h"

namespace tev::bench {

namespace {

using wide = std::complex<double>;

// One problem: a matrix, a right-hand side, and as many copies of both as are computed in one sample.
template <class T, class Integer>
class problem {
 public:
  problem(const std::string& op, void* routine) : op_(op), routine_(routine) {}

  void set_up(Integer n) {
    n_ = n;
    std::mt19937_64 random(7);
    const auto part = [&] { return 0x1p-63 * static_cast<double>(static_cast<int64_t>(random())); };
    const auto element = [&] {
      if constexpr (std::is_arithmetic_v<T>) {
        return static_cast<T>(part());
      } else {
        const auto re = static_cast<typename T::value_type>(part()), im = static_cast<typename T::value_type>(part());
        return T(re, im);
      }
    };
    a_.resize(static_cast<size_t>(n) * static_cast<size_t>(n)), b_.resize(static_cast<size_t>(n));
    std::generate(a_.begin(), a_.end(), element);
    std::generate(b_.begin(), b_.end(), element);
    if (definite())
      for (int64_t i = 0; i < n_; ++i) at(a_, i, i) = T(static_cast<float>(2 * n));
    make_copies(1);
  }

  void make_copies(int64_t count) {
    pivots_.resize(static_cast<size_t>(n_));
    factors_.resize(static_cast<size_t>(n_)), work_.resize(static_cast<size_t>(n_ * kWorkPerColumn));
    matrices_.resize(static_cast<size_t>(count)), sides_.resize(static_cast<size_t>(count));
    for (size_t i = 0; i < matrices_.size(); ++i) matrices_[i] = a_, sides_[i] = b_;
  }
  int64_t copies() const { return std::ssize(matrices_); }
  int64_t bytes() const { return n_ * n_ * static_cast<int64_t>(sizeof(T)); }

  void run() {
    for (size_t i = 0; i < matrices_.size(); ++i) call(matrices_[i].data(), sides_[i].data());
  }
  double seconds_of_run(bool threaded) {
    const double begin = contest::now(threaded);
    run();
    return contest::now(threaded) - begin;
  }

  // Of the first copy: the residual of a solution, or of the product of the factors with a vector.
  bool looks_right() {
    const std::vector<T>& f = matrices_[0];
    std::vector<wide> x(static_cast<size_t>(n_)), y = x, image = x;
    double largest = 0, error = 0;
    const bool solved = op_ == "gesv" || op_ == "posv";
    for (int64_t i = 0; i < n_; ++i) x[i] = solved ? wide(sides_[0][i]) : wide(b_[i]);
    for (int64_t j = 0; j < n_; ++j)
      for (int64_t i = 0; i < n_; ++i) image[i] += whole(i, j) * x[j];
    if (solved) {
      y.assign(b_.begin(), b_.end());
    } else if (op_ == "geqrf") {
      for (int64_t j = 0; j < n_; ++j)  // R x, and then the reflectors, from the last to the first
        for (int64_t i = 0; i <= j; ++i) y[i] += wide(at(f, i, j)) * x[j];
      for (int64_t k = n_; k-- > 0;) {
        wide sum = y[k];
        for (int64_t i = k + 1; i < n_; ++i) sum += std::conj(wide(at(f, i, k))) * y[i];
        sum *= wide(factors_[static_cast<size_t>(k)]);
        y[k] -= sum;
        for (int64_t i = k + 1; i < n_; ++i) y[i] -= wide(at(f, i, k)) * sum;
      }
    } else {
      for (int64_t j = 0; j < n_; ++j)  // U x, or L^H x
        for (int64_t i = 0; i <= j; ++i) y[i] += (definite() ? std::conj(wide(at(f, j, i))) : wide(at(f, i, j))) * x[j];
      for (int64_t i = n_; i-- > 0;) {
        if (definite()) y[i] *= wide(at(f, i, i));
        for (int64_t j = 0; j < i; ++j) y[i] += wide(at(f, i, j)) * y[j];
      }
      for (int64_t i = n_; i-- > 0 && !definite();) std::swap(y[i], y[pivots_[i] - 1]);
    }
    for (int64_t i = 0; i < n_; ++i) {
      largest = std::max(largest, std::abs(x[i]));
      error = std::max(error, std::abs(y[i] - image[i]));
    }
    const double epsilon = std::numeric_limits<decltype(std::abs(T()))>::epsilon();
    return error <= 30 * epsilon * static_cast<double>(n_) * std::sqrt(static_cast<double>(n_)) * (largest + 1);
  }

 private:
  bool definite() const { return op_[0] == 'p'; }
  template <class Matrix>
  auto& at(Matrix& a, int64_t i, int64_t j) const {
    return a[static_cast<size_t>(i + j * n_)];
  }
  wide whole(int64_t i, int64_t j) const {
    if (!definite() || i > j) return wide(at(a_, i, j));
    return i == j ? wide(std::real(at(a_, i, i))) : std::conj(wide(at(a_, j, i)));
  }

  void call(T* a, T* b) {
    const Integer one = 1;
    Integer info = 0;
    using pointer = const Integer*;
    if (op_ == "getrf")
      reinterpret_cast<void (*)(pointer, pointer, T*, pointer, Integer*, Integer*)>(routine_)(&n_, &n_, a, &n_,
                                                                                              pivots_.data(), &info);
    else if (op_ == "potrf")
      reinterpret_cast<void (*)(const char*, pointer, T*, pointer, Integer*)>(routine_)("L", &n_, a, &n_, &info);
    else if (op_ == "geqrf") {
      const Integer length = n_ * kWorkPerColumn;
      reinterpret_cast<void (*)(pointer, pointer, T*, pointer, T*, T*, pointer, Integer*)>(routine_)(
          &n_, &n_, a, &n_, factors_.data(), work_.data(), &length, &info);
    } else if (op_ == "gesv")
      reinterpret_cast<void (*)(pointer, pointer, T*, pointer, Integer*, T*, pointer, Integer*)>(routine_)(
          &n_, &one, a, &n_, pivots_.data(), b, &n_, &info);
    else
      reinterpret_cast<void (*)(const char*, pointer, pointer, T*, pointer, T*, pointer, Integer*)>(routine_)(
          "L", &n_, &one, a, &n_, b, &n_, &info);
  }

  static constexpr Integer kWorkPerColumn = 64;  // of geqrf: as much as any of them asks for

  const std::string op_;
  void* const routine_;
  Integer n_ = 0;
  std::vector<T> a_, b_;
  std::vector<std::vector<T>> matrices_, sides_;
  std::vector<Integer> pivots_;
  std::vector<T> factors_, work_;  // of geqrf
};

// A team that slept is awake before it is timed.
template <class T, class Integer>
int serve_routine(const std::string& op, void* routine, bool threaded) {
  constexpr double kSampleSeconds = 3e-3;
  constexpr int64_t kMostBytes = 64 << 20, kMostCopies = 2000;
  problem<T, Integer> p(op, routine);
  char line[64];
  for (long n = 0; std::fgets(line, sizeof line, stdin); std::fflush(stdout)) {
    if (std::sscanf(line, "case %ld", &n) == 1) {
      p.set_up(static_cast<Integer>(n));
      double seconds = p.seconds_of_run(true);
      std::puts(p.looks_right() ? "ok" : "wrong result");
      if (seconds < 1) {  // the first call had much to decide
        p.make_copies(1);
        seconds = p.seconds_of_run(true);
      }
      p.make_copies(std::clamp(static_cast<int64_t>(kSampleSeconds / seconds), int64_t{1},
                               std::clamp(kMostBytes / p.bytes(), int64_t{1}, kMostCopies)));
    } else {
      p.make_copies(p.copies());
      if (threaded && n < 1000) p.run(), p.make_copies(p.copies());
      std::printf("%.9e\n", p.seconds_of_run(threaded) / static_cast<double>(p.copies()));
    }
  }
  return 0;
}

template <class Integer>
int serve_precision(char precision, const std::string& op, void* routine, bool threaded) {
  std::puts("ready");
  std::fflush(stdout);
  switch (precision) {
    case 's':
      return serve_routine<float, Integer>(op, routine, threaded);
    case 'd':
      return serve_routine<double, Integer>(op, routine, threaded);
    case 'c':
      return serve_routine<std::complex<float>, Integer>(op, routine, threaded);
    default:
      return serve_routine<std::complex<double>, Integer>(op, routine, threaded);
  }
}

}  // namespace

bool is_factorization(const std::string& op) {
  return op == "getrf" || op == "potrf" || op == "geqrf" || op == "gesv" || op == "posv";
}

double flops_of(const std::string& op, char precision, int64_t n) {
  const double order = static_cast<double>(n), solution = op.ends_with("sv") ? 2 * order * order : 0;
  return (order * order * order *
              (op == "geqrf"  ? 4
               : op[0] == 'g' ? 2
                              : 1) /
              3 +
          solution) *
         (precision == 'c' || precision == 'z' ? 4 : 1);
}

int serve_factorization(const std::vector<std::string>& arguments) {
  const std::string &path = arguments[0], &op = arguments[1], name = arguments[2] + op;
  const bool threaded = arguments.size() > 3;
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) return std::printf("%s\n", dlerror()), 1;
  if (void* ours = dlsym(library, ("tev_lapack_" + name).c_str()))
    return serve_precision<int64_t>(arguments[2][0], op, ours, threaded);
  if (void* theirs = dlsym(library, (name + "_").c_str()))
    return serve_precision<int32_t>(arguments[2][0], op, theirs, threaded);
  return std::printf("no %s in %s\n", name.c_str(), path.c_str()), 1;
}

}  // namespace tev::bench
