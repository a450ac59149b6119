// SPDX-License-Identifier: BSD-3-Clause
#include "host/lapack_step.h"

#include <fmt/format.h>

#include <cmath>
#include <thread>

#include "host/fill.h"
#include "host/operand.h"
#include "host/records.h"
#include "host/wide.h"

namespace tev::host {
namespace {

// ---- A block reflector applied again -------------------------------------------------------------------------------

// Without the library's care for infinities, which takes most of its time.
template <class W>
void add_product(W& sum, const W& x, const W& y) {
  if constexpr (kIsComplex<W>)
    sum += W(x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real());
  else
    sum += x * y;
}

// y - V op(T) V^H y for one vector y of `length`; W may also be the type of moduli, which are added.
template <class W>
struct reflection {
  int64_t length, k;
  std::vector<W> v;       // length x k
  std::vector<W> factor;  // op(T)

  std::vector<W> subtrahend(const std::vector<W>& y) const {
    std::vector<W> w(static_cast<size_t>(k)), scaled(w.size()), result(y.size());
    for (int64_t j = 0; j < k; ++j)
      for (int64_t i = 0; i < length; ++i) add_product(w[j], conjugate(v[i + j * length]), y[i]);
    for (int64_t j = 0; j < k; ++j)
      for (int64_t i = 0; i < k; ++i) add_product(scaled[i], factor[i + j * k], w[j]);
    for (int64_t j = 0; j < k; ++j)
      for (int64_t i = 0; i < length; ++i) add_product(result[i], v[i + j * length], scaled[j]);
    return result;
  }
};

template <class W>
auto moduli(const std::vector<W>& x) {
  std::vector<decltype(std::abs(W()))> result(x.size());
  std::transform(x.begin(), x.end(), result.begin(), [](const W& e) { return std::abs(e); });
  return result;
}

// ---- A step --------------------------------------------------------------------------------------------------------

template <class T>
class step_runner {
 public:
  step_runner(sink_client& sink, const call& c, const progress& on_progress)
      : sink_(sink), call_(c), on_progress_(on_progress) {}

  outcome run() {
    tell("preparing the operands");
    make_operands();
    outcome result = repeat_request(
        sink_, call_, request(), parts(), [this] { c_.restore(); }, [this](const std::string& text) { tell(text); });
    if (call_.check) result.check = judge();
    return result;
  }

 private:
  using real = decltype(std::real(T()));

  void tell(const std::string& what) const {
    if (on_progress_) on_progress_(fmt::format("{}{}: {}", letter_of(call_.type), name_of(call_.op), what));
  }

  bool left() const { return call_.side == 'L'; }
  bool forward() const { return call_.direct == 'F'; }
  bool by_rows() const { return call_.storev == 'R'; }
  int64_t length() const { return left() ? call_.m : call_.n; }

  // ---- Operands

  void make_operands() {
    c_ = make_operand<T>(sink_, {call_.m, call_.n});
    fill_general(c_.elements(), call_.m, call_.n, call_.seed);
    if (call_.op == operation::larfb) {
      make_reflectors();
    } else {
      make_pivots();
      if (call_.op == operation::lu_step) make_panel();
    }
    if (call_.check || call_.repeat > 1) c_.keep_original();
    if (call_.check && a_.buffer) a_.keep_original();
  }

  void make_pivots() {
    pivots_ = make_operand<int64_t>(sink_, {call_.k, 1});
    random_numbers numbers(call_.seed + 1);
    for (int64_t i = 0; i < call_.k; ++i) {
      const auto below = static_cast<double>(call_.m - i);
      pivots_.elements()[i] = i + 1 + static_cast<int64_t>((numbers.next<double>() + 1) / 2 * below);
    }
    pivots_.keep_original();
  }

  // L, of which the triangle on top is solved with: small entries, so that the solution does not grow.
  void make_panel() {
    a_ = make_operand<T>(sink_, {call_.m, call_.k});
    fill_general(a_.elements(), call_.m, call_.k, call_.seed + 2);
    for (int64_t j = 0; j < call_.k; ++j)
      for (int64_t i = 0; i < call_.k; ++i) {
        T& x = a_.elements()[i + j * call_.m];
        x = i > j ? x * T(real(1) / static_cast<real>(call_.k)) : not_a_number<T>();
      }
  }

  // What a reflector's element is: above 0 a number, 0 its one, below it a zero.
  int64_t place(int64_t i, int64_t j) const { return forward() ? i - j : length() - call_.k + j - i; }
  int64_t stored_at(int64_t i, int64_t j) const { return by_rows() ? j + i * call_.k : i + j * length(); }
  bool in_factor(int64_t i, int64_t j) const { return forward() ? i <= j : i >= j; }

  void make_reflectors() {
    a_ = make_operand<T>(sink_, by_rows() ? matrix_size{call_.k, length()} : matrix_size{length(), call_.k});
    factor_ = make_operand<T>(sink_, {call_.k, call_.k});
    work_ = make_operand<T>(sink_, {left() ? call_.n : call_.m, call_.k});
    fill_general(a_.elements(), a_.size.rows, a_.size.columns, call_.seed + 1);
    fill_general(factor_.elements(), call_.k, call_.k, call_.seed + 2);
    for (int64_t j = 0; j < call_.k; ++j) {
      for (int64_t i = 0; i < length(); ++i)
        if (place(i, j) <= 0) a_.elements()[stored_at(i, j)] = not_a_number<T>();
      for (int64_t i = 0; i < call_.k; ++i)
        if (!in_factor(i, j)) factor_.elements()[i + j * call_.k] = not_a_number<T>();
    }
    if (call_.check) factor_.keep_original();
  }

  // ---- The request

  worker_call request() const {
    const auto option = [](char letter) { return tev_option_slot{letter, {}}; };
    if (call_.op == operation::larfb) {
      tev_step_slots slots = {};
      slots.larfb = {option(call_.side),
                     option(call_.transa),
                     option(call_.direct),
                     option(call_.storev),
                     call_.m,
                     call_.n,
                     call_.k,
                     a_.leading_dimension(),
                     factor_.leading_dimension(),
                     c_.leading_dimension(),
                     work_.leading_dimension()};
      return make_step_call<T>("larfb", slots);
    }
    const bool solves = call_.op == operation::lu_step;
    const int64_t ld = c_.leading_dimension(), below = solves ? call_.m - call_.k : 0;
    const tev_getrf_record record = {.update_n = call_.n,
                                     .update_m = below,
                                     .update_k = call_.k,
                                     .update_lda = ld,
                                     .update_ldb = ld,
                                     .update_ldc = ld,
                                     .solve_m = solves ? call_.k : 0,
                                     .solve_n = solves ? call_.n : 0,
                                     .solve_lda = ld,
                                     .solve_ldb = ld,
                                     .swap_n = call_.k > 0 ? call_.n : 0,
                                     .swap_lda = ld,
                                     .swap_k1 = 1,
                                     .swap_k2 = call_.k,
                                     .update_guards = {0, below}};
    return {std::string("tev_lapack_") + letter_of(call_.type) + "getrf_worker", 0, bytes_of(record)};
  }

  std::vector<buffer_part> parts() const {
    vro_buffer *const c = c_.buffer.get(), *const a = a_.buffer.get(), *const pivots = pivots_.buffer.get();
    const int64_t below = call_.k * static_cast<int64_t>(sizeof(T)), below_c = c_.count() > 0 ? below : 0;
    switch (call_.op) {
      case operation::larfb:
        return {{a}, {factor_.buffer.get()}, {c}, {work_.buffer.get()}};
      case operation::lu_step:
        return {{c}, {pivots}, {a}, {c}, {a, below}, {c}, {c, below_c}};
      default:
        return {{c}, {pivots}, {c}, {c}};
    }
  }

  // ---- The judgement

  verdict judge() {
    if (c_.count() == 0) return {true, 0, 0, 0, "the result is empty"};
    tell("the host checks");
    if (call_.op == operation::larfb) return judge_reflection();
    const std::vector<T> exchanged = with_exchanged_rows();
    return call_.op == operation::laswp ? judge_places(exchanged) : judge_lu_step(exchanged);
  }

  std::vector<T> with_exchanged_rows() const {
    std::vector<T> a = c_.original;
    for (int64_t i = 0; i < call_.k; ++i)
      for (int64_t j = 0; j < call_.n; ++j) std::swap(a[i + j * call_.m], a[pivots_.original[i] - 1 + j * call_.m]);
    return a;
  }

  verdict judge_places(const std::vector<T>& expected) const {
    for (int64_t e = 0; e < c_.count(); ++e)
      if (c_.elements()[e] != expected[e])
        return {false, std::numeric_limits<double>::infinity(), e % call_.m, e / call_.m,
                fmt::format("at ({}, {}) another element is expected", e % call_.m, e / call_.m)};
    return {true, 0, 0, 0, "every element is where it belongs"};
  }

  verdict judge_lu_step(const std::vector<T>& exchanged) const {
    const int threads = static_cast<int>(std::thread::hardware_concurrency());
    const int64_t ld = call_.m, below = call_.m - call_.k;
    problem<T> solve = {.op = operation::trsm, .transa = 'N', .side = 'L', .uplo = 'L', .diag = 'U'};
    solve.m = call_.k, solve.n = call_.n, solve.alpha = T(1);
    solve.a = a_.original.data(), solve.lda = ld, solve.b = exchanged.data(), solve.ldb = ld;
    problem<T> update = {.op = operation::gemm, .transa = 'N', .transb = 'N'};
    update.m = below, update.n = call_.n, update.k = call_.k, update.alpha = T(-1), update.beta = T(1);
    update.a = a_.original.data() + call_.k, update.lda = ld, update.b = c_.elements(), update.ldb = ld;
    update.c = exchanged.data() + call_.k, update.ldc = ld;
    const verdict solved = check(solve, c_.elements(), threads);
    const verdict updated = check(update, c_.elements() + call_.k, threads);
    verdict worse = solved.worst > updated.worst ? solved : updated;
    worse.passed = solved.passed && updated.passed;
    worse.text = fmt::format("solve: {}; update: {}", solved.text, updated.text);
    return worse;
  }

  // Lines are what the reflectors act on: columns from the left, rows, conjugated, from the right.
  verdict judge_reflection() const {
    reflection<wide_t<T>> h = {length(), call_.k, std::vector<wide_t<T>>(length() * call_.k),
                               std::vector<wide_t<T>>(call_.k * call_.k)};
    const bool turned = (call_.transa != 'N') == left();
    for (int64_t j = 0; j < call_.k; ++j) {
      for (int64_t i = 0; i < length(); ++i) {
        const T x = a_.original[stored_at(i, j)];
        h.v[i + j * length()] = place(i, j) > 0 ? (by_rows() ? conjugate(x) : x) : T(place(i, j) == 0);
      }
      for (int64_t i = 0; i < call_.k; ++i) {
        if (!in_factor(i, j)) continue;
        const wide_t<T> x = factor_.original[i + j * call_.k];
        h.factor[turned ? j + i * call_.k : i + j * call_.k] = turned ? conjugate(x) : x;
      }
    }
    const reflection<decltype(std::abs(wide_t<T>()))> sizes = {h.length, h.k, moduli(h.v), moduli(h.factor)};
    const auto threads = static_cast<int64_t>(std::max(1u, std::thread::hardware_concurrency()));
    const int64_t lines = left() ? call_.n : call_.m;
    std::vector<verdict> found(threads, {true, 0, 0, 0, {}});
    {
      std::vector<std::jthread> team;
      for (int64_t t = 0; t < threads; ++t)
        team.emplace_back([&, t] {
          for (int64_t line = t; line < lines; line += threads) judge_line(h, sizes, line, found[t]);
        });
    }
    verdict worst = *std::max_element(found.begin(), found.end(),
                                      [](const verdict& x, const verdict& y) { return x.worst < y.worst; });
    worst.passed = worst.worst <= 1;
    worst.text = fmt::format("largest error is {:.3g} of the bound, at ({}, {})", worst.worst, worst.row, worst.column);
    return worst;
  }

  template <class W, class R>
  void judge_line(const reflection<W>& h, const reflection<R>& sizes, int64_t line, verdict& worst) const {
    const auto at = [&](int64_t i) { return left() ? i + line * call_.m : line + i * call_.m; };
    const auto line_of = [&](const T* c, int64_t i) { return W(left() ? c[at(i)] : conjugate(c[at(i)])); };
    std::vector<W> before(static_cast<size_t>(h.length));
    for (int64_t i = 0; i < h.length; ++i) before[i] = line_of(c_.original.data(), i);
    const std::vector<W> change = h.subtrahend(before);
    const std::vector<R> before_size = moduli(before), change_size = sizes.subtrahend(before_size);
    const double units = static_cast<double>(h.length + 2 * h.k + 2) * (kIsComplex<T> ? 4 : 1) *
                         static_cast<double>(std::numeric_limits<real>::epsilon()) / 2;
    for (int64_t i = 0; i < h.length; ++i) {
      const auto bound = static_cast<double>(before_size[i] + change_size[i]) * units / (1 - units);
      const auto error = static_cast<double>(std::abs(line_of(c_.elements(), i) - (before[i] - change[i])));
      const double share = error == 0 ? 0 : error / bound;
      if (!(share <= worst.worst))
        worst = {true,
                 std::isnan(share) ? std::numeric_limits<double>::infinity() : share,
                 at(i) % call_.m,
                 at(i) / call_.m,
                 {}};
    }
  }

  sink_client& sink_;
  const call& call_;
  const progress& on_progress_;
  operand<T> a_, factor_, c_, work_;  // the panel, or V; T; what is changed; larfb's work array
  operand<int64_t> pivots_;
};

}  // namespace

outcome run_lapack_step(sink_client& sink, const call& c, const progress& on_progress) {
  return with_type(c.type, [&](auto zero) { return step_runner<decltype(zero)>(sink, c, on_progress).run(); });
}

}  // namespace tev::host
