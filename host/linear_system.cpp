// SPDX-License-Identifier: BSD-3-Clause
#include "host/linear_system.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

#include "host/failure.h"
#include "host/fill.h"
#include "host/parse.h"
#include "host/replacement_file.h"
#include "host/wide.h"
#include "tev/blas.h"
#include "tev/lapack.h"
#include "tev/offload.h"

namespace tev::host {
namespace {

constexpr const char* kNames[] = {"lu", "cholesky", "qr", "solve", "lstsq"};
constexpr int64_t kDefaultOrder = 1000;

// The routines of one precision, with std::complex for the library's own types.
template <class T>
struct routines;
#define TEV_ROUTINES(T, E, p, ormqr_name)                     \
  template <>                                                 \
  struct routines<T> {                                        \
    using element = E;                                        \
    static constexpr auto getrf = tev_offload_##p##getrf;     \
    static constexpr auto potrf = tev_offload_##p##potrf;     \
    static constexpr auto geqrf = tev_offload_##p##geqrf;     \
    static constexpr auto getrs = tev_lapack_##p##getrs;      \
    static constexpr auto gecon = tev_lapack_##p##gecon;      \
    static constexpr auto pocon = tev_lapack_##p##pocon;      \
    static constexpr auto laswp = tev_lapack_##p##laswp;      \
    static constexpr auto ormqr = tev_lapack_##p##ormqr_name; \
    static constexpr auto trsm = tev_blas_##p##trsm;          \
    static constexpr auto gemm = tev_blas_##p##gemm;          \
  };
TEV_ROUTINES(float, float, s, ormqr)
TEV_ROUTINES(double, double, d, ormqr)
TEV_ROUTINES(std::complex<float>, tev_complex8, c, unmqr)
TEV_ROUTINES(std::complex<double>, tev_complex16, z, unmqr)
#undef TEV_ROUTINES

template <class T>
using real_of = decltype(std::real(T()));
template <class T>
using element_of = typename routines<T>::element;

template <class T>
element_of<T>* in(T* x) {
  return reinterpret_cast<element_of<T>*>(x);
}
template <class T>
const element_of<T>* in(const T* x) {
  return reinterpret_cast<const element_of<T>*>(x);
}

// A plain column-major matrix.
template <class T>
struct dense {
  dense(int64_t rows_, int64_t columns_)
      : rows(rows_), columns(columns_), elements(static_cast<size_t>(rows_ * columns_)) {}
  T& operator()(int64_t i, int64_t j) { return elements[static_cast<size_t>(i + j * rows)]; }
  const T& operator()(int64_t i, int64_t j) const { return elements[static_cast<size_t>(i + j * rows)]; }
  int64_t ld() const { return std::max<int64_t>(rows, 1); }

  int64_t rows, columns;
  std::vector<T> elements;
};

template <class T>
double column_sum(const T* column, int64_t rows) {
  double sum = 0;
  for (int64_t i = 0; i < rows; ++i) sum += static_cast<double>(std::abs(column[i]));
  return sum;
}

// Not below a NaN.
double larger(double x, double y) { return x >= y ? x : y; }

template <class T>
double norm1(const dense<T>& a) {
  double norm = 0;
  for (int64_t j = 0; j < a.columns; ++j) norm = larger(norm, column_sum(&a(0, j), a.rows));
  return norm;
}

template <class T>
double largest_modulus(const dense<T>& a) {
  double largest = 0;
  for (const T& x : a.elements) largest = std::max(largest, static_cast<double>(std::abs(x)));
  return largest;
}

// C := C + factor op(A) B.
template <class T>
void add_product(T factor, char op, const dense<T>& a, char op_b, const dense<T>& b, dense<T>& c) {
  const int64_t k = op == 'N' ? a.columns : a.rows, lda = a.ld(), ldb = b.ld(), ldc = c.ld();
  const T one(1);
  routines<T>::gemm(&op, &op_b, &c.rows, &c.columns, &k, in(&factor), in(a.elements.data()), &lda,
                    in(b.elements.data()), &ldb, in(&one), in(c.elements.data()), &ldc);
}

// The triangle of a that is meant, zeros elsewhere, `rows` x `columns`.
template <class T>
dense<T> triangle_of(const dense<T>& a, int64_t rows, int64_t columns, bool upper, bool unit) {
  dense<T> result(rows, columns);
  for (int64_t j = 0; j < columns; ++j)
    for (int64_t i = 0; i < rows; ++i)
      if (i == j || (i < j) == upper) result(i, j) = i == j && unit ? T(1) : a(i, j);
  return result;
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct handle_deleter {
  void operator()(tev_offload* handle) const { tev_offload_close(handle); }
};

template <class T>
class system_runner {
 public:
  system_runner(const system_call& c, const sink_settings& sink, const progress& on_progress)
      : call_(c), on_progress_(on_progress), pivots_(order()), tau_(order()), a_(0, 0), b_(0, 0) {
    open(sink);
  }

  system_outcome run() {
    system_outcome result = {};
    result.rcond = -1;
    memory_ = static_cast<T*>(tev_offload_allocate(handle_.get(), static_cast<size_t>(count()) * sizeof(T)));
    if (memory_ == nullptr) throw failed("no memory for the matrix");
    const double busy_before = tev_offload_busy_seconds(handle_.get());
    for (int i = 0; i < call_.repeat; ++i) factor(result);
    if (result.sink_error.empty()) result.busy_seconds = tev_offload_busy_seconds(handle_.get()) - busy_before;
    std::sort(result.seconds.begin(), result.seconds.end());
    describe(result);
    if (result.info != 0) return result;
    if (call_.solves()) solve(result);
    if (call_.check) judge(result);
    if (!call_.out.empty() && (!call_.check || result.passed())) keep();
    return result;
  }

 private:
  int64_t order() const { return std::min(call_.m, call_.n); }
  int64_t count() const { return call_.m * call_.n; }
  int64_t lda() const { return std::max<int64_t>(call_.m, 1); }
  bool is_lu() const { return call_.what == task::lu || call_.what == task::solve; }
  double unit() const { return static_cast<double>(std::numeric_limits<real_of<T>>::epsilon()) / 2; }
  void tell(const std::string& what) const {
    if (on_progress_) on_progress_(fmt::format("{}{}: {}", letter_of(call_.type), name_of(call_.what), what));
  }

  // Both sides must choose the same tier: what the sink is told goes for this process, too.
  void open(const sink_settings& sink) {
    if (!sink.processor_type.empty()) setenv("TEV_DEBUG_CPU_TYPE", sink.processor_type.c_str(), 1);
    const tev_offload_options options = {call_.through_sink ? sink.executable.c_str() : nullptr,
                                         sink.library_path.empty() ? nullptr : sink.library_path.c_str(),
                                         sink.threads,
                                         sink.trust_features,
                                         0,
                                         0};
    tev_offload* handle = nullptr;
    if (tev_offload_open(&options, &handle) != TEV_OFFLOAD_OK) throw failed(tev_offload_last_error(nullptr));
    handle_.reset(handle);
  }

  // ---- Operands

  void load(T* a) const {
    if (call_.a) return call_.a->read(a);
    fill_general(a, call_.m, call_.n, call_.seed);
    if (call_.what != task::cholesky) return;
    for (int64_t j = 0; j < call_.n; ++j)
      for (int64_t i = 0; i < call_.n; ++i) {
        T& x = a[i + j * call_.m];
        if (i == j)
          x = T(static_cast<real_of<T>>(2 * call_.n));
        else if ((i < j) != (call_.uplo == 'U'))
          x = not_a_number<T>();
      }
  }

  dense<T> original() const {
    dense<T> a(call_.m, call_.n);
    load(a.elements.data());
    if (call_.what != task::cholesky) return a;
    for (int64_t j = 0; j < a.columns; ++j) {
      a(j, j) = T(std::real(a(j, j)));
      for (int64_t i = 0; i < j; ++i) {
        T &upper = a(i, j), &lower = a(j, i);
        (call_.uplo == 'U' ? lower : upper) = mirrored(call_.uplo == 'U' ? upper : lower);
      }
    }
    return a;
  }

  static T mirrored(T x) {
    if constexpr (kIsComplex<T>)
      return std::conj(x);
    else
      return x;
  }

  dense<T> right_sides() const {
    dense<T> b(call_.m, call_.right_sides);
    if (call_.b)
      call_.b->read(b.elements.data());
    else
      fill_general(b.elements.data(), b.rows, b.columns, call_.seed + 1);
    return b;
  }

  // ---- The work

  int factor_once(int64_t* info) {
    const int64_t ld = lda();
    switch (call_.what) {
      case task::cholesky:
        return routines<T>::potrf(handle_.get(), &call_.uplo, &call_.n, in(memory_), &ld, info);
      case task::qr:
      case task::lstsq:
        return routines<T>::geqrf(handle_.get(), &call_.m, &call_.n, in(memory_), &ld, in(tau_.data()), info);
      default:
        return routines<T>::getrf(handle_.get(), &call_.m, &call_.n, in(memory_), &ld, pivots_.data(), info);
    }
  }

  void factor(system_outcome& result) {
    tell("preparing the operands");
    load(memory_);
    tell(call_.through_sink ? "this process and the sink compute" : "computing");
    auto start = std::chrono::steady_clock::now();
    int code = factor_once(&result.info);
    if (code == TEV_OFFLOAD_ENDED) {  // what is in the memory is half factored
      result.sink_error = tev_offload_last_error(handle_.get());
      tell("the sink died, this process starts again");
      load(memory_);
      start = std::chrono::steady_clock::now();
      code = factor_once(&result.info);
    }
    if (code != TEV_OFFLOAD_OK) throw failed(tev_offload_last_error(handle_.get()));
    result.seconds.push_back(seconds_since(start));
  }

  // Growth and condition, from the original and the factors.
  void describe(system_outcome& result) {
    a_ = dense<T>(call_.m, call_.n);
    std::copy_n(memory_, count(), a_.elements.data());
    const dense<T> start = original();
    norm_ = norm1(start);
    if (is_lu()) result.growth = growth(start);
    if (call_.what == task::lstsq) look_at_diagonal(result);
    if (result.info != 0) result.rcond = is_lu() ? 0 : -1;
    if (result.info != 0 || call_.m != call_.n || !(is_lu() || call_.what == task::cholesky)) return;
    const auto anorm = static_cast<real_of<T>>(norm_);
    real_of<T> rcond = 0;
    std::vector<T> work(static_cast<size_t>(4 * call_.n));
    std::vector<std::conditional_t<kIsComplex<T>, real_of<T>, int64_t>> more(static_cast<size_t>(2 * call_.n));
    const int64_t ld = lda();
    int64_t info = 0;
    if (is_lu())
      routines<T>::gecon("1", &call_.n, in(memory_), &ld, &anorm, &rcond, in(work.data()), more.data(), &info);
    else
      routines<T>::pocon(&call_.uplo, &call_.n, in(memory_), &ld, &anorm, &rcond, in(work.data()), more.data(), &info);
    result.rcond = static_cast<double>(rcond);
  }

  // A column that depends on those before it makes an element of R's diagonal small.
  void look_at_diagonal(system_outcome& result) const {
    double least = std::numeric_limits<double>::infinity(), largest = 0;
    for (int64_t j = 0; j < call_.n; ++j) {
      const auto modulus = static_cast<double>(std::abs(a_(j, j)));
      if (modulus == 0 && result.info == 0) result.info = j + 1;
      least = std::min(least, modulus);
      largest = std::max(largest, modulus);
    }
    if (largest > 0) result.rcond = least / largest;
  }

  double growth(const dense<T>& start) const {
    const double largest = largest_modulus(start);
    double in_factor = 0;
    for (int64_t j = 0; j < call_.n; ++j)
      for (int64_t i = 0; i <= std::min(j, call_.m - 1); ++i)
        in_factor = std::max(in_factor, static_cast<double>(std::abs(a_(i, j))));
    return largest > 0 ? in_factor / largest : 0;
  }

  void apply_q(char trans, dense<T>& c) const {
    const int64_t k = order(), ld = lda(), ldc = c.ld();
    int64_t lwork = -1, info = 0;
    T best(0);
    const auto call = [&](T* work) {
      routines<T>::ormqr("L", &trans, &c.rows, &c.columns, &k, in(a_.elements.data()), &ld, in(tau_.data()),
                         in(c.elements.data()), &ldc, in(work), &lwork, &info);
    };
    call(&best);
    lwork = static_cast<int64_t>(std::real(best));
    std::vector<T> work(static_cast<size_t>(std::max<int64_t>(lwork, 1)));
    call(work.data());
  }

  static constexpr char kAdjoint = kIsComplex<T> ? 'C' : 'T';

  void solve(system_outcome& result) {
    tell("solving");
    const auto start = std::chrono::steady_clock::now();
    b_ = right_sides();
    const int64_t ld = lda(), ldb = b_.ld();
    if (call_.what == task::solve) {
      int64_t info = 0;
      routines<T>::getrs("N", &call_.n, &call_.right_sides, in(memory_), &ld, pivots_.data(), in(b_.elements.data()),
                         &ldb, &info);
    } else {
      const T one(1);
      apply_q(kAdjoint, b_);
      routines<T>::trsm("L", "U", "N", "N", &call_.n, &call_.right_sides, in(&one), in(memory_), &ld,
                        in(b_.elements.data()), &ldb);
      dense<T> x(call_.n, call_.right_sides);
      for (int64_t j = 0; j < x.columns; ++j) std::copy_n(&b_(0, j), x.rows, &x(0, j));
      b_ = std::move(x);
    }
    result.solve_seconds = seconds_since(start);
  }

  void keep() const {
    if (call_.solves())
      write_npy(call_.out, call_.type, b_.elements.data(), b_.rows, b_.columns);
    else
      write_npy(call_.out, call_.type, a_.elements.data(), call_.m, call_.n);
  }

  // ---- The judgement

  void judge(system_outcome& result) const {
    tell("the result is checked");
    const dense<T> a = original();
    const auto add = [&](const char* of, double norm, double scale) {
      result.residuals.push_back({of, norm == 0 ? 0 : norm / (scale * unit())});
    };
    const auto rows = static_cast<double>(call_.m), columns = static_cast<double>(call_.n);
    switch (call_.what) {
      case task::lu:
        return add("|P A - L U| / (n |A| u)", lu_error(a), columns * norm_);
      case task::cholesky:
        return add("|A - L L^H| / (n |A| u)", cholesky_error(a), columns * norm_);
      case task::qr:
        add("|R - Q^H A| / (m |A| u)", qr_error(a), rows * norm_);
        return add("|I - Q^H Q| / (m u)", orthogonality_error(), rows);
      case task::solve:
        return add("|b - A x| / (|A| |x| u)", solution_error(a), norm_);
      case task::lstsq:
        return add("|(B - A X)^H A| / (max(m, n) |A| |B| u)", least_squares_error(a),
                   std::max(rows, columns) * norm_ * norm1(right_sides()));
    }
  }

  double lu_error(dense<T> a) const {
    const int64_t k = order(), ld = a.ld(), first = 1, step = 1;
    routines<T>::laswp(&a.columns, in(a.elements.data()), &ld, &first, &k, pivots_.data(), &step);
    add_product(T(-1), 'N', triangle_of(a_, call_.m, k, false, true), 'N', triangle_of(a_, k, call_.n, true, false), a);
    return norm1(a);
  }

  double cholesky_error(dense<T> a) const {
    const bool upper = call_.uplo == 'U';
    const dense<T> factor = triangle_of(a_, call_.n, call_.n, upper, false);
    add_product(T(-1), upper ? kAdjoint : 'N', factor, upper ? 'N' : kAdjoint, factor, a);
    return norm1(a);
  }

  double qr_error(dense<T> a) const {
    apply_q(kAdjoint, a);
    for (int64_t j = 0; j < a.columns; ++j)
      for (int64_t i = 0; i <= std::min(j, a.rows - 1); ++i) a(i, j) -= a_(i, j);
    return norm1(a);
  }

  double orthogonality_error() const {
    dense<T> q(call_.m, order()), product(order(), order());
    for (int64_t j = 0; j < order(); ++j) q(j, j) = product(j, j) = T(1);
    apply_q('N', q);
    add_product(T(-1), kAdjoint, q, 'N', q, product);
    return norm1(product);
  }

  double solution_error(const dense<T>& a) const {
    dense<T> b = right_sides();
    add_product(T(-1), 'N', a, 'N', b_, b);
    double worst = 0;
    for (int64_t j = 0; j < b.columns; ++j) {
      const double error = column_sum(&b(0, j), b.rows);
      worst = larger(worst, error == 0 ? 0 : error / column_sum(&b_(0, j), b_.rows));
    }
    return worst;
  }

  double least_squares_error(const dense<T>& a) const {
    dense<T> b = right_sides(), product(call_.right_sides, call_.n);
    add_product(T(-1), 'N', a, 'N', b_, b);
    add_product(T(1), kAdjoint, b, 'N', a, product);
    return norm1(product);
  }

  const system_call& call_;
  const progress& on_progress_;
  std::unique_ptr<tev_offload, handle_deleter> handle_;
  T* memory_ = nullptr;  // the matrix where the sink sees it, then its factors
  std::vector<int64_t> pivots_;
  std::vector<T> tau_;
  dense<T> a_, b_;  // the factors once more; the right-hand sides, then the solution
  double norm_ = 0;
};

void reject_meaningless(const call_request& r, task what) {
  const bool solves = what == task::solve || what == task::lstsq,
             square = what == task::cholesky || what == task::solve;
  const struct {
    const char* option;
    bool given, has_meaning;
  } rows[] = {{"--transa", !r.transa.empty(), false}, {"--transb", !r.transb.empty(), false},
              {"--side", !r.side.empty(), false},     {"--diag", !r.diag.empty(), false},
              {"--direct", !r.direct.empty(), false}, {"--storev", !r.storev.empty(), false},
              {"--alpha", !r.alpha.empty(), false},   {"--beta", !r.beta.empty(), false},
              {"--c", !r.c.empty(), false},           {"-k", r.k.has_value(), false},
              {"-m", r.m.has_value(), !square},       {"--uplo", !r.uplo.empty(), what == task::cholesky},
              {"--b", !r.b.empty(), solves},          {"--rhs", r.right_sides.has_value(), solves && r.b.empty()}};
  for (const auto& row : rows)
    if (row.given && !row.has_meaning)
      throw bad_input(fmt::format("{}: has no meaning for {}", row.option, name_of(what)));
}

void check_shapes(const system_call& c) {
  const std::string a = c.a ? c.a->path() : "A";
  if ((c.what == task::cholesky || c.what == task::solve) && c.m != c.n)
    throw bad_input(fmt::format("{}: is {} x {}, but {} needs a square matrix", a, c.m, c.n, name_of(c.what)));
  if (c.what == task::lstsq && c.m < c.n)
    throw bad_input(fmt::format("{}: is {} x {}, but lstsq needs at least as many rows as columns", a, c.m, c.n));
  if (c.b && c.b->rows() != c.m)
    throw bad_input(fmt::format("{}: has {} rows, but {} has {}", c.b->path(), c.b->rows(), a, c.m));
  if (c.b && c.b->type() != c.type)
    throw bad_input(
        fmt::format("{}: holds {}, but {} holds {}", c.b->path(), type_name(c.b->type()), a, type_name(c.type)));
}

void check_memory(const system_call& c) {
  const double matrix =
      static_cast<double>(c.m) * static_cast<double>(c.n) * static_cast<double>(element_bytes(c.type));
  const double needed = matrix * (c.check ? 5 : 3), available = available_bytes();
  if (needed > available)
    throw bad_input(fmt::format("{} {} x {}: needs {:.3g} GB of memory, but {:.3g} GB are available", name_of(c.what),
                                c.m, c.n, needed / 1e9, available / 1e9));
}

}  // namespace

const char* name_of(task what) { return kNames[static_cast<int>(what)]; }

std::optional<task> task_named(const std::string& text) {
  const auto* place = std::find(std::begin(kNames), std::end(kNames), text);
  if (place == std::end(kNames)) return std::nullopt;
  return static_cast<task>(place - std::begin(kNames));
}

system_call resolve_system(const call_request& request) {
  system_call c = {};
  c.what = *task_named(request.operation);
  reject_meaningless(request, c.what);
  c.through_sink = request.where.empty() || request.where == "sink";
  if (!c.through_sink && request.where != "here")
    throw bad_input(fmt::format("--where '{}': must be sink or here", request.where));
  c.uplo = request.uplo.empty() ? 'L' : parse_letter("--uplo", request.uplo, "UL");
  if (!request.out.empty()) replacement_target(request.out);
  if (request.a.empty() != request.b.empty() && c.solves())
    throw bad_input(fmt::format("{}: is missing; A and B come from files, or none", request.a.empty() ? "--a" : "--b"));
  if (!request.a.empty()) c.a.emplace(request.a);
  if (!request.b.empty()) c.b.emplace(request.b);
  c.type = request.precision.empty() ? (c.a ? c.a->type() : precision::d) : parse_precision(request.precision);
  if (c.a && c.a->type() != c.type)
    throw bad_input(
        fmt::format("--precision {}: but {} holds {}", request.precision, request.a, type_name(c.a->type())));
  c.n = c.a ? c.a->columns() : request.n.value_or(kDefaultOrder);
  c.m = c.a ? c.a->rows() : request.m.value_or(c.n);
  if (c.a && (request.n.value_or(c.n) != c.n || request.m.value_or(c.m) != c.m))
    throw bad_input(fmt::format("-m, -n: but {} is {} x {}", request.a, c.m, c.n));
  c.right_sides = !c.solves() ? 0 : c.b ? c.b->columns() : request.right_sides.value_or(1);
  check_shapes(c);
  c.out = request.out;
  c.seed = request.seed;
  c.check = request.check;
  c.repeat = request.repeat;
  check_memory(c);
  return c;
}

double system_call::flop_count() const {
  const double rows = static_cast<double>(m), columns = static_cast<double>(n), k = std::min(rows, columns);
  const double lu = rows * columns * k - (rows + columns) * k * k / 2 + k * k * k / 3;  // pairs
  const bool is_qr = what == task::qr || what == task::lstsq;
  const double pairs = what == task::cholesky ? k * k * k / 6 : is_qr ? 2 * lu : lu;
  return 2 * pairs * (is_complex(type) ? 4 : 1);
}

bool system_outcome::passed() const {
  return std::all_of(residuals.begin(), residuals.end(), [](const residual& r) { return r.value < kLargestResidual; });
}

system_outcome run_system(const system_call& c, const sink_settings& sink, const progress& on_progress) {
  return with_type(c.type, [&](auto zero) { return system_runner<decltype(zero)>(c, sink, on_progress).run(); });
}

bool is_singular_to_precision(const system_call& c, const system_outcome& o) {
  const bool single = c.type == precision::s || c.type == precision::c;
  const double unit = (single ? std::numeric_limits<float>::epsilon() : std::numeric_limits<double>::epsilon()) / 2;
  return o.rcond >= 0 && o.rcond < unit;
}

}  // namespace tev::host
