// SPDX-License-Identifier: BSD-3-Clause
// Running a call. With a check the operands are copied before the sink sees them: what is judged is judged against
// numbers that the sink cannot have touched.
#include "host/offload.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <thread>
#include <type_traits>

#include "host/fill.h"
#include "host/lapack_step.h"
#include "host/operand.h"
#include "host/records.h"

namespace tev::host {
namespace {

template <class T>
T scalar(std::complex<double> x) {
  if constexpr (std::is_floating_point_v<T>)
    return static_cast<T>(x.real());
  else
    return T(static_cast<typename T::value_type>(x.real()), static_cast<typename T::value_type>(x.imag()));
}

template <class T>
class runner {
 public:
  runner(sink_client& sink, const call& c, const progress& on_progress)
      : sink_(sink), call_(c), on_progress_(on_progress) {}

  outcome run() {
    make_operands();
    outcome result = compute();
    if (call_.check) result.check = judge();
    if (!call_.out.empty() && (!result.check || result.check->passed))
      write_npy(call_.out, call_.type, result_operand().elements(), call_.m, call_.n);
    return result;
  }

 private:
  operand<T>& result_operand() { return is_in_place(call_.op) ? b_ : c_; }
  bool reads_result() const { return is_in_place(call_.op) || call_.reads_c(); }

  void tell(const std::string& what) const {
    if (on_progress_) on_progress_(fmt::format("{}{}: {}", letter_of(call_.type), name_of(call_.op), what));
  }

  void make_operands() {
    tell("preparing the operands");
    a_ = make_operand<T>(sink_, call_.size_a());
    if (call_.has_b()) b_ = make_operand<T>(sink_, call_.size_b());
    if (!is_in_place(call_.op)) c_ = make_operand<T>(sink_, {call_.m, call_.n});
    if (call_.a) {
      call_.a->read(a_.elements());
      if (call_.has_b()) call_.b->read(b_.elements());
      if (call_.reads_c()) call_.c->read(c_.elements());
    } else {
      generate();
    }
    if (call_.check) a_.keep_original();
    if (call_.check && call_.has_b()) b_.keep_original();
    if (reads_result() && (call_.check || call_.repeat > 1)) result_operand().keep_original();
  }

  void generate() {
    if (has_depth(call_.op))
      fill_general(a_.elements(), a_.size.rows, a_.size.columns, call_.seed);
    else
      fill_triangle(a_.elements(), a_.size.rows, call_.uplo, call_.op == operation::symm ? 'N' : call_.diag,
                    call_.seed);
    if (call_.op == operation::trsm) make_solvable(a_.elements(), a_.size.rows);
    if (call_.has_b()) fill_general(b_.elements(), b_.size.rows, b_.size.columns, call_.seed + 1);
    if (call_.reads_c())
      fill_general(c_.elements(), c_.size.rows, c_.size.columns, call_.seed + 2);
    else if (!is_in_place(call_.op))
      std::fill_n(c_.elements(), c_.count(), not_a_number<T>());
  }

  problem<T> describe(const T* a, const T* b, const T* c) const {
    return {call_.op,
            call_.transa,
            call_.transb,
            call_.side,
            call_.uplo,
            call_.diag,
            call_.m,
            call_.n,
            call_.k,
            scalar<T>(call_.alpha),
            scalar<T>(call_.beta),
            a,
            a_.leading_dimension(),
            b,
            call_.has_b() ? b_.leading_dimension() : 1,
            c,
            std::max<int64_t>(call_.m, 1)};
  }

  outcome compute() {
    const problem<T> p = describe(nullptr, nullptr, nullptr);
    std::vector<buffer_part> parts = {{a_.buffer.get()}};
    if (call_.has_b()) parts.push_back({b_.buffer.get()});
    if (c_.buffer) parts.push_back({c_.buffer.get()});
    return repeat_request(
        sink_, call_, call_.is_step ? make_step_call(p) : make_worker_call(p), parts,
        [this] {
          if (reads_result()) result_operand().restore();
        },
        [this](const std::string& text) { tell(text); });
  }

  verdict judge() {
    const problem<T> p = describe(a_.original.data(), b_.original.data(), c_.original.data());
    return check(p, result_operand().elements(), static_cast<int>(std::thread::hardware_concurrency()),
                 [&](double share) { tell(fmt::format("the host checks, {:.0f} %", 100 * share)); });
  }

  sink_client& sink_;
  const call& call_;
  const progress& on_progress_;
  operand<T> a_, b_, c_;
};

}  // namespace

outcome repeat_request(sink_client& sink, const call& c, const worker_call& request,
                       const std::vector<buffer_part>& parts, const std::function<void()>& restore,
                       const progress& tell) {
  outcome result = {};
  const double busy_before = sink.busy_seconds();
  for (int i = 0; i < c.repeat; ++i) {
    if (i > 0) restore();
    const auto on_tick = [&](double seconds) {
      tell(c.repeat == 1 ? fmt::format("the sink computes, {:.1f} s", seconds)
                         : fmt::format("the sink computes, {} of {}, {:.1f} s", i + 1, c.repeat, seconds));
    };
    on_tick(0);
    result.seconds.push_back(sink.invoke(request, parts, TEV_POST_ADD, on_tick));
  }
  result.busy_seconds = sink.busy_seconds() - busy_before;
  std::sort(result.seconds.begin(), result.seconds.end());
  return result;
}

double outcome::busy_share() const {
  const double total = std::accumulate(seconds.begin(), seconds.end(), 0.0);
  return total > 0 ? busy_seconds / total : 0;
}

double needed_bytes(const call& c) {
  constexpr double kPrograms = 16e6, kPerThread = 8e6;  // measured: the work buffers of the sink's threads
  const auto elements = [](matrix_size size) {
    return static_cast<double>(size.rows) * static_cast<double>(size.columns);
  };
  const double operands = elements(c.size_a()) + elements(c.size_b()), result = elements({c.m, c.n});
  double needed = operands;
  if (!is_in_place(c.op)) needed += result;
  if (c.check) needed += 2 * operands;  // the originals, and the check's copies in its own order
  if (is_lapack(c.op) && (c.check || c.repeat > 1)) needed += c.check ? 3 * result : result;
  if (c.reads_c() ? c.check || c.repeat > 1 : is_in_place(c.op) && !c.check && c.repeat > 1) needed += result;
  return kPrograms + kPerThread * std::thread::hardware_concurrency() +
         needed * static_cast<double>(element_bytes(c.type));
}

outcome run_call(sink_client& sink, const call& c, const progress& on_progress) {
  if (is_lapack(c.op)) return run_lapack_step(sink, c, on_progress);
  return with_type(c.type, [&](auto zero) { return runner<decltype(zero)>(sink, c, on_progress).run(); });
}

}  // namespace tev::host
