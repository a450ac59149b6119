// SPDX-License-Identifier: BSD-3-Clause
#include "factorizations/lu.h"

#include "factorizations/kernels.h"
#include "factorizations/lu_panel.h"
#include "factorizations/team_steps.h"

namespace tev::lapack {

template <class T>
bool lu_factorization<T>::factor(int64_t panel) {
  const span own = division_.block(panel);
  const int64_t info = factor_lu(a_.block(own.begin, own.begin, a_.rows - own.begin, own.size()), pivots_ + own.begin);
  for (int64_t i = own.begin; i < own.end; ++i) pivots_[i] += own.begin;
  if (info_ == 0 && info != 0) info_ = own.begin + info;
  return true;
}

// At the end a block to the left gets the interchanges of all panels after its own.
template <class T>
void lu_factorization<T>::update(int64_t panel, const span& blocks) {
  const span columns = division_.columns_of(blocks);
  const matrix_view<T> target = a_.block(0, columns.begin, a_.rows, columns.size());
  if (panel == division_.panels()) return interchange_rows(target, pivots_, columns.end, division_.order);
  const span own = division_.block(panel);
  const int64_t below = a_.rows - own.end;
  interchange_rows(target, pivots_, own.begin, own.end);
  const matrix_view<T> top = target.block(own.begin, 0, own.size(), target.columns);
  solve('L', 'L', 'N', 'U', a_.block(own.begin, own.begin, own.size(), own.size()), top);
  subtract_product('N', a_.block(own.end, own.begin, below, own.size()), 'N', top,
                   target.block(own.end, 0, below, target.columns));
}

namespace {

// Few columns: one thread, recursively.
constexpr int64_t kFewestColumns = 256;

plan plan_of(int64_t order) {
  const int64_t threads = blas::permitted_threads();
  if (threads == 1 || order < kFewestColumns) return {1, order, 1, 1};
  return plan_of_products(order, 1536, threads);  // panels cost twice as much as those of Cholesky
}

}  // namespace

template <class T>
int64_t lu_in_process(const matrix_view<T>& a, int64_t* pivots) {
  const int64_t order = std::min(a.rows, a.columns);
  const plan p = plan_of(order);
  columns_done told(order);
  if (p.threads == 1) return factor_lu(a, pivots, &told);
  lu_factorization<T> lu(a, pivots, p.width);
  return run_on_team(lu, lu.division().panels(), lu.division().blocks(), p) ? lu.info() : factor_lu(a, pivots);
}

template class lu_factorization<float>;
template class lu_factorization<double>;
template class lu_factorization<tev_complex8>;
template class lu_factorization<tev_complex16>;
template int64_t lu_in_process(const matrix_view<float>&, int64_t*);
template int64_t lu_in_process(const matrix_view<double>&, int64_t*);
template int64_t lu_in_process(const matrix_view<tev_complex8>&, int64_t*);
template int64_t lu_in_process(const matrix_view<tev_complex16>&, int64_t*);

}  // namespace tev::lapack
