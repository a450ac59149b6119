// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/plan.h"

#include "blas_threading/alone.h"
#include "blas_threading/gemm/small_n.h"
#include "blas_threading/gemm/version1.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

// Order of the diagonal blocks' triangle, and right-hand sides for each thread, from which packing the triangle is a
// small part of a thread's work; with fewer sides a large triangle goes block by block.
constexpr int64_t kFewestSides = 64, kLargeTriangle = 1024;

// A triangle up to this order is one block for the kernels, and a part of k is worth a sum of its own from here on.
constexpr int64_t kSmallOrder = 384, kLeastDepth = 384;

template <class T>
plan by_sides(const operation<T>& p, int64_t threads) {
  return {division::sides, std::min(threads, ceil_div(p.from_right != 0 ? p.m : p.n, kLine<T>))};
}

template <class T>
plan plan_of_triangle(const operation<T>& p, int64_t threads) {
  const auto [sides, order] = p.from_right != 0 ? std::pair(p.m, p.n) : std::pair(p.n, p.m);
  if (sides < threads * kFewestSides && order >= kLargeTriangle) return {division::diagonal_blocks, threads};
  return by_sides(p, threads);
}

// Parts of k change the sums with the number of threads, which a reproducible run does not want.
bool may_split_sums() { return tev_serv_cbwr_get(1) <= TEV_CBWR_AUTO; }

template <class T>
plan plan_of_rank_k(const operation<T>& p, int64_t threads) {
  const bool deep = p.n <= kSmallOrder && p.k >= threads * kLeastDepth;
  return {deep && may_split_sums() ? division::depth : division::columns, threads};
}

template <class T>
plan plan_of_product(const operation<T>& p, int64_t threads) {
  if (!has_drivers()) return p.code == kernels::kOpGemm ? plan_of_version1(p, threads) : by_sides(p, threads);
  if constexpr (!kComplex<T>)
    if (p.code == kernels::kOpGemm && takes_small_n(tev_serv_cpu_detect(), p))
      return {division::rows, available_threads(product_work(p.m, p.n, p.k))};
  return {division::grid, threads};
}

}  // namespace

template <class T>
plan plan_of_version1(const operation<T>& p, int64_t threads) {
  return {sharing_pays(p, threads) ? division::shared_blocks : division::blocks, threads};
}

template <class T>
plan plan_of(const operation<T>& p) {
  const int64_t threads = threads_worth<T>(p.code, p.m, p.n, p.k);
  if (threads == 1) return {division::none, 1};
  switch (p.code) {
    case kernels::kOpTrmm:
    case kernels::kOpTrsm:
      return plan_of_triangle(p, threads);
    case kernels::kOpSyrk:
    case kernels::kOpSyr2k:
      return plan_of_rank_k(p, threads);
    default:
      return plan_of_product(p, threads);
  }
}

#define TEV_INSTANTIATE(p, T)                 \
  template plan plan_of(const operation<T>&); \
  template plan plan_of_version1(const operation<T>&, int64_t);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
