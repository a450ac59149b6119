// SPDX-License-Identifier: BSD-3-Clause
// QR as steps: what a step does to its block.
#pragma once

#include <cstdint>

#include "factorizations/column_division.h"
#include "factorizations/matrix_view.h"
#include "factorizations/qr_panel.h"
#include "factorizations/steps.h"

namespace tev::lapack {

// R waits beside A until its panel's V is no longer needed as a plain matrix.
template <class T>
class qr_factorization {
 public:
  // workspace: workspace_elements().
  qr_factorization(const matrix_view<T>& a, T* tau, int64_t width, T* workspace)
      : a_(a), tau_(tau), division_(a.rows, a.columns, width), workspace_(workspace) {}

  static int64_t workspace_elements(int64_t order, int64_t columns, int64_t width) {
    return width * (2 * order + columns);
  }

  const column_division& division() const { return division_; }

  bool factor(int64_t panel);
  void update(int64_t panel, const span& blocks);
  // The same for all blocks beyond the panel, at once.
  void update_rest(int64_t panel);

 private:
  // [ T of all panels | R of all panels | W of all columns ], each as many rows as a panel has columns.
  matrix_view<T> part_of_workspace(int64_t begin, const span& columns) const {
    const int64_t width = division_.width;
    return {workspace_ + (begin + columns.begin) * width, std::min(width, division_.order), columns.size(), width};
  }
  qr_factors<T> factors(const span& panel) const {
    return {part_of_workspace(0, panel), part_of_workspace(division_.order, panel)};
  }
  void update_columns(int64_t panel, const span& columns);
  void take_back_r(const span& panel);

  const matrix_view<T> a_;
  T* const tau_;
  const column_division division_;
  T* const workspace_;
};

// The whole factorization in this process.
template <class T>
bool qr_in_process(const matrix_view<T>& a, T* tau);

}  // namespace tev::lapack
