// SPDX-License-Identifier: BSD-3-Clause
// The packed-buffer framework by its names, on the tiers that have it and that the processor runs.
//   Buffers              memory of every mode, and a panel found again
//   Layout               every copy, element by element; source and panel end at an unmapped page
//   Kernel               classes of beta
//   Drivers              the routines of the kernel information make the product; also when memory is short
//   OtherOperations      symm, syrk, trmm, trsm by the routines of theirs; one triangle alone is read or written
//   Team                 threads that run already share a product

#include "blas_threading/team/barrier.h"
#include "kernels/records.h"
#include "tests/support/described.h"
#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"
#include "tev/service.h"

namespace tev::test {
namespace {

using namespace tev::kernels;

// Installed before the library's first allocation; short on demand.
bool memory_is_short = false;
void* allocate_unless_short(size_t size) { return memory_is_short ? nullptr : std::malloc(size); }
const bool kInstalled = (i_malloc = allocate_unless_short) != nullptr;

template <class T>
struct framework {
  using E = c_element_t<T>;
  explicit framework(const std::string& of_tier) : tier(of_tier) {
    strategy s;
    initialize_strategy(&s);
    mr = s.mr, nr = s.nr;
  }
  std::string tier;
  int64_t mr, nr;
  kernel_address named(const std::string& name) const { return find_kernel(tier, name, kLetter<T>); }
  gemm_team_fn<E>* team = named("x?gemm_internal_team");
  void (*initialize_strategy)(strategy*) = named("?gemm_initialize_strategy");
  initialize_kernel_info_fn<E>* initialize_info = named("?gemm_initialize_kernel_info");
  initialize_buffers_fn* initialize_buffers = named("?gemm_initialize_buffers");

  static std::vector<framework> tiers() {
    std::vector<framework> all;
    for (const std::string& tier : tiers_with<T>("?gemm_initialize_strategy")) all.emplace_back(tier);
    return all;
  }
};

template <class T>
blas_case<T> whole_case(operation op, const std::string& options, int64_t m, int64_t n, int64_t k) {
  engine random(7);
  return {problem_of(op, options, m, n, k, number<T>(2, 1), in_place(op) ? T(0) : number<T>(-1, 1)), random,
          op == operation::trsm ? values::fractions : values::whole};
}

// Of a product of 300 x 100 x 200.
template <class T>
buffers blocks_of(const framework<T>& f, int32_t pack) {
  strategy s;
  f.initialize_strategy(&s);
  s.pack = pack;
  s.check(&s);
  const T* const nothing = nullptr;
  const operand a = make_operand(kNoTrans, in(nothing), 300, 200, 300),
                b = make_operand(kNoTrans, in(nothing), 200, 100, 200);
  buffers out;
  EXPECT_EQ(0, f.initialize_buffers(&a, &b, &s, &out));
  return out;
}

template <class T>
class Framework : public testing::Test {};
TYPED_TEST_SUITE(Framework, Elements);

TYPED_TEST(Framework, Buffers) {
  for (const auto& f : framework<TypeParam>::tiers()) {
    for (const int32_t pack : {0, 2})
      for (int32_t mode = 0; mode <= 6; ++mode) {
        buffers b = blocks_of(f, pack);
        b.mode = mode;
        b.threads = 3;
        const bool known = mode >= 1 && mode <= (pack == 2 ? 5 : 4);
        ASSERT_EQ(b.get(&b), known ? 0 : 1) << f.tier << mode;
        EXPECT_EQ(b.base != nullptr, known);
        if (!known) continue;
        for (const panel* p : {&b.a, &b.b})
          if (p->data != nullptr)
            std::memset(p->data, 1,
                        static_cast<size_t>(mode < 4 ? p->kc * p->extent * p->element_size : 3 * b.thread_stride));
        if (pack == 2 && mode <= 2) {
          void* const panel_at = mode == 1 ? b.a.data : b.b.data;
          buffers again = blocks_of(f, pack);
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

// '#' in a name stands for the height of the strips. Of a symmetric operand one triangle is stored.
constexpr struct {
  const char* name;
  bool of_a, walks_rows, conjugates;
  char stored = 0;
} kCopies[] = {{"?gemm_copyan", true, false, false},
               {"?gemm_copyat", true, true, false},
               {"?gemm_copyac", true, true, true},
               {"?gemm_copybn", false, true, false},
               {"?gemm_copybt", false, false, false},
               {"?gemm_copybc", false, false, true},
               {"?copy_down#_ea", true, false, false},
               {"?copy_right#_ea", true, true, false},
               {"?ccopy_right#_ea", true, true, true},
               {"?copy_right#_ea", false, true, false},
               {"?copy_down#_ea", false, false, false},
               {"?ccopy_down#_ea", false, false, true},
               {"?symm_copy_lower_left", true, false, false, 'L'},
               {"?symm_copy_upper_left", true, false, false, 'U'},
               {"?symm_copy_lower_right", false, true, false, 'L'},
               {"?symm_copy_upper_right", false, true, false, 'U'}};

TYPED_TEST(Framework, Layout) {
  using T = TypeParam;
  using E = c_element_t<T>;
  engine random(3);
  for (const auto& f : framework<T>::tiers())
    for (const auto& c : kCopies)
      for (const T scalar : {number<T>(1, 0), number<T>(2, -1)}) {
        const int64_t strip = c.of_a ? f.mr : f.nr, across = 3 * strip - 1, depth = 37, order = std::max(across, depth);
        const int64_t rows = c.walks_rows ? depth : across, columns = c.walks_rows ? across : depth;
        matrix<T> source(c.stored ? order : rows, c.stored ? order : columns);
        source.fill(random, values::whole);
        const auto is_stored = [&](int64_t i, int64_t j) { return i == j || (i > j) == (c.stored == 'L'); };
        for (int64_t j = 0; c.stored && j < order; ++j)
          for (int64_t i = 0; i < order; ++i)
            if (!is_stored(i, j)) source(i, j) = nan_element<T>();
        const guarded_array<T> panel(across * depth);
        std::string name = c.name;
        if (const size_t at = name.find('#'); at != std::string::npos) {
          name.replace(at, 1, std::to_string(strip));
          copy_ea_fn<E>* const copy = f.named(name);
          const int64_t ld = source.ld();
          copy(&depth, &across, in(&scalar), in(source.data()), &ld, reinterpret_cast<E*>(panel.data()));
        } else {
          operand x =
              make_operand(kNoTrans, in(source.data()), c.of_a ? across : depth, c.of_a ? depth : across, source.ld());
          if (c.stored) x.copy_mode |= triangle_bit(c.stored);
          packed target = {panel.data(), 0, 0};
          copy_fn<E>* const copy = f.named(name);
          copy(&x, &target, in(&scalar));
          EXPECT_EQ(target.depth, depth);
          EXPECT_EQ(target.width, across);
        }
        for (int64_t s = 0; s < across; ++s)
          for (int64_t p = 0; p < depth; ++p) {
            int64_t height = 0;
            const int64_t start = strip_of(s, across, strip, height);
            const bool turned = c.stored ? !is_stored(s, p) : c.walks_rows;
            T from = turned ? source(p, s) : source(s, p);
            if constexpr (kIsComplex<T>)
              if (c.conjugates) from = std::conj(from);
            ASSERT_EQ(panel.data()[start * depth + p * height + s - start], scalar * from)
                << f.tier << name << " at " << s << ' ' << p;
          }
      }
}

TYPED_TEST(Framework, KernelAndClassesOfBeta) {
  using T = TypeParam;
  using E = c_element_t<T>;
  for (const auto& f : framework<T>::tiers())
    for (const T beta : {T(0), T(1), T(-2), nan_element<T>()}) {
      engine random(5);
      const int64_t m = 3 * f.mr - 1, n = 2 * f.nr - 1, k = 61;
      const blas_case<T> x(problem_of(operation::gemm, "NN", m, n, k, number<T>(2, 1), beta), random, values::whole);
      const guarded_array<T> a_panel(m * k), b_panel(n * k);
      const matrix<T> result = x.start();
      const auto op = described(x.p, result);
      packed to_a = {a_panel.data(), 0, 0}, to_b = {b_panel.data(), 0, 0};
      const T one(1);
      copy_fn<E>*const copy_a = f.named("?gemm_copyan"), *const copy_b = f.named("?gemm_copybn");
      ker0_fn<E>* const ker0 = f.named("?gemm_ker0");
      copy_a(&op.a, &to_a, in(&one));
      copy_b(&op.b, &to_b, &op.alpha);
      ker0(&k, in(a_panel.data()), in(b_panel.data()), &op.beta, &op.c);
      EXPECT_TRUE(is_right(x, result, true)) << f.tier;
    }
}

// Computes a case by the routines of the kernel information, where `code` (0: what the tier says) is the strategy; with
// kACopied A is packed by the caller, in a panel that outlives several products.
template <class T>
void expect_driver_computes(const framework<T>& f, const blas_case<T>& x, int32_t code = 0, bool is_short = false) {
  SCOPED_TRACE(testing::Message() << f.tier << ", strategy " << code << (is_short ? ", short" : ""));
  const matrix<T> result = x.start();
  const auto op = described(x.p, result);
  strategy s;
  kernel_info<c_element_t<T>> info;
  buffers buf;
  f.initialize_strategy(&s);
  s.strategy_code = code;
  EXPECT_EQ(0, f.initialize_info(&op, &op.a, &op.b, &op.c, &s, &info));
  EXPECT_EQ(info.element_size, static_cast<int64_t>(sizeof(T)));
  EXPECT_TRUE(x.p.op != operation::gemm || (info.plan.mr == f.mr && info.pst_m > 0 && info.pst_n > 0));
  tev_serv_free_buffers();
  const guarded_array<T> a_panel(op.m * op.k);
  if (code == kACopied) {
    f.initialize_buffers(&op.a, &op.b, &info.plan, &buf);
    ASSERT_EQ(buf.get(&buf), 0);
    packed to = {buf.a.data = a_panel.data(), 0, 0};
    const T one(1);
    info.copy_a(&op.a, &to, in(&one));
  }
  memory_is_short = is_short;
  const int32_t status = info.driver(&op, &op.a, &op.b, &op.c, &buf, &info);
  if (x.p.op == operation::gemm) EXPECT_EQ(status, is_short ? 2 : 0);
  if (status == 2) EXPECT_EQ(0, info.fallback(&op, &op.a, &op.b, &op.c, &buf, &info));
  memory_is_short = false;
  if (code == kACopied) buf.free(&buf);
  EXPECT_TRUE(is_right(x, result, x.p.op != operation::trsm));
  if (x.p.op != operation::syrk) return;
  const T zero(0);
  info.mscale(&op.c, in(&zero));
  blas_case<T> cleared = x;
  cleared.p.alpha = cleared.p.beta = zero;
  EXPECT_TRUE(is_right(cleared, result, true));
}

TYPED_TEST(Framework, DriversOfTheKernelInformation) {
  using T = TypeParam;
  for (const auto& f : framework<T>::tiers())
    for (const char* letters : {"NN", "NT", "NC", "TN", "TT", "TC", "CN", "CT", "CC"}) {
      for (const bool is_short : {false, true})  // large enough for panels to pay
        expect_driver_computes(f, whole_case<T>(operation::gemm, letters, 431, 75, 31), 0, is_short);
      expect_driver_computes(f, whole_case<T>(operation::gemm, letters, 2 * f.mr + 1, f.nr + 1, 100), kACopied);
    }
}

TYPED_TEST(Framework, OtherOperationsOfTheKernelInformation) {
  using T = TypeParam;
  for (const auto& f : framework<T>::tiers())
    for (const char side : {'L', 'R'})
      for (const char uplo : {'U', 'L'}) {
        const bool left = side == 'L';
        for (const int64_t order : {f.mr + f.nr + 3, int64_t{400}})  // more than one panel of k
          for (const bool is_short : {false, true})
            expect_driver_computes(
                f, whole_case<T>(operation::symm, {side, uplo}, left ? order : 3, left ? 3 : order, 0), 0, is_short);
        for (const int32_t code : {kFullCopy, kACopied, kNoCopy})
          expect_driver_computes(f, whole_case<T>(operation::syrk, {uplo, left ? 'N' : 'T'}, 0, f.mr + 370, 30), code);
        // On the stack, in one block, in several.
        constexpr struct {
          int64_t order, places;
          bool is_short;
        } kTriangles[] = {{19, 5, false}, {75, 33, false}, {75, 33, true}, {260, 17, false}};
        for (const auto& [order, places, is_short] : kTriangles)
          for (const char diag : {'U', 'N'})
            for (const operation op : {operation::trmm, operation::trsm})
              expect_driver_computes(f,
                                     whole_case<T>(op, {side, uplo, "NTC"[order % 3], diag}, left ? order : places,
                                                   left ? places : order, 0),
                                     0, is_short);
      }
}

TYPED_TEST(Framework, Team) {
  using T = TypeParam;
  constexpr struct {
    int64_t threads, m, n, k;
  } kCases[] = {{1, 70, 80, 50}, {2, 101, 150, 390}, {3, 205, 7, 60}, {3, 61, 100, 0}};
  for (const auto& f : framework<T>::tiers())
    for (const auto& [threads, m, n, k] : kCases)
      for (const bool is_short : {false, true}) {
        const blas_case<T> x = whole_case<T>(operation::gemm, "NC", m, n, k);
        const matrix<T> result = x.start();
        blas::barrier_block barrier = {};
        void* board = nullptr;
        std::vector<int32_t> status(static_cast<size_t>(threads));
        tev_serv_free_buffers();
        memory_is_short = is_short;
        std::vector<std::thread> team;
        for (int64_t thread = 0; thread < threads; ++thread)
          team.emplace_back([&, thread, size = threads] {
            status[static_cast<size_t>(thread)] =
                call_product(x.p, result.data(), f.team, &thread, &size, static_cast<void*>(&barrier),
                             reinterpret_cast<uint64_t>(&board), uint64_t{0}, uint64_t{0}, uint64_t{0}, 2);
          });
        for (auto& thread : team) thread.join();
        memory_is_short = false;
        for (const int32_t value : status) EXPECT_EQ(value, is_short ? 1 : 0);
        if (!is_short) EXPECT_TRUE(is_right(x, result, true)) << f.tier;
      }
}

}  // namespace
}  // namespace tev::test
