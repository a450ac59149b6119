// SPDX-License-Identifier: BSD-3-Clause
// Factorizations through a real sink: their factors, the same bits every time, wherever the matrix lies; and a sink
// that is killed at some moment: never a wrong result that is said to be right.
#include "tev/offload.h"

#include <deque>
#include <fstream>

#include "offload/sink_steps.h"
#include "tests/offload/factors.h"
#include "tests/support/effort.h"
#include "tests/support/failing_new.h"
#include "tev/service.h"

namespace tev::test {
namespace {

template <class T>
class Offload : public testing::Test {};
TYPED_TEST_SUITE(Offload, Elements);

template <class T>
void expect_right_and_repeatable(tev_offload* handle, what kind, const std::string& name, int64_t m, int64_t n) {
  engine random(3);
  const matrix<T> start = start_for<T>(kind, m, n, random);
  T* const shared = static_cast<T*>(tev_offload_allocate(handle, start.size() * sizeof(T)));
  const factored<T> f = factor(handle, kind, start, shared);
  ASSERT_EQ(f.code, TEV_OFFLOAD_OK) << name << tev_offload_last_error(handle);
  ASSERT_EQ(f.info, 0) << name;
  expect_factors(kind, start, f, name);
  const factored<T> again = factor(handle, kind, start, shared);
  EXPECT_TRUE(f.a.same_bits(again.a) && f.tau.same_bits(again.tau) && f.pivots == again.pivots) << name;
  tev_offload_release(handle, shared);
}

TYPED_TEST(Offload, FactorsThroughASinkAreRightAndTheSameEveryTime) {
  const sink_handle handle(1);
  for (const auto& [kind, name] : kFactorizations)
    expect_right_and_repeatable<TypeParam>(handle.get(), kind, name, 521, 521);
  EXPECT_GT(tev_offload_busy_seconds(handle.get()), 0);
}

TYPED_TEST(Offload, SystemsAreSolvedByTheFactors) {
  const sink_handle handle(1);
  expect_systems_solved<TypeParam, offload_calls<TypeParam>>(handle.get(), {40, 521});
}

TEST(OffloadShapes, ManyThreadsRectanglesSmallMatricesAndCopies) {
  const sink_handle handle(2, 2);
  for (const auto& [kind, name] : kFactorizations) {
    for (const auto& [m, n] : {std::pair<int64_t, int64_t>{600, 530}, {515, 620}, {5, 5}})
      if (m == n || kind == what::lu || kind == what::qr)
        expect_right_and_repeatable<double>(handle.get(), kind, std::string(name) + ' ' + std::to_string(m), m, n);
    engine random(4);
    const matrix<double> start = start_for<double>(kind, 577, 577, random);
    const factored<double> f = factor(handle.get(), kind, start);
    EXPECT_EQ(f.code, TEV_OFFLOAD_OK);
    expect_factors(kind, start, f, std::string(name) + ", copied");
  }
}

// LU and Cholesky, and what stands on the factors.
template <class T>
std::deque<matrix<T>> all_results(tev_offload* handle) {
  using calls = offload_calls<T>;
  std::deque<matrix<T>> results;
  engine random(7);
  const int64_t n = 800, two = 2;
  for (const what kind : {what::lu, what::lower_cholesky, what::upper_cholesky}) {
    factored<T> f = factor(handle, kind, start_for<T>(kind, n, n, random));
    results.push_back(f.a);
    matrix<T> x(n, two);
    x.fill(random, values::fractions);
    const int64_t lda = f.a.ld(), ldx = x.ld();
    const auto anorm = static_cast<real_part_t<T>>(n);
    real_part_t<T> rcond = 0;
    int64_t info[3] = {7, 7, 7};
    if (kind == what::lu) {
      calls::getrs(handle, "T", &n, &two, at(f.a), &lda, f.pivots.data(), at(x), &ldx, &info[0]);
      calls::gecon(handle, "I", &n, at(f.a), &lda, &anorm, &rcond, &info[1]);
      calls::getri(handle, &n, at(f.a), &lda, f.pivots.data(), &info[2]);
    } else {
      const char* const uplo = kind == what::lower_cholesky ? "L" : "U";
      calls::potrs(handle, uplo, &n, &two, at(f.a), &lda, at(x), &ldx, &info[0]);
      calls::pocon(handle, uplo, &n, at(f.a), &lda, &anorm, &rcond, &info[1]);
      calls::potri(handle, uplo, &n, at(f.a), &lda, &info[2]);
    }
    EXPECT_EQ(info[0] + info[1] + info[2], 0);
    EXPECT_GT(rcond, 0);
    results.push_back(x), results.push_back(f.a);
  }
  return results;
}

// One block width on both sides, one thread for each block: who updates a block does not show in its bits. (A block
// reflector is another text in the sink.)
TYPED_TEST(Offload, InProcessAndThroughASinkAreTheSameBits) {
  const sink_handle through_sink(1), here(nullptr, 0, 2);
  const auto expected = all_results<TypeParam>(here.get()), results = all_results<TypeParam>(through_sink.get());
  for (size_t i = 0; i < results.size(); ++i) EXPECT_TRUE(results[i].same_bits(expected[i])) << "result " << i;
  EXPECT_GT(tev_offload_busy_seconds(through_sink.get()), 0);
}

TYPED_TEST(Offload, LeastSquaresSolveWhatHasASolution) {
  const sink_handle handle(1);
  expect_least_squares_solved<TypeParam, offload_calls<TypeParam>>(handle.get(), [&, busy = 0.0]() mutable {
    return std::exchange(busy, tev_offload_busy_seconds(handle.get())) < tev_offload_busy_seconds(handle.get());
  });
}

// Both sides have their share of what is left, to a block, and no block comes back to this one.
TEST(OffloadPlan, TheBorderDividesTheWork) {
  constexpr int64_t kBlocks = 40;
  for (const offload::core_division cores : {offload::core_division{1, 1}, {1, 7}, {2, 2}, {3, 1}})
    for (const auto shape :
         {offload::block_shape::columns, offload::block_shape::triangle, offload::block_shape::without_diagonal})
      for (int64_t panel = 0, last = 0; panel < kBlocks; ++panel) {
        const int64_t border = offload::border(panel, kBlocks, cores, shape), beyond = kBlocks - panel - 1;
        ASSERT_GE(border, last);
        ASSERT_TRUE(border > panel && border <= kBlocks);
        last = border;
        double here = 0, all = 0;
        for (int64_t b = panel + 1; b < kBlocks; ++b) {
          const double area = shape == offload::block_shape::columns ? 1 : static_cast<double>(kBlocks - b) - 0.5;
          const bool is_here = b < border;
          all += area;
          here += is_here ? area : shape == offload::block_shape::without_diagonal ? 0.5 : 0;
        }
        const double part = cores.part_here(),
                     block = shape == offload::block_shape::columns ? 1 : static_cast<double>(beyond),
                     panels_work = all / static_cast<double>(std::max<int64_t>(beyond, 1));
        if (border > panel + 2) EXPECT_NEAR(here + panels_work, part * (all + panels_work), block) << panel;
      }
}

TEST(OffloadRecord, EveryBlockGetsEveryUpdateOnce) {
  const sink_handle handle(1, 2);
  engine random(8);
  constexpr int64_t kOrder = 640, kWidth = 64, kPanels = kOrder / kWidth;
  std::vector<int64_t> told;
  tev_offload_set_progress(
      handle.get(),
      [](void* context, int64_t done, int64_t panels) {
        static_cast<std::vector<int64_t>*>(context)->insert(static_cast<std::vector<int64_t>*>(context)->end(),
                                                            {done, panels});
      },
      &told);
  tev_offload_record(handle.get(), 1);
  const double busy = tev_offload_busy_seconds(handle.get());
  ASSERT_EQ(factor(handle.get(), what::lu, start_for<double>(what::lu, kOrder, kOrder, random)).info, 0);
  size_t count = 0;
  const tev_offload_span* const spans = tev_offload_recorded(handle.get(), &count);
  std::vector<tev_offload_span> ordered(spans, spans + count);
  std::sort(ordered.begin(), ordered.end(), [](const auto& x, const auto& y) { return x.begin < y.begin; });
  int updates[kPanels + 1][kPanels] = {}, panels[kPanels] = {};
  std::map<int32_t, double> busy_until;
  double sink_seconds = 0;
  for (const tev_offload_span& s : ordered) {
    EXPECT_LE(s.begin, s.end);
    EXPECT_GE(s.begin, busy_until[s.thread]) << "thread " << s.thread;
    busy_until[s.thread] = s.end;
    if (s.kind == TEV_OFFLOAD_PANEL) ++panels[s.panel];
    if (s.thread < 0) sink_seconds += s.end - s.begin;
    for (int64_t b = s.first_block; b < s.end_block && s.kind == TEV_OFFLOAD_UPDATE; ++b) ++updates[s.panel][b];
  }
  for (int64_t b = 0; b < kPanels; ++b) {
    EXPECT_EQ(panels[b], 1);
    EXPECT_EQ(told[static_cast<size_t>(2 * b)], b + 1);
    EXPECT_EQ(told[static_cast<size_t>(2 * b + 1)], kPanels);
    for (int64_t panel = 0; panel < kPanels; ++panel) EXPECT_EQ(updates[panel][b], panel < b) << panel << ", " << b;
  }
  EXPECT_GT(sink_seconds, 0);
  EXPECT_NEAR(sink_seconds, tev_offload_busy_seconds(handle.get()) - busy, 1e-3);
}

// Whatever cannot be had, there is a code for it, and a matrix that was copied is as it was.
TEST(OffloadErrors, WithoutMemoryCallsReturn) {
  if (!kNewCanFail) GTEST_SKIP();
  engine random(3);
  const matrix<double> start = start_for<double>(what::lu, 600, 600, random);
  bool has_failed = true;
  for (int left = 1; has_failed; left += 1 + left / 5) {
    SCOPED_TRACE("allocation " + std::to_string(left));
    factored<double> f = {start, {600, 1}, std::vector<int64_t>(600), 7, 7};
    const int64_t n = 600, lda = start.ld();
    const tev_offload_options options = {TEV_SINK_PATH, nullptr, 1, 0, 0, 1 + left % 2};
    tev_offload* handle = nullptr;
    new_left = left;
    int code = tev_offload_open(&options, &handle);
    if (code == TEV_OFFLOAD_OK) code = tev_offload_dgetrf(handle, &n, &n, at(f.a), &lda, f.pivots.data(), &f.info);
    has_failed = new_fails;
    new_fails = false;
    new_left = 0;
    EXPECT_EQ(code != TEV_OFFLOAD_OK, has_failed);
    EXPECT_STRNE(has_failed ? tev_offload_last_error(handle) : "none", "");
    if (has_failed) EXPECT_TRUE(f.a.same_bits(start));
    tev_offload_close(handle);
  }
}

TEST(OffloadErrors, AreToldAsTheLibraryTellsThem) {
  const sink_handle handle(1);
  engine random(3);
  matrix<double> a = start_for<double>(what::lower_cholesky, 700, 700, random);
  a(600, 600) = -1;
  EXPECT_EQ(factor(handle.get(), what::lower_cholesky, a).info, 601);
  matrix<double> singular = start_for<double>(what::lu, 700, 700, random);
  for (int64_t i = 0; i < 700; ++i) singular(i, 650) = 0;
  EXPECT_EQ(factor(handle.get(), what::lu, singular).info, 651);
  tev_offload* nothing = nullptr;
  const tev_offload_options options = {"/nowhere/sink", nullptr, 0, 0, 0, 0};
  EXPECT_EQ(tev_offload_open(&options, &nothing), TEV_OFFLOAD_SYSTEM);
  EXPECT_STRNE(tev_offload_last_error(nullptr), "");
  EXPECT_EQ(nothing, nullptr);
}

// The one child of the calling thread.
pid_t sink_process() {
  pid_t child = 0;
  std::ifstream("/proc/self/task/" + std::to_string(gettid()) + "/children") >> child;
  return child;
}

TEST(OffloadKilled, NoWrongResultIsSaidToBeRight) {
  std::mt19937_64 random(test_seed());
  SCOPED_TRACE(repeat_with(test_seed()));
  engine numbers(3);
  const matrix<double> lu = start_for<double>(what::lu, 600, 600, numbers);
  const matrix<double> positive = start_for<double>(what::lower_cholesky, 600, 600, numbers);
  int ended = 0, finished = 0;
  const int rounds = long_run() ? 100 : 12;
  for (int round = 0; round < rounds; ++round) {
    const bool finish_here = round % 2 == 0, in_shared = round % 4 < 2;
    const auto& [kind, name] = kFactorizations[round % 3 == 2 ? 3 : round % 3];
    const matrix<double>& start = kind == what::lower_cholesky ? positive : lu;
    const sink_handle handle(1, 1 + round % 2, finish_here);
    auto* const shared = static_cast<double*>(tev_offload_allocate(handle.get(), start.size() * sizeof(double)));
    const pid_t sink = sink_process();
    const auto delay = std::chrono::microseconds(round < 2 ? 0 : random() % 12000);  // at first certainly under way
    std::thread killer([=] {
      std::this_thread::sleep_for(delay);
      kill(sink, SIGKILL);
    });
    const factored<double> f = factor(handle.get(), kind, start, in_shared ? shared : nullptr);
    killer.join();
    const std::string text = std::string(name) + ", killed after " + std::to_string(delay.count()) + " us";
    ++(f.code == TEV_OFFLOAD_OK ? finished : ended);
    if (f.code == TEV_OFFLOAD_OK) {
      EXPECT_EQ(f.info, 0);
      expect_factors(kind, start, f, text);
    } else {
      EXPECT_EQ(f.code, TEV_OFFLOAD_ENDED) << text;
      EXPECT_FALSE(finish_here) << text;
      EXPECT_STRNE(tev_offload_last_error(handle.get()), "");
      if (!in_shared) EXPECT_TRUE(f.a.same_bits(start)) << text;
      EXPECT_EQ(factor(handle.get(), kind, start).code, TEV_OFFLOAD_OK) << "the handle is of use without its sink";
    }
  }
  EXPECT_GT(finished, 0);
  EXPECT_GT(ended, 0);
}

}  // namespace
}  // namespace tev::test
