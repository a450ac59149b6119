// SPDX-License-Identifier: BSD-3-Clause
// The packed-buffer framework by its names, on the tiers that have it and that the processor runs.
//   Strategy, Blocks     the numbers at their thresholds and one either side
//   Buffers              sizes, addresses and header of every mode
//   Layout               every copy, element by element; source and panel end at an unmapped page
//   Kernel               classes of beta
//   Drivers              the routines of the kernel information make the product; also when memory is short
//   OtherOperations      symm, syrk, trmm, trsm by the routines of theirs; one triangle alone is read or written
//   Team                 threads that run already share a product
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "blas_threading/team/barrier.h"
#include "kernels/records.h"
#include "tests/support/guarded.h"
#include "tests/support/tier_list.h"
#include "tev/service.h"

#define TEV_EACH_FRAMEWORK_TIER(row) row(avx2) row(avx512) row(avx512_zel)

namespace tev::test {
namespace {

using namespace tev::kernels;

// Installed before the library's first allocation; short on demand.
bool memory_is_short = false;
void* allocate_unless_short(size_t size) { return memory_is_short ? nullptr : std::malloc(size); }
const bool kInstalled = (i_malloc = allocate_unless_short) != nullptr;

template <class T>
struct framework {
  std::string tier;
  int64_t mr, nr, t1, t2, kc, mc, nc;
  gemm_fn<T>* gemm;
  gemm_team_fn<T>* team;
  void (*initialize_strategy)(strategy*);
  map_thread_to_kernel_fn* map;
  initialize_kernel_info_fn<T>* initialize_info;
  initialize_buffers_fn* initialize_buffers;
  copy_fn<T>*copyan, *copyat, *copyac, *copybn, *copybt, *copybc;
  ker0_fn<T>* ker0;
  driver_fn<T>*full, *a_copied, *in_place;
};

#define TEV_DECLARE(tier, p, T)                                                                                      \
  extern "C" gemm_fn<T> tev_blas_##tier##_x##p##gemm;                                                                \
  extern "C" gemm_team_fn<T> tev_blas_##tier##_x##p##gemm_internal_team;                                             \
  extern "C" void tev_blas_##tier##_##p##gemm_initialize_strategy(strategy*);                                        \
  extern "C" map_thread_to_kernel_fn tev_blas_##tier##_##p##gemm_map_thread_to_kernel;                               \
  extern "C" initialize_kernel_info_fn<T> tev_blas_##tier##_##p##gemm_initialize_kernel_info;                        \
  extern "C" initialize_buffers_fn tev_blas_##tier##_##p##gemm_initialize_buffers;                                   \
  extern "C" copy_fn<T> tev_blas_##tier##_##p##gemm_copyan, tev_blas_##tier##_##p##gemm_copyat;                      \
  extern "C" copy_fn<T> tev_blas_##tier##_##p##gemm_copyac, tev_blas_##tier##_##p##gemm_copybn;                      \
  extern "C" copy_fn<T> tev_blas_##tier##_##p##gemm_copybt, tev_blas_##tier##_##p##gemm_copybc;                      \
  extern "C" ker0_fn<T> tev_blas_##tier##_##p##gemm_ker0;                                                            \
  extern "C" driver_fn<T> tev_blas_##tier##_##p##_generic_fullacopybcopy, tev_blas_##tier##_x##p##gemm_acopiedbcopy, \
      tev_blas_##tier##_x##p##gemm_nocopy_driver;
#define TEV_DECLARE_TIER(tier)       \
  TEV_DECLARE(tier, s, float)        \
  TEV_DECLARE(tier, d, double)       \
  TEV_DECLARE(tier, c, tev_complex8) \
  TEV_DECLARE(tier, z, tev_complex16)
TEV_EACH_FRAMEWORK_TIER(TEV_DECLARE_TIER)

#define TEV_ROW(tier, p, ...)                                                                                       \
  {                                                                                                                 \
#tier, __VA_ARGS__, tev_blas_##tier##_x##p##gemm, tev_blas_##tier##_x##p##gemm_internal_team,                   \
        tev_blas_##tier##_##p##gemm_initialize_strategy, tev_blas_##tier##_##p##gemm_map_thread_to_kernel,          \
        tev_blas_##tier##_##p##gemm_initialize_kernel_info, tev_blas_##tier##_##p##gemm_initialize_buffers,         \
        tev_blas_##tier##_##p##gemm_copyan, tev_blas_##tier##_##p##gemm_copyat, tev_blas_##tier##_##p##gemm_copyac, \
        tev_blas_##tier##_##p##gemm_copybn, tev_blas_##tier##_##p##gemm_copybt, tev_blas_##tier##_##p##gemm_copybc, \
        tev_blas_##tier##_##p##gemm_ker0, tev_blas_##tier##_##p##_generic_fullacopybcopy,                           \
        tev_blas_##tier##_x##p##gemm_acopiedbcopy, tev_blas_##tier##_x##p##gemm_nocopy_driver                       \
  }

template <class T>
struct precision;
#define TEV_PRECISION(T, ...)                                                        \
  template <>                                                                        \
  struct precision<T> {                                                              \
    static std::vector<framework<T>> tiers() {                                       \
      std::vector<framework<T>> all = {__VA_ARGS__};                                 \
      std::erase_if(all, [](const auto& row) { return !processor_runs(row.tier); }); \
      return all;                                                                    \
    }                                                                                \
  };
//                                            mr  nr   t1   t2   kc     mc   nc
TEV_PRECISION(float, TEV_ROW(avx2, s, 24, 4, 256, 384, 192, 10008, 384),
              TEV_ROW(avx512, s, 48, 8, 384, 768, 384, 9984, 384),
              TEV_ROW(avx512_zel, s, 16, 28, 336, 672, 336, 9888, 224))
TEV_PRECISION(double, TEV_ROW(avx2, d, 12, 4, 256, 384, 192, 5004, 192),
              TEV_ROW(avx512, d, 24, 8, 384, 768, 384, 4992, 192),
              TEV_ROW(avx512_zel, d, 8, 28, 336, 672, 336, 4992, 112))
TEV_PRECISION(tev_complex8, TEV_ROW(avx2, c, 12, 2, 256, 384, 192, 5004, 192),
              TEV_ROW(avx512, c, 24, 4, 384, 768, 384, 4992, 192),
              TEV_ROW(avx512_zel, c, 8, 14, 336, 672, 336, 4992, 112))
TEV_PRECISION(tev_complex16, TEV_ROW(avx2, z, 6, 2, 256, 384, 192, 2502, 96),
              TEV_ROW(avx512, z, 12, 4, 384, 768, 384, 2496, 96),
              TEV_ROW(avx512_zel, z, 4, 14, 336, 672, 336, 2496, 56))

// ---- Elements: whole numbers, as pairs -----------------------------------------------------------------------------

template <class T>
constexpr bool kComplex = sizeof(T) == 2 * alignof(T);

template <class T>
T element(int re, int im) {
  if constexpr (kComplex<T>)
    return {static_cast<decltype(T{}.real)>(re), static_cast<decltype(T{}.real)>(im)};
  else
    return static_cast<T>(re);
}
template <class T>
std::pair<double, double> parts(T x) {
  if constexpr (kComplex<T>)
    return {x.real, x.imag};
  else
    return {x, 0};
}
template <class T>
T times(T x, T y, bool conjugated) {
  const auto [a, b] = parts(x);
  const auto [c, d] = parts(y);
  const double e = conjugated ? -d : d;
  return element<T>(static_cast<int>(a * c - b * e), static_cast<int>(a * e + b * c));
}
template <class T>
T plus(T x, T y) {
  return element<T>(static_cast<int>(parts(x).first + parts(y).first),
                    static_cast<int>(parts(x).second + parts(y).second));
}

template <class T>
struct array : guarded_array<T> {
  int64_t ld;
  array(int64_t rows, int64_t columns) : guarded_array<T>(rows * columns), ld(rows) {
    for (int64_t i = 0; i < rows * columns; ++i)
      this->data()[i] = element<T>(static_cast<int>(i * 7 % 11) - 5, static_cast<int>(i * 5 % 7) - 3);
  }
  T& operator()(int64_t i, int64_t j) const { return this->data()[i + j * ld]; }
};

template <class T>
operand describe(const array<T>& x, char trans, int64_t rows, int64_t columns) {
  const int32_t mode = trans == 'N' ? kCopyPlain : trans == 'T' ? kCopyTrans : kCopyConjTrans;
  return {x.data(), rows, columns,   x.ld, 0,
          0,        rows, sizeof(T), mode, trans == 'N' ? getPointer_notrans : getPointer_trans};
}

// A product C := alpha op(A) op(B) + beta C and its result.
template <class T>
struct product {
  array<T> a, b, c, expected;
  operation<T> op = {};

  product(char ta, char tb, int64_t m, int64_t n, int64_t k)
      : a(ta == 'N' ? m : k, ta == 'N' ? k : m), b(tb == 'N' ? k : n, tb == 'N' ? n : k), c(m, n), expected(m, n) {
    op.op_a = ta == 'N' ? kNoTrans : ta == 'T' ? kTrans : kConjTrans;
    op.op_b = tb == 'N' ? kNoTrans : tb == 'T' ? kTrans : kConjTrans;
    op.alpha = element<T>(2, 1);
    op.beta = element<T>(-1, 1);
    op.m = m, op.n = n, op.k = k;
    op.a = describe(a, ta, m, k);
    op.b = describe(b, tb, k, n);
    op.c = describe(c, 'N', m, n);
    compute();
  }
  // Again, when a test has changed the operands.
  void compute() {
    for (int64_t j = 0; j < op.n; ++j)
      for (int64_t i = 0; i < op.m; ++i) {
        T sum{};
        for (int64_t p = 0; p < op.k; ++p) {
          const T x = op.op_a == kNoTrans ? a(i, p) : a(p, i), y = op.op_b == kNoTrans ? b(p, j) : b(j, p);
          sum = plus(sum, times(times(op.alpha, x, op.op_a == kConjTrans), y, op.op_b == kConjTrans));
        }
        expected(i, j) = plus(sum, times(op.beta, c(i, j), false));
      }
  }
  void expect_done(const std::string& what) const {
    for (int64_t i = 0; i < op.m * op.n; ++i)
      ASSERT_EQ(parts(c.data()[i]), parts(expected.data()[i])) << what << ' ' << i % op.m << ' ' << i / op.m;
  }
};

operand extents(int64_t rows, int64_t columns) {
  operand x = {};
  x.rows = rows;
  x.columns = columns;
  return x;
}

template <class T>
buffers blocks_of(const framework<T>& f, int64_t m, int64_t n, int64_t k, int32_t pack = 0, int32_t code = 0) {
  strategy s;
  f.initialize_strategy(&s);
  s.strategy_code = code;
  s.pack = pack;
  s.check(&s);
  const operand a = extents(m, k), b = extents(k, n);
  buffers out;
  EXPECT_EQ(0, f.initialize_buffers(&a, &b, &s, &out));
  return out;
}

template <class T>
class Framework : public testing::Test {};
using precisions = testing::Types<float, double, tev_complex8, tev_complex16>;
TYPED_TEST_SUITE(Framework, precisions);

TYPED_TEST(Framework, StrategyByMode) {
  for (const auto& f : precision<TypeParam>::tiers()) {
    const int32_t kNoCopyOrFull = kComplex<TypeParam> ? kFullCopy : kNoCopy;
    const std::pair<int32_t, int32_t> kModes[] = {{0, kFullCopy},      {1, kACopied},  {2, kFullCopy},
                                                  {3, kPartitioned32}, {4, kFullCopy}, {5, kNoCopyOrFull},
                                                  {-1, kFullCopy}};
    for (const auto& [mode, code] : kModes) {
      strategy s;
      const thread_info thread = {mode};
      const int32_t unchanged = f.map(&thread, &s);
      EXPECT_EQ(s.strategy_code, code) << f.tier << mode;
      EXPECT_EQ(s.first, code == kNoCopy ? 4 : 2);
      EXPECT_EQ(s.third, 4);
      EXPECT_EQ(s.padded_mr, (s.mr + 7) / 8 * 8);
      EXPECT_EQ(s.padded_ku, 8);
      if (code != kNoCopy) {
        EXPECT_EQ(unchanged, 1);
        EXPECT_EQ(s.mr, f.mr);
        EXPECT_EQ(s.nr, f.nr);
        s.mr = 1;
        EXPECT_EQ(s.check(&s), 0);
        EXPECT_EQ(s.mr, f.mr);
      } else if (f.tier == "avx2" && sizeof(TypeParam) == 8) {
        EXPECT_EQ(s.mr, 8);
        EXPECT_EQ(s.nr, 6);
      }
    }
  }
}

TYPED_TEST(Framework, Blocks) {
  const auto up = [](int64_t x, int64_t step) { return (x + step - 1) / step * step; };
  for (const auto& f : precision<TypeParam>::tiers()) {
    const std::pair<int64_t, int64_t> kDepths[] = {
        {1, 128},     {127, 128},  {129, 129}, {f.t1, f.t1}, {f.t1 + 1, (f.t1 + 1) / 2}, {f.t2 - 1, (f.t2 - 1) / 2},
        {f.t2, f.kc}, {5000, f.kc}};
    for (const auto& [k, kc] : kDepths) EXPECT_EQ(blocks_of(f, 100, 100, k).kc, kc) << f.tier << k;
    EXPECT_EQ(blocks_of(f, 1, 1, 48).mc, f.mr);
    EXPECT_EQ(blocks_of(f, f.mr + 1, 1, 48).mc, 2 * f.mr);
    EXPECT_EQ(blocks_of(f, 20000, 1, 48).mc, f.mc) << f.tier;
    EXPECT_EQ(blocks_of(f, 1, 1, 48).nc, f.nr);
    EXPECT_EQ(blocks_of(f, 1, 30, 47).nc, up(24, f.nr)) << f.tier;
    EXPECT_EQ(blocks_of(f, 1, 30, 48).nc, up(30, f.nr));
    EXPECT_EQ(blocks_of(f, 1, 20000, 48).nc, f.nc);
    const buffers both = blocks_of(f, 100, 100, 100), b_only = blocks_of(f, 100, 100, 100, 0, kACopied);
    EXPECT_EQ(both.mode, 3);
    EXPECT_EQ(b_only.mode, 2);
    EXPECT_EQ(both.a.strip_stride, f.mr * both.kc);
    EXPECT_EQ(both.set, nullptr);
    EXPECT_NE(blocks_of(f, 100, 100, 100, 2).set, nullptr);
  }
}

TYPED_TEST(Framework, Buffers) {
  for (const auto& f : precision<TypeParam>::tiers()) {
    const auto offset_in = [](void* address, uintptr_t boundary) {
      return reinterpret_cast<uintptr_t>(address) % boundary;
    };
    for (const int32_t pack : {0, 2})
      for (int32_t mode = 0; mode <= 6; ++mode) {
        buffers b = blocks_of(f, 300, 100, 200, pack);
        b.mode = mode;
        b.threads = 3;
        const bool known = mode >= 1 && mode <= (pack == 2 ? 5 : 4);
        ASSERT_EQ(b.get(&b), known ? 0 : 1) << f.tier << mode;
        EXPECT_EQ(b.base != nullptr, known);
        if (!known) continue;
        if (mode == 1 || (mode == 3 && pack == 0)) EXPECT_EQ(offset_in(b.a.data, 1 << 21), 1664u);
        if (mode == 2 || (mode == 3 && pack == 0)) EXPECT_EQ(offset_in(b.b.data, pack == 2 ? 1 << 21 : 4096), 768u);
        if (mode == 3 && pack == 2) EXPECT_TRUE(b.a.data == nullptr && b.b.data == nullptr);
        if (mode >= 4) {
          const panel& p = mode == 4 ? b.b : b.a;
          EXPECT_EQ(offset_in(p.data, 1 << 21), 0u);
          EXPECT_GE(b.thread_stride, p.kc * p.extent * p.element_size);
          EXPECT_EQ(b.thread_stride % 4096, 0);
        }
        for (const panel* p : {&b.a, &b.b})
          if (p->data != nullptr)
            std::memset(p->data, 1,
                        static_cast<size_t>(mode < 4 ? p->kc * p->extent * p->element_size : 3 * b.thread_stride));
        if (pack == 2 && mode <= 2) {
          const auto* header = static_cast<const int64_t*>(b.base);
          void* const panel_at = mode == 1 ? b.a.data : b.b.data;
          EXPECT_EQ(header + header[0], panel_at);
          EXPECT_EQ(header[1], b.mc);
          EXPECT_EQ(header[2], b.nc);
          EXPECT_EQ(header[3], b.kc);
          EXPECT_EQ(header[10], mode - 1);
          EXPECT_EQ(header[11], -1);
          EXPECT_EQ(header[20], 1);
          buffers again = blocks_of(f, 300, 100, 200, pack);
          again.mode = mode;
          EXPECT_EQ(again.set(b.base, &again), 0);
          EXPECT_EQ(mode == 1 ? again.a.data : again.b.data, panel_at);
        }
        b.free(&b);
        EXPECT_EQ(b.base, nullptr);
      }
  }
}

// Where element `s` of the strips lies in a panel, at position 0; `height` becomes that of its strip.
int64_t strip_of(int64_t s, int64_t extent, int64_t strip, int64_t& height) {
  int64_t start = s / strip * strip;
  height = strip;
  if (start + strip <= extent) return start;
  for (height = 32; height > 0; height /= 2)
    if (height < strip && start + height <= extent) {
      if (s < start + height) return start;
      start += height;
    }
  return start;
}

TYPED_TEST(Framework, Layout) {
  using T = TypeParam;
  for (const auto& f : precision<T>::tiers()) {
    const struct {
      copy_fn<T>* copy;
      bool of_a, walks_rows, conjugates;
    } kCopies[] = {{f.copyan, true, false, false},      {f.copyat, true, true, false},
                   {f.copyac, true, true, kComplex<T>}, {f.copybn, false, true, false},
                   {f.copybt, false, false, false},     {f.copybc, false, false, kComplex<T>}};
    for (const auto& c : kCopies)
      for (const T scalar : {element<T>(1, 0), element<T>(2, -1)}) {
        const int64_t strip = c.of_a ? f.mr : f.nr, across = 3 * strip - 1, depth = 37;
        const array<T> source(c.walks_rows ? depth : across, c.walks_rows ? across : depth);
        const array<T> panel(across, depth);
        const operand x = describe(source, 'N', c.of_a ? across : depth, c.of_a ? depth : across);
        packed target = {panel.data(), 0, 0};
        c.copy(&x, &target, &scalar);
        EXPECT_EQ(target.depth, depth);
        EXPECT_EQ(target.width, across);
        for (int64_t s = 0; s < across; ++s)
          for (int64_t p = 0; p < depth; ++p) {
            int64_t height = 0;
            const int64_t start = strip_of(s, across, strip, height);
            const T expected = times(scalar, c.walks_rows ? source(p, s) : source(s, p), c.conjugates);
            ASSERT_EQ(parts(panel.data()[start * depth + p * height + s - start]), parts(expected))
                << f.tier << " copy " << &c - kCopies << " at " << s << ' ' << p;
          }
      }
  }
}

TYPED_TEST(Framework, KernelAndClassesOfBeta) {
  using T = TypeParam;
  for (const auto& f : precision<T>::tiers()) {
    const int64_t m = 3 * f.mr - 1, n = 2 * f.nr - 1, k = 61;
    for (const int beta : {0, 1, -2}) {
      const product<T> p('N', 'N', m, n, k);
      const array<T> a_panel(m, k), b_panel(n, k);
      packed to_a = {a_panel.data(), 0, 0}, to_b = {b_panel.data(), 0, 0};
      const T one = element<T>(1, 0), factor = element<T>(beta, 0);
      f.copyan(&p.op.a, &to_a, &one);
      f.copybn(&p.op.b, &to_b, &p.op.alpha);
      const array<T> before(m, n);
      if (beta == 0)
        for (int64_t i = 0; i < m * n; ++i) std::fill_n(reinterpret_cast<char*>(p.c.data() + i), sizeof(T), '\xff');
      f.ker0(&k, a_panel.data(), b_panel.data(), &factor, &p.op.c);
      for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < m; ++i) {
          const T sum = plus(p.expected(i, j), times(element<T>(1, -1), before(i, j), false));
          ASSERT_EQ(parts(p.c(i, j)), parts(plus(sum, times(factor, before(i, j), false))))
              << f.tier << ' ' << i << ' ' << j;
        }
      T not_a_number;
      std::fill_n(reinterpret_cast<char*>(&not_a_number), sizeof(T), '\xff');
      f.ker0(&k, a_panel.data(), b_panel.data(), &not_a_number, &p.op.c);
      for (const T x : {p.c(0, 0), p.c(m - 1, n - 1)}) EXPECT_TRUE(std::isnan(parts(x).first));
    }
  }
}

TYPED_TEST(Framework, DriversOfTheKernelInformation) {
  using T = TypeParam;
  for (const auto& f : precision<T>::tiers())
    for (const char ta : {'N', 'T', 'C'})
      for (const char tb : {'N', 'T', 'C'}) {
        strategy s;
        kernel_info<T> info;
        buffers buf;
        f.initialize_strategy(&s);
        for (const bool is_short : {false, true}) {
          product<T> p(ta, tb, 197, 75, 31);  // large enough for panels to pay
          EXPECT_EQ(0, f.initialize_info(&p.op, &p.op.a, &p.op.b, &p.op.c, &s, &info));
          EXPECT_EQ(info.element_size, static_cast<int64_t>(sizeof(T)));
          EXPECT_EQ(info.plan.mr, f.mr);
          EXPECT_TRUE(info.pst_m > 0 && info.pst_n > 0);
          tev_serv_free_buffers();
          memory_is_short = is_short;
          const int32_t status = info.driver(&p.op, &p.op.a, &p.op.b, &p.op.c, &buf, &info);
          memory_is_short = false;
          EXPECT_EQ(status, is_short ? 2 : 0);
          if (is_short) EXPECT_EQ(0, info.fallback(&p.op, &p.op.a, &p.op.b, &p.op.c, &buf, &info));
          p.expect_done(f.tier + " driver " + ta + tb);
        }
        // A packed by the caller, in a panel that outlives several products.
        product<T> p(ta, tb, 2 * f.mr + 1, f.nr + 1, 100);
        s.strategy_code = kACopied;
        f.initialize_info(&p.op, &p.op.a, &p.op.b, &p.op.c, &s, &info);
        f.initialize_buffers(&p.op.a, &p.op.b, &info.plan, &buf);
        ASSERT_EQ(buf.get(&buf), 0);
        const array<T> a_panel(p.op.m, p.op.k);
        packed to = {buf.a.data = a_panel.data(), 0, 0};
        const T one = element<T>(1, 0);
        info.copy_a(&p.op.a, &to, &one);
        EXPECT_EQ(info.driver(&p.op, &p.op.a, &p.op.b, &p.op.c, &buf, &info), 0);
        p.expect_done(f.tier + " A copied");
        buf.free(&buf);
      }
}

// Computes an operation by the routines of its kernel information.
template <class T>
kernel_info<T> compute_by_driver(const framework<T>& f, product<T>& p, int32_t code,
                                 int32_t strategy_code = kFullCopy) {
  strategy s;
  kernel_info<T> info;
  buffers buf;
  p.op.code = code;
  f.initialize_strategy(&s);
  if (code == kOpSyrk) s.strategy_code = strategy_code;
  f.initialize_info(&p.op, &p.op.a, &p.op.b, &p.op.c, &s, &info);
  const array<T> a_panel(p.op.m, p.op.k);
  if (s.strategy_code == kACopied) {
    f.initialize_buffers(&p.op.a, &p.op.b, &info.plan, &buf);
    EXPECT_EQ(buf.get(&buf), 0);
    packed to = {buf.a.data = a_panel.data(), 0, 0};
    const T one = element<T>(1, 0);
    info.copy_a(&p.op.a, &to, &one);
  }
  if (info.driver(&p.op, &p.op.a, &p.op.b, &p.op.c, &buf, &info) == 2)
    EXPECT_EQ(0, info.fallback(&p.op, &p.op.a, &p.op.b, &p.op.c, &buf, &info));
  if (s.strategy_code == kACopied) buf.free(&buf);
  return info;
}

// Leaves the triangle that an operand does not store unreadable; before that, `fill` says what it stands for.
template <class T, class Fill>
void store_one_triangle(array<T>& x, bool upper, const Fill& fill, bool forget) {
  for (int64_t j = 0; j < x.ld; ++j)
    for (int64_t i = 0; i < x.ld; ++i)
      if (i != j && (i < j) != upper) {
        if (forget)
          std::fill_n(reinterpret_cast<char*>(&x(i, j)), sizeof(T), '\xff');
        else
          x(i, j) = fill(x(j, i));
      }
}

TYPED_TEST(Framework, OtherOperationsOfTheKernelInformation) {
  using T = TypeParam;
  for (const auto& f : precision<T>::tiers())
    for (const bool upper : {false, true})
      for (const bool right : {false, true}) {
        const std::string what = f.tier + (upper ? " upper" : " lower") + (right ? " right" : " left");
        const int32_t triangle = upper ? kCopyUpper : kCopyLower;
        for (const int64_t order : {f.mr + f.nr + 3, int64_t{400}})  // more than one panel of k
          for (const bool is_short : {false, true}) {
            product<T> p('N', 'N', right ? 3 : order, right ? order : 3, order);
            array<T>& symmetric = right ? p.b : p.a;
            const auto mirrored = [](T x) { return x; };
            store_one_triangle(symmetric, upper, mirrored, false);
            p.compute();
            store_one_triangle(symmetric, upper, mirrored, true);
            p.op.from_right = right;
            (right ? p.op.b : p.op.a).copy_mode |= triangle;
            tev_serv_free_buffers();
            memory_is_short = is_short;
            compute_by_driver(f, p, kOpSymm);
            memory_is_short = false;
            p.expect_done(what + " symm");
          }
        for (const int32_t strategy_code : {kFullCopy, kACopied, kNoCopy}) {
          product<T> rank_k(right ? 'T' : 'N', right ? 'N' : 'T', f.mr + 70, f.mr + 70, 30);
          const array<T> before(f.mr + 70, f.mr + 70);
          rank_k.op.c.copy_mode = kCopyPlain | triangle;
          const kernel_info<T> info = compute_by_driver(f, rank_k, kOpSyrk, strategy_code);
          const auto in_triangle = [&](const auto& body) {
            for (int64_t i = 0; i < rank_k.op.n; ++i)
              for (int64_t j = 0; j < rank_k.op.n; ++j) body(i, j, (i < j) == upper || i == j);
          };
          in_triangle([&](int64_t i, int64_t j, bool inside) {
            if (!inside) rank_k.expected(i, j) = before(i, j);
          });
          rank_k.expect_done(what + " syrk by strategy " + std::to_string(strategy_code));
          const T zero{};
          info.mscale(&rank_k.op.c, &zero);
          in_triangle([&](int64_t i, int64_t j, bool inside) {
            if (inside) rank_k.expected(i, j) = zero;
          });
          rank_k.expect_done(what + " scaled triangle");
        }
        // There and back again, in place: on the stack, in one block, in several.
        const struct {
          int64_t order, places;
          bool is_short;
        } kTriangles[] = {{19, 5, false}, {75, 33, false}, {75, 33, true}, {260, 17, false}};
        for (const auto [order, places, is_short] : kTriangles)
          for (const int32_t diagonal : {kCopyUnit, kCopyNonUnit}) {
            product<T> p('N', 'N', right ? places : order, right ? order : places, order);
            array<T>&full = right ? p.a : p.b, &triangular = right ? p.b : p.a;
            for (int64_t j = 0; j < order; ++j)
              for (int64_t i = 0; i < order; ++i)
                if (i == j || (i + 7 * j) % 16 != 0) triangular(i, j) = element<T>(i == j, 0);
            const auto zero = [](T) { return T{}; };
            store_one_triangle(triangular, upper, zero, false);
            p.op.alpha = element<T>(1, 0), p.op.beta = T{};
            p.compute();
            store_one_triangle(triangular, upper, zero, true);
            for (int64_t i = 0; i < p.op.m * p.op.n; ++i) p.c.data()[i] = full.data()[i];
            p.op.from_right = right;
            (right ? p.op.b : p.op.a).copy_mode |= triangle | diagonal;
            tev_serv_free_buffers();
            memory_is_short = is_short;
            compute_by_driver(f, p, kOpTrmm);
            p.expect_done(what + " trmm");
            for (int64_t i = 0; i < p.op.m * p.op.n; ++i) p.expected.data()[i] = full.data()[i];
            compute_by_driver(f, p, kOpTrsm);
            memory_is_short = false;
            p.expect_done(what + " trsm");
          }
      }
}

TYPED_TEST(Framework, SequentialProductWhenMemoryIsShort) {
  using T = TypeParam;
  for (const auto& f : precision<T>::tiers()) {
    product<T> p('N', 'T', 200, 90, 60);
    tev_serv_free_buffers();
    memory_is_short = true;
    f.gemm("N", "T", &p.op.m, &p.op.n, &p.op.k, &p.op.alpha, p.a.data(), &p.a.ld, p.b.data(), &p.b.ld, &p.op.beta,
           p.c.data(), &p.c.ld);
    memory_is_short = false;
    p.expect_done(f.tier);
  }
}

TYPED_TEST(Framework, Team) {
  using T = TypeParam;
  const struct {
    int64_t threads, m, n, k;
  } kCases[] = {{1, 70, 80, 50}, {2, 101, 150, 390}, {3, 205, 7, 60}, {3, 61, 100, 0}};
  for (const auto& f : precision<T>::tiers())
    for (const auto& c : kCases)
      for (const bool is_short : {false, true}) {
        product<T> p('N', 'C', c.m, c.n, c.k);
        blas::barrier_block barrier = {};
        void* board = nullptr;
        std::vector<int32_t> status(static_cast<size_t>(c.threads));
        tev_serv_free_buffers();
        memory_is_short = is_short;
        std::vector<std::thread> team;
        for (int64_t thread = 0; thread < c.threads; ++thread)
          team.emplace_back([&, thread] {
            status[static_cast<size_t>(thread)] = f.team(
                "N", "C", &c.m, &c.n, &c.k, &p.op.alpha, p.a.data(), &p.a.ld, p.b.data(), &p.b.ld, &p.op.beta,
                p.c.data(), &p.c.ld, &thread, &c.threads, &barrier, reinterpret_cast<uint64_t>(&board), 0, 0, 0, 2);
          });
        for (auto& thread : team) thread.join();
        memory_is_short = false;
        for (const int32_t value : status) EXPECT_EQ(value, is_short ? 1 : 0);
        if (!is_short) p.expect_done(f.tier + " team");
      }
}

}  // namespace
}  // namespace tev::test
