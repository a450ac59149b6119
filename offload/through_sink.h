// SPDX-License-Identifier: BSD-3-Clause
// Factorizations through the sink of a handle: the matrix brought where the sink sees it, the steps run, and what
// became of them.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <vector>

#include "factorizations/cholesky.h"
#include "factorizations/lu.h"
#include "factorizations/qr.h"
#include "offload/handle.h"
#include "offload/requests.h"

namespace tev::offload {

// Of a block: a narrow one makes a cheap panel and fine shares, a wide one few requests and fast products here. Of 64,
// 128 and 256 the fastest from order 600 to 4000 on one thread of each side; a panel of LU costs twice as much as one
// of Cholesky.
inline int64_t lu_width(int64_t order) { return order < 1536 ? 64 : order < 2560 ? 128 : 256; }
inline int64_t cholesky_width(int64_t order) { return order < 3072 ? 128 : 256; }
inline int64_t qr_width(int64_t order) { return order < 1024 ? 64 : 128; }

// ---- Memory

template <class T>
void copy_columns(const matrix_view<T>& from, const matrix_view<T>& to) {
  for (int64_t j = 0; j < from.columns; ++j) std::copy_n(&from(0, j), from.rows, &to(0, j));
}

// Memory of the connection, given back at the end of the scope.
template <class T>
class shared_array {
 public:
  shared_array(connection& owner, int64_t elements)
      : owner_(owner), data_(static_cast<T*>(owner.allocate(static_cast<size_t>(elements) * sizeof(T)))) {}
  shared_array(const shared_array&) = delete;
  shared_array& operator=(const shared_array&) = delete;
  ~shared_array() { owner_.release(data_); }
  T* data() const { return data_; }

 private:
  connection& owner_;
  T* data_;
};

// The matrix where the sink sees it, and what it was for the case that the sink dies.
template <class T>
class shared_matrix {
 public:
  shared_matrix(tev_offload& handle, const matrix_view<T>& a) : callers_(a), view_(a) {
    if (!handle.sink->holds(a.data)) {
      copy_.emplace(*handle.sink, a.rows * a.columns);
      view_ = {copy_->data(), a.rows, a.columns, a.rows};
      if (view_.data != nullptr) copy_columns(callers_, view_);
    } else if (handle.finish_here) {
      original_.resize(static_cast<size_t>(a.rows * a.columns));
      copy_columns(callers_, {original_.data(), a.rows, a.columns, a.rows});
    }
  }

  const matrix_view<T>& view() const { return view_; }
  void hand_over() const {
    if (copy_) copy_columns(view_, callers_);
  }
  void restore() {
    if (!original_.empty()) copy_columns<T>({original_.data(), view_.rows, view_.columns, view_.rows}, callers_);
  }

 private:
  const matrix_view<T> callers_;
  matrix_view<T> view_;
  std::optional<shared_array<T>> copy_;
  std::vector<T> original_;
};

// ---- Factorizations through the sink

template <class Factorization, class Requests>
void run_with_sink(tev_offload& handle, Factorization& what, const Requests& requests, int64_t panels, int64_t blocks) {
  sink_steps<Factorization, Requests>(*handle.sink, handle.cores, what, requests, panels, blocks, handle.observer)
      .run();
}

// There is all the memory that is needed, or the reason is told.
inline bool has_memory(tev_offload& handle, std::initializer_list<const void*> parts) {
  if (std::find(parts.begin(), parts.end(), nullptr) == parts.end()) return true;
  handle.error = "not enough memory that the sink could share";
  return false;
}

// What became of it: the result is handed over, or the call starts again in this process.
template <class T, class Here>
int end_of(tev_offload& handle, bool has_run, shared_matrix<T>& a, const Here& here) {
  if (!handle.sink->has_ended()) {
    if (has_run) a.hand_over();
    return has_run ? TEV_OFFLOAD_OK : TEV_OFFLOAD_SYSTEM;
  }
  handle.error = handle.sink->error();
  if (!handle.finish_here) return TEV_OFFLOAD_ENDED;
  a.restore();
  here();
  return TEV_OFFLOAD_OK;
}

template <class T, class Here>
int lu_through_sink(tev_offload& handle, const matrix_view<T>& callers, int64_t* ipiv, int64_t* info,
                    const Here& here) {
  const int64_t order = std::min(callers.rows, callers.columns);
  shared_matrix<T> a(handle, callers);
  const shared_array<int64_t> pivots(*handle.sink, order);
  if (!has_memory(handle, {a.view().data, pivots.data()})) return end_of(handle, false, a, here);
  lapack::lu_factorization<T> lu(a.view(), pivots.data(), lu_width(order));
  const lapack::column_division& division = lu.division();
  run_with_sink(handle, lu, lu_requests<T>{a.view(), pivots.data(), division}, division.panels(), division.blocks());
  std::copy_n(pivots.data(), order, ipiv);
  *info = lu.info();
  return end_of(handle, true, a, here);
}

template <class T, class Here>
int cholesky_through_sink(tev_offload& handle, char uplo, const matrix_view<T>& callers, int64_t* info,
                          const Here& here) {
  shared_matrix<T> a(handle, callers);
  if (!has_memory(handle, {a.view().data})) return end_of(handle, false, a, here);
  const int64_t width = cholesky_width(callers.rows);
  lapack::cholesky_factorization<T> cholesky(uplo, a.view(), width);
  run_with_sink(handle, cholesky, cholesky_requests<T>{uplo, a.view(), width}, cholesky.panels(), cholesky.panels());
  *info = cholesky.info();
  return end_of(handle, true, a, here);
}

template <class T, class Here>
int qr_through_sink(tev_offload& handle, const matrix_view<T>& callers, T* tau, int64_t* info, const Here& here) {
  using factorization = lapack::qr_factorization<T>;
  const int64_t order = std::min(callers.rows, callers.columns), width = qr_width(order);
  shared_matrix<T> a(handle, callers);
  const shared_array<T> space(*handle.sink, factorization::workspace_elements(order, callers.columns, width));
  if (!has_memory(handle, {a.view().data, space.data()})) return end_of(handle, false, a, here);
  factorization qr(a.view(), tau, width, space.data());
  const lapack::column_division& division = qr.division();
  run_with_sink(handle, qr, qr_requests<T>{a.view(), space.data(), division}, division.panels(), division.blocks());
  *info = 0;
  return end_of(handle, true, a, here);
}

}  // namespace tev::offload
