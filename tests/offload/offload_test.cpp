// SPDX-License-Identifier: BSD-3-Clause
// Factorizations through a real sink: their factors, the same bits every time, wherever the matrix lies; and a sink
// that is killed at some moment: never a wrong result that is said to be right.
#include "tev/offload.h"

#include <signal.h>
#include <unistd.h>

#include <deque>
#include <fstream>
#include <map>
#include <thread>

#include "offload/sink_steps.h"
#include "tests/factorizations/reflected.h"
#include "tests/support/effort.h"
#include "tests/support/failing_new.h"
#include "tev/service.h"

namespace tev::test {
namespace {

template <class T>
struct offload_calls;
#define TEV_OFFLOAD_CALLS(T, p)                           \
  template <>                                             \
  struct offload_calls<T> {                               \
    static constexpr auto getrf = tev_offload_##p##getrf; \
    static constexpr auto getrs = tev_offload_##p##getrs; \
    static constexpr auto getri = tev_offload_##p##getri; \
    static constexpr auto gecon = tev_offload_##p##gecon; \
    static constexpr auto gels = tev_offload_##p##gels;   \
    static constexpr auto potrs = tev_offload_##p##potrs; \
    static constexpr auto pocon = tev_offload_##p##pocon; \
    static constexpr auto potri = tev_offload_##p##potri; \
    static constexpr auto potrf = tev_offload_##p##potrf; \
    static constexpr auto geqrf = tev_offload_##p##geqrf; \
    static constexpr auto gesv = tev_offload_##p##gesv;   \
    static constexpr auto posv = tev_offload_##p##posv;   \
  };
TEV_OFFLOAD_CALLS(float, s)
TEV_OFFLOAD_CALLS(double, d)
TEV_OFFLOAD_CALLS(std::complex<float>, c)
TEV_OFFLOAD_CALLS(std::complex<double>, z)

enum class what { lu, lower_cholesky, upper_cholesky, qr };

class sink_handle {
 public:
  explicit sink_handle(int32_t sink_threads, int32_t host_threads = 1, bool finish_here = false)
      : sink_handle(TEV_SINK_PATH, sink_threads, host_threads, finish_here) {}
  sink_handle(const char* sink, int32_t sink_threads, int32_t host_threads, bool finish_here = false) {
    const tev_offload_options options = {sink, nullptr, sink_threads, 0, finish_here, host_threads};
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

template <class T>
factored<T> factor(tev_offload* handle, what kind, const matrix<T>& start, T* shared = nullptr) {
  const int64_t m = start.rows(), n = start.columns(), order = std::min(m, n), lda = start.ld();
  factored<T> f = {start, {order, 1, 0}, std::vector<int64_t>(static_cast<size_t>(order)), 7, 7};
  if (shared != nullptr) std::copy_n(start.data(), start.size(), shared);
  auto* const a = reinterpret_cast<c_element_t<T>*>(shared != nullptr ? shared : f.a.data());
  if (kind == what::lu)
    f.code = offload_calls<T>::getrf(handle, &m, &n, a, &lda, f.pivots.data(), &f.info);
  else if (kind == what::qr)
    f.code = offload_calls<T>::geqrf(handle, &m, &n, a, &lda, at(f.tau), &f.info);
  else
    f.code = offload_calls<T>::potrf(handle, kind == what::lower_cholesky ? "L" : "u", &n, a, &lda, &f.info);
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

constexpr struct {
  what kind;
  const char* name;
} kFactorizations[] = {
    {what::lu, "LU"}, {what::lower_cholesky, "Cholesky L"}, {what::upper_cholesky, "Cholesky U"}, {what::qr, "QR"}};

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
  using T = TypeParam;
  const sink_handle handle(1);
  for (const what kind : {what::lu, what::upper_cholesky})
    for (const int64_t n : {40, 521}) {
      engine random(6);
      const matrix<T> start = start_for<T>(kind, n, n, random);
      factored<T> f = {start, {1, 1}, std::vector<int64_t>(static_cast<size_t>(n)), 7, 7};
      matrix<T> x(n, 2);
      x.fill(random, values::fractions);
      wide_matrix<wide_t<T>> right = widened(x);
      const int64_t two = 2, lda = start.ld(), ldb = x.ld();
      f.code =
          kind == what::lu
              ? offload_calls<T>::gesv(handle.get(), &n, &two, at(f.a), &lda, f.pivots.data(), at(x), &ldb, &f.info)
              : offload_calls<T>::posv(handle.get(), "U", &n, &two, at(f.a), &lda, at(x), &ldb, &f.info);
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
  using T = TypeParam;
  const sink_handle handle(1);
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
      const double busy = tev_offload_busy_seconds(handle.get());
      ASSERT_EQ(offload_calls<T>::gels(handle.get(), &trans, &rows, &columns, &two, at(a), &lda, at(b), &ldb, &info),
                TEV_OFFLOAD_OK);
      EXPECT_EQ(info, 0);
      EXPECT_GT(tev_offload_busy_seconds(handle.get()), busy);
      for (int64_t j = 0; j < 2; ++j)
        for (int64_t i = 0; i < x.rows(); ++i) x(i, j) = b(i, j);
      expect_columns_close<T>(op_a * widened(x), right, column_norms(moduli(op_a) * moduli(widened(x))), m + n,
                              std::string("gels ") + trans + std::to_string(m));
    }
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
