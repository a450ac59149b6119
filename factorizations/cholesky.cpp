// SPDX-License-Identifier: BSD-3-Clause
#include "factorizations/cholesky.h"

#include "factorizations/cholesky_block.h"
#include "factorizations/kernels.h"
#include "factorizations/team_steps.h"

namespace tev::lapack {

template <class T>
bool cholesky_factorization<T>::factor(int64_t panel) {
  const span own = lines(panel);
  const matrix_view<T> diagonal = part(own, own);
  info_ = factor_cholesky(uplo_, diagonal);
  if (info_ != 0) {
    info_ += own.begin;
    return false;
  }
  solve(uplo_ == 'L' ? 'R' : 'L', uplo_, kAdjoint<T>, 'N', diagonal, part({own.end, a_.rows}, own));
  return true;
}

template <class T>
void cholesky_factorization<T>::update(int64_t panel, const span& blocks) {
  if (panel == panels()) return;  // nothing is left to do
  const span own = lines(panel), target = lines(blocks), beyond = {target.end, a_.rows};
  const matrix_view<T> near = part(target, own), far = part(beyond, own);
  if (uplo_ == 'L') {
    subtract_square('L', 'N', near, part(target, target));
    subtract_product('N', far, kAdjoint<T>, near, part(beyond, target));
  } else {
    subtract_square('U', kAdjoint<T>, near, part(target, target));
    subtract_product(kAdjoint<T>, near, 'N', far, part(beyond, target));
  }
}

template <class T>
void cholesky_factorization<T>::update_diagonal(int64_t panel, int64_t block) {
  subtract_square(uplo_, uplo_ == 'L' ? 'N' : kAdjoint<T>, part(lines(block), lines(panel)),
                  part(lines(block), lines(block)));
}

namespace {

// Small matrices: one thread, recursively.
constexpr int64_t kFewestLines = 256;

plan plan_of(int64_t n) {
  const int64_t threads = blas::permitted_threads();
  if (threads == 1 || n < kFewestLines) return {1, n, 1, 1};
  return plan_of_products(n, 768, threads);
}

}  // namespace

template <class T>
int64_t cholesky_in_process(char uplo, const matrix_view<T>& a) {
  const plan p = plan_of(a.rows);
  columns_done told(a.rows);
  if (p.threads == 1) return factor_cholesky(uplo, a, &told);
  cholesky_factorization<T> cholesky(uplo, a, p.width);
  const bool has_run = run_on_team(cholesky, cholesky.panels(), cholesky.panels(), p);
  return has_run ? cholesky.info() : factor_cholesky(uplo, a);
}

template class cholesky_factorization<float>;
template class cholesky_factorization<double>;
template class cholesky_factorization<tev_complex8>;
template class cholesky_factorization<tev_complex16>;
template int64_t cholesky_in_process(char, const matrix_view<float>&);
template int64_t cholesky_in_process(char, const matrix_view<double>&);
template int64_t cholesky_in_process(char, const matrix_view<tev_complex8>&);
template int64_t cholesky_in_process(char, const matrix_view<tev_complex16>&);

}  // namespace tev::lapack
