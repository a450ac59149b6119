// SPDX-License-Identifier: BSD-3-Clause
#include "host/linear_system.h"

#include <fmt/format.h>
#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>

#include "host/dense.h"
#include "host/failure.h"
#include "host/npz.h"
#include "host/replacement_file.h"
#include "host/system_operands.h"
#include "host/system_residuals.h"
#include "tev/front_end.h"

namespace tev::host {
namespace {

// As the spans of tev/offload.h.
double clock_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct handle_deleter {
  void operator()(tev_offload* handle) const { tev_offload_close(handle); }
};

// An interrupted program would leave it behind.
void remove_openmp_name() {
  omp_get_max_threads();  // starts the runtime
  tev_serv_remove_openmp_name(getpid());
}

template <class T>
class system_runner {
 public:
  system_runner(const system_call& c, const sink_settings& sink, const progress& on_progress)
      : call_(c), on_progress_(on_progress) {
    found_.pivots.resize(static_cast<size_t>(order()));
    found_.tau.resize(static_cast<size_t>(order()));
    open(sink);
  }

  system_outcome run() {
    system_outcome result = {};
    result.rcond = -1;
    memory_ = static_cast<T*>(tev_offload_allocate(handle_.get(), static_cast<size_t>(count()) * sizeof(T)));
    if (memory_ == nullptr) throw failed("no memory for the matrix");
    const double busy_before = tev_offload_busy_seconds(handle_.get());
    for (int i = 0; i < call_.repeat; ++i) factor(result, i + 1 == call_.repeat);
    if (result.sink_error.empty()) result.busy_seconds = tev_offload_busy_seconds(handle_.get()) - busy_before;
    std::sort(result.seconds.begin(), result.seconds.end());
    describe(result);
    if (result.info == 0) {
      if (call_.solves()) solve(result);
      if (call_.check) check(result);
      if (!call_.check || result.passed()) keep();
    }
    end_phase();
    result.phases = std::move(phases_);
    return result;
  }

 private:
  int64_t order() const { return std::min(call_.m, call_.n); }
  int64_t count() const { return call_.m * call_.n; }
  int64_t lda() const { return std::max<int64_t>(call_.m, 1); }
  bool is_lu() const { return call_.what == task::lu || call_.what == task::solve; }

  void show(const std::string& text) const {
    if (on_progress_) on_progress_(fmt::format("{}{}: {}", letter_of(call_.type), name_of(call_.what), text));
  }
  void begin_phase(const char* name) {
    end_phase();
    phases_.push_back({name, clock_seconds(), 0});
    show(name);
  }
  void end_phase() {
    if (!phases_.empty() && phases_.back().end == 0) phases_.back().end = clock_seconds();
  }

  // What is left of a factorization is one of the rows and columns that are left.
  void show_share(int64_t panels, int64_t all) const {
    const int64_t done = order() * panels / all;
    const double share = 1 - call_.flop_count(call_.m - done, call_.n - done) / call_.flop_count();
    const double elapsed = clock_seconds() - phases_.back().begin, total = share > 0 ? elapsed / share : 0;
    if (total > kLongRun)
      show(fmt::format("{}, {:.0f} %, {:.0f} s left", phases_.back().name, 100 * share, total - elapsed));
  }

  // Both sides must choose the same tier: what the sink is told goes for this process, too.
  void open(const sink_settings& sink) {
    if (!sink.processor_type.empty()) setenv("TEV_DEBUG_CPU_TYPE", sink.processor_type.c_str(), 1);
    const tev_offload_options options = {call_.through_sink ? sink.executable.c_str() : nullptr,
                                         sink.library_path.empty() ? nullptr : sink.library_path.c_str(),
                                         sink.threads,
                                         sink.trust_features,
                                         0,
                                         call_.host_threads};
    tev_offload* handle = nullptr;
    if (tev_offload_open(&options, &handle) != TEV_OFFLOAD_OK) throw failed(tev_offload_last_error(nullptr));
    handle_.reset(handle);
    remove_openmp_name();
    const auto told = [](void* runner, int64_t done, int64_t panels) {
      static_cast<const system_runner*>(runner)->show_share(done, panels);
    };
    if (on_progress_) tev_offload_set_progress(handle, told, this);
  }

  // ---- The work

  int factor_once(int64_t* info) {
    const int64_t ld = lda();
    switch (call_.what) {
      case task::cholesky:
        return routines<T>::potrf(handle_.get(), &call_.uplo, &call_.n, in(memory_), &ld, info);
      case task::qr:
      case task::lstsq:
        return routines<T>::geqrf(handle_.get(), &call_.m, &call_.n, in(memory_), &ld, in(found_.tau.data()), info);
      default:
        return routines<T>::getrf(handle_.get(), &call_.m, &call_.n, in(memory_), &ld, found_.pivots.data(), info);
    }
  }

  int prepare_and_factor(const char* name, system_outcome& result, double* seconds) {
    begin_phase("preparing the operands");
    load_matrix(call_, memory_);
    begin_phase(name);
    const double begin = clock_seconds();
    const int code = factor_once(&result.info);
    *seconds = clock_seconds() - begin;
    return code;
  }

  void factor(system_outcome& result, bool is_last) {
    double seconds = 0;
    if (call_.records && is_last) tev_offload_record(handle_.get(), 1);
    int code =
        prepare_and_factor(call_.through_sink ? "this process and the sink compute" : "computing", result, &seconds);
    if (code == TEV_OFFLOAD_ENDED) {  // what is in the memory is half factored
      result.sink_error = tev_offload_last_error(handle_.get());
      code = prepare_and_factor("the sink died, this process starts again", result, &seconds);
    }
    if (code != TEV_OFFLOAD_OK) throw failed(tev_offload_last_error(handle_.get()));
    result.seconds.push_back(seconds);
    if (!call_.records || !is_last) return;
    size_t spans = 0;
    const tev_offload_span* const first = tev_offload_recorded(handle_.get(), &spans);
    result.spans.assign(first, first + spans);
    tev_offload_record(handle_.get(), 0);
  }

  // Growth and condition, from the original and the factors.
  void describe(system_outcome& result) {
    begin_phase("estimating the condition");
    found_.factors = dense<T>(call_.m, call_.n);
    std::copy_n(memory_, count(), found_.factors.elements.data());
    const dense<T> start = whole_matrix<T>(call_);
    if (is_lu()) result.growth = growth(start);
    if (call_.what == task::lstsq) look_at_diagonal(result);
    if (result.info != 0) result.rcond = is_lu() ? 0 : -1;
    if (result.info != 0 || call_.m != call_.n || !(is_lu() || call_.what == task::cholesky)) return;
    const auto anorm = static_cast<real_of<T>>(norm1(start));
    real_of<T> rcond = 0;
    const int64_t ld = lda();
    int64_t info = 0;
    const auto condition = is_lu() ? routines<T>::gecon : routines<T>::pocon;
    condition(handle_.get(), is_lu() ? "1" : &call_.uplo, &call_.n, in(memory_), &ld, &anorm, &rcond, &info);
    result.rcond = static_cast<double>(rcond);
  }

  // A column that depends on those before it makes an element of R's diagonal small.
  void look_at_diagonal(system_outcome& result) const {
    double least = std::numeric_limits<double>::infinity(), largest = 0;
    for (int64_t j = 0; j < call_.n; ++j) {
      const auto modulus = static_cast<double>(std::abs(found_.factors(j, j)));
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
        in_factor = std::max(in_factor, static_cast<double>(std::abs(found_.factors(i, j))));
    return largest > 0 ? in_factor / largest : 0;
  }

  void solve(system_outcome& result) {
    begin_phase("solving");
    const double begin = clock_seconds();
    dense<T> b = right_sides<T>(call_);
    const int64_t ld = lda(), ldb = b.ld();
    if (call_.what == task::solve) {
      int64_t info = 0;
      const int code = routines<T>::getrs(handle_.get(), "N", &call_.n, &call_.right_sides, in(memory_), &ld,
                                          found_.pivots.data(), in(b.elements.data()), &ldb, &info);
      if (code != TEV_OFFLOAD_OK) throw failed(tev_offload_last_error(handle_.get()));
      found_.solution = std::move(b);
    } else {
      const T one(1);
      apply_q(kAdjoint<T>, found_.factors, found_.tau, b);
      routines<T>::trsm("L", "U", "N", "N", &call_.n, &call_.right_sides, in(&one), in(memory_), &ld,
                        in(b.elements.data()), &ldb);
      found_.solution = dense<T>(call_.n, call_.right_sides);
      for (int64_t j = 0; j < b.columns; ++j) std::copy_n(&b(0, j), call_.n, &found_.solution(0, j));
    }
    result.solve_seconds = clock_seconds() - begin;
  }

  void check(system_outcome& result) {
    begin_phase("the result is checked");
    result.residuals = judge<T>(call_, found_).residuals();
  }

  // ---- What is kept

  void keep() {
    if (call_.out.empty() && call_.factors.empty()) return;
    begin_phase("writing");
    const dense<T>& out = call_.solves() ? found_.solution : found_.factors;
    if (!call_.out.empty()) write_npy(call_.out, call_.type, out.elements.data(), out.rows, out.columns);
    if (!call_.factors.empty()) keep_factors();
  }

  void keep_factors() const {
    npz_file file(call_.factors);
    const auto add = [&](const char* name, const dense<T>& a) {
      file.add(name, call_.type, a.elements.data(), a.rows, a.columns);
    };
    if (call_.what == task::cholesky) {
      const bool upper = call_.uplo == 'U';
      add(upper ? "U" : "L", triangle_of(found_.factors, call_.n, call_.n, upper, false));
    } else if (is_lu()) {
      add("L", triangle_of(found_.factors, call_.m, order(), false, true));
      add("U", triangle_of(found_.factors, order(), call_.n, true, false));
      add_pivots(file);
    } else {
      add("Q", first_columns_of_q(found_.factors, found_.tau));
      add("R", triangle_of(found_.factors, order(), call_.n, true, false));
      file.add("tau", call_.type, found_.tau.data(), order());
    }
    file.commit();
  }

  // Rows from 0: row i changed places with row piv[i], and so row perm[i] came to i.
  void add_pivots(npz_file& file) const {
    std::vector<int64_t> pivots = found_.pivots, rows(static_cast<size_t>(call_.m));
    for (int64_t& pivot : pivots) --pivot;
    for (size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<int64_t>(i);
    for (size_t i = 0; i < pivots.size(); ++i) std::swap(rows[i], rows[static_cast<size_t>(pivots[i])]);
    file.add("piv", pivots);
    file.add("perm", rows);
  }

  static constexpr double kLongRun = 2;  // seconds

  const system_call& call_;
  const progress& on_progress_;
  std::unique_ptr<tev_offload, handle_deleter> handle_;
  T* memory_ = nullptr;  // the matrix where the sink sees it, then its factors
  found<T> found_;
  std::vector<phase> phases_;
};

}  // namespace

bool system_outcome::passed() const {
  return std::all_of(residuals.begin(), residuals.end(), [](const residual& r) { return r.value < kLargestResidual; });
}

time_shares shares_of(const std::vector<tev_offload_span>& spans) {
  double first = std::numeric_limits<double>::infinity(), last = -first, panels = 0, updates = 0, sink = 0;
  int32_t threads = 1;
  for (const tev_offload_span& s : spans) {
    if (s.thread < 0) {
      sink += s.end - s.begin;
      continue;
    }
    first = std::min(first, s.begin), last = std::max(last, s.end);
    threads = std::max(threads, s.thread + 1);
    if (s.kind == TEV_OFFLOAD_PANEL) panels += s.end - s.begin;
    if (s.kind == TEV_OFFLOAD_UPDATE) updates += s.end - s.begin;
  }
  if (spans.empty() || !(last > first)) return {};
  return {panels / (last - first), updates / threads / (last - first), sink / (last - first)};
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
