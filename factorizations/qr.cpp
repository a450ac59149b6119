// SPDX-License-Identifier: BSD-3-Clause
#include "factorizations/qr.h"

#include "factorizations/kernels.h"
#include "factorizations/team_steps.h"
#include "factorizations/workspace.h"

namespace tev::lapack {

template <class T>
bool qr_factorization<T>::factor(int64_t panel) {
  const span own = division_.block(panel);
  factor_qr_panel(a_.block(own.begin, own.begin, a_.rows - own.begin, own.size()), tau_ + own.begin, factors(own));
  return true;
}

template <class T>
void qr_factorization<T>::update_columns(int64_t panel, const span& columns) {
  if (columns.size() < 1) return;
  const span own = division_.block(panel);
  const int64_t rows = a_.rows - own.begin;
  const matrix_view<T> w = part_of_workspace(2 * division_.order, columns);
  apply_qr_panel(a_.block(own.begin, own.begin, rows, own.size()), factors(own).t,
                 a_.block(own.begin, columns.begin, rows, columns.size()), w.block(0, 0, own.size(), w.columns));
}

template <class T>
void qr_factorization<T>::take_back_r(const span& panel) {
  const matrix_view<T> r = factors(panel).r;
  for (int64_t j = 0; j < panel.size(); ++j)
    for (int64_t i = 0; i <= j; ++i) a_(panel.begin + i, panel.begin + j) = r(i, j);
}

template <class T>
void qr_factorization<T>::update(int64_t panel, const span& blocks) {
  if (panel < division_.panels()) return update_columns(panel, division_.columns_of(blocks));
  for (int64_t own = blocks.begin; own < std::min(blocks.end, division_.panels()); ++own)
    take_back_r(division_.block(own));
}

template <class T>
void qr_factorization<T>::update_rest(int64_t panel) {
  const span own = division_.block(panel);
  update_columns(panel, {own.end, division_.columns});
  take_back_r(own);
}

namespace {

plan plan_of(int64_t order) {
  const int64_t threads = blas::permitted_threads();
  if (threads == 1 || order < 256) return {1, order < 64 ? order : order < 512 ? 32 : order < 2048 ? 64 : 128, 1, 1};
  return {threads, order < 1024 ? 64 : 128, 1, 1};
}

template <class T>
void factor_alone(qr_factorization<T>& qr) {
  step_observer* const observer = observer_of_this_thread;
  const int64_t panels = qr.division().panels(), blocks = qr.division().blocks();
  if (observer != nullptr) observer->begins(panels);
  for (int64_t panel = 0; panel < panels; ++panel) {
    {
      const observed_step observed(observer, step_kind::panel, 0, panel, {panel, panel + 1});
      qr.factor(panel);
    }
    const observed_step observed(observer, step_kind::update, 0, panel, {panel + 1, blocks});
    qr.update_rest(panel);
  }
}

}  // namespace

template <class T>
bool qr_in_process(const matrix_view<T>& a, T* tau) {
  const int64_t order = std::min(a.rows, a.columns);
  const plan p = plan_of(order);
  const workspace<T> space(qr_factorization<T>::workspace_elements(order, a.columns, p.width));
  if (!space) return false;
  qr_factorization<T> qr(a, tau, p.width, space.data());
  const bool has_run = p.threads > 1 && run_on_team(qr, qr.division().panels(), qr.division().blocks(), p);
  if (!has_run) factor_alone(qr);
  return true;
}

template class qr_factorization<float>;
template class qr_factorization<double>;
template class qr_factorization<tev_complex8>;
template class qr_factorization<tev_complex16>;
template bool qr_in_process(const matrix_view<float>&, float*);
template bool qr_in_process(const matrix_view<double>&, double*);
template bool qr_in_process(const matrix_view<tev_complex8>&, tev_complex8*);
template bool qr_in_process(const matrix_view<tev_complex16>&, tev_complex16*);

}  // namespace tev::lapack
