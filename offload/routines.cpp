// SPDX-License-Identifier: BSD-3-Clause
// What tev/offload.h promises. A factorization goes through the sink when there is one and the matrix is large enough
// to be worth it; everything else is the library's own routine in this process, which also tells of wrong arguments.
#include "tev/offload.h"

#include <sched.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "factorizations/arguments.h"
#include "factorizations/cholesky.h"
#include "factorizations/lu.h"
#include "factorizations/qr.h"
#include "offload/connection.h"
#include "offload/requests.h"
#include "offload/sink_steps.h"
#include "tev/lapack.h"
#include "tev/service.h"

struct tev_offload {
  std::unique_ptr<tev::offload::connection> sink;  // null: there is none
  int64_t sink_threads;
  bool finish_here;
  std::string error;
  std::vector<std::unique_ptr<char[]>> own_memory;  // where there is no sink

  bool uses_sink() const { return sink && !sink->has_ended(); }
};

namespace tev::offload {
namespace {

constexpr int64_t kFewestLines = 512;  // below, a factorization is over before the sink has seen much of it

thread_local std::string open_error;

int64_t processors() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  return sched_getaffinity(0, sizeof(allowed), &allowed) == 0 ? CPU_COUNT(&allowed) : 1;
}

int64_t block_width(int64_t order) { return order < 1024 ? 64 : order < 2048 ? 128 : 256; }

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
  sink_steps<Factorization, Requests>(*handle.sink, handle.sink_threads, what, requests, panels, blocks).run();
}

// There is all the memory that is needed, or the reason is told.
bool has_memory(tev_offload& handle, std::initializer_list<const void*> parts) {
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
  lapack::lu_factorization<T> lu(a.view(), pivots.data(), block_width(order));
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
  const int64_t width = block_width(callers.rows);
  lapack::cholesky_factorization<T> cholesky(uplo, a.view(), width);
  run_with_sink(handle, cholesky, cholesky_requests<T>{uplo, a.view(), width}, cholesky.panels(), cholesky.panels());
  *info = cholesky.info();
  return end_of(handle, true, a, here);
}

template <class T, class Here>
int qr_through_sink(tev_offload& handle, const matrix_view<T>& callers, T* tau, int64_t* info, const Here& here) {
  using factorization = lapack::qr_factorization<T>;
  const int64_t order = std::min(callers.rows, callers.columns), width = order < 1024 ? 64 : 128;
  shared_matrix<T> a(handle, callers);
  const shared_array<T> space(*handle.sink, factorization::workspace_elements(order, callers.columns, width));
  if (!has_memory(handle, {a.view().data, space.data()})) return end_of(handle, false, a, here);
  factorization qr(a.view(), tau, width, space.data());
  const lapack::column_division& division = qr.division();
  run_with_sink(handle, qr, qr_requests<T>{a.view(), space.data(), division}, division.panels(), division.blocks());
  *info = 0;
  return end_of(handle, true, a, here);
}

// ---- Where a call runs

bool pays(const tev_offload& handle, int64_t m, int64_t n) {
  return handle.uses_sink() && std::min(m, n) >= kFewestLines;
}

template <class Here>
int in_process(const Here& here) {
  here();
  return TEV_OFFLOAD_OK;
}

template <class T, class Here>
int getrf(tev_offload* handle, int64_t m, int64_t n, T* a, int64_t lda, int64_t* ipiv, int64_t* info,
          const Here& here) {
  if (handle == nullptr) return TEV_OFFLOAD_INVALID;
  if (!pays(*handle, m, n) || !lapack::holds(lda, m)) return in_process(here);
  return lu_through_sink<T>(*handle, {a, m, n, lda}, ipiv, info, here);
}

template <class T, class Here>
int potrf(tev_offload* handle, char uplo, int64_t n, T* a, int64_t lda, int64_t* info, const Here& here) {
  if (handle == nullptr) return TEV_OFFLOAD_INVALID;
  if constexpr (!blas::kComplex<T>)
    if (pays(*handle, n, n) && lapack::holds(lda, n) && lapack::is_one_of(uplo, "UL"))
      return cholesky_through_sink<T>(*handle, lapack::upper_case(uplo), {a, n, n, lda}, info, here);
  return in_process(here);
}

template <class T, class Here>
int geqrf(tev_offload* handle, int64_t m, int64_t n, T* a, int64_t lda, T* tau, int64_t* info, const Here& here) {
  if (handle == nullptr) return TEV_OFFLOAD_INVALID;
  if (!pays(*handle, m, n) || !lapack::holds(lda, m)) return in_process(here);
  return qr_through_sink<T>(*handle, {a, m, n, lda}, tau, info, here);
}

// By factors. Wrong arguments are told by the routine of this process that does it all.
template <class Here, class Factor, class Solve>
int solve_system(tev_offload* handle, int64_t n, int64_t right_sides, int64_t lda, int64_t ldb, const int64_t* info,
                 const Here& here, const Factor& factor, const Solve& solve) {
  if (handle == nullptr) return TEV_OFFLOAD_INVALID;
  if (!pays(*handle, n, n) || right_sides < 0 || !lapack::holds(lda, n) || !lapack::holds(ldb, n))
    return in_process(here);
  const int code = factor();
  if (code == TEV_OFFLOAD_OK && *info == 0) solve();
  return code;
}

}  // namespace
}  // namespace tev::offload

extern "C" {

int tev_offload_open(const tev_offload_options* options, tev_offload** handle) {
  if (handle == nullptr || options == nullptr) return TEV_OFFLOAD_INVALID;
  *handle = nullptr;
  auto made = std::make_unique<tev_offload>();
  if (options->trust_features != 0) tev_serv_trust_features(1);
  made->finish_here = options->finish_here != 0;
  made->sink_threads =
      options->sink_threads > 0 ? options->sink_threads : std::max<int64_t>(tev::offload::processors() - 1, 1);
  if (options->sink != nullptr) {
    const tev::offload::connection_options connection_options = {
        options->sink, options->library_path != nullptr ? options->library_path : "",
        static_cast<int32_t>(made->sink_threads), options->trust_features != 0};
    made->sink = std::make_unique<tev::offload::connection>(connection_options);
    tev::offload::open_error = made->sink->error();
    if (made->sink->has_ended()) return TEV_OFFLOAD_SYSTEM;
  }
  *handle = made.release();
  return TEV_OFFLOAD_OK;
}

void tev_offload_close(tev_offload* handle) { delete handle; }

const char* tev_offload_last_error(const tev_offload* handle) {
  return handle != nullptr ? handle->error.c_str() : tev::offload::open_error.c_str();
}

double tev_offload_busy_seconds(tev_offload* handle) {
  return handle != nullptr && handle->uses_sink() ? handle->sink->busy_seconds() : 0;
}

int tev_offload_has_sink(const tev_offload* handle) { return handle != nullptr && handle->uses_sink() ? 1 : 0; }

void* tev_offload_allocate(tev_offload* handle, size_t bytes) {
  if (handle == nullptr) return nullptr;
  if (handle->sink) return handle->sink->allocate(bytes);
  std::unique_ptr<char[]> memory(new (std::nothrow) char[std::max<size_t>(bytes, 1)]());
  if (!memory) return nullptr;
  handle->own_memory.push_back(std::move(memory));
  return handle->own_memory.back().get();
}

void tev_offload_release(tev_offload* handle, void* memory) {
  if (handle == nullptr) return;
  if (handle->sink) return handle->sink->release(memory);
  std::erase_if(handle->own_memory, [memory](const auto& own) { return own.get() == memory; });
}

#define TEV_OFFLOAD_ROUTINES(p, T)                                                                                \
  int tev_offload_##p##getrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a, const int64_t* lda,   \
                             int64_t* ipiv, int64_t* info) {                                                      \
    return tev::offload::getrf(handle, *m, *n, a, *lda, ipiv, info,                                               \
                               [&] { tev_lapack_##p##getrf(m, n, a, lda, ipiv, info); });                         \
  }                                                                                                               \
  int tev_offload_##p##potrf(tev_offload* handle, const char* uplo, const int64_t* n, T* a, const int64_t* lda,   \
                             int64_t* info) {                                                                     \
    return tev::offload::potrf(handle, *uplo, *n, a, *lda, info,                                                  \
                               [&] { tev_lapack_##p##potrf(uplo, n, a, lda, info); });                            \
  }                                                                                                               \
  int tev_offload_##p##geqrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a, const int64_t* lda,   \
                             T* tau, int64_t* info) {                                                             \
    return tev::offload::geqrf(handle, *m, *n, a, *lda, tau, info, [&] {                                          \
      const int64_t length = std::max<int64_t>(*n, 1);                                                            \
      std::vector<T> work(static_cast<size_t>(length));                                                           \
      tev_lapack_##p##geqrf(m, n, a, lda, tau, work.data(), &length, info);                                       \
    });                                                                                                           \
  }                                                                                                               \
  int tev_offload_##p##gesv(tev_offload* handle, const int64_t* n, const int64_t* nrhs, T* a, const int64_t* lda, \
                            int64_t* ipiv, T* b, const int64_t* ldb, int64_t* info) {                             \
    return tev::offload::solve_system(                                                                            \
        handle, *n, *nrhs, *lda, *ldb, info, [&] { tev_lapack_##p##gesv(n, nrhs, a, lda, ipiv, b, ldb, info); },  \
        [&] { return tev_offload_##p##getrf(handle, n, n, a, lda, ipiv, info); },                                 \
        [&] { tev_lapack_##p##getrs("N", n, nrhs, a, lda, ipiv, b, ldb, info); });                                \
  }                                                                                                               \
  int tev_offload_##p##posv(tev_offload* handle, const char* uplo, const int64_t* n, const int64_t* nrhs, T* a,   \
                            const int64_t* lda, T* b, const int64_t* ldb, int64_t* info) {                        \
    return tev::offload::solve_system(                                                                            \
        handle, *n, *nrhs, *lda, *ldb, info, [&] { tev_lapack_##p##posv(uplo, n, nrhs, a, lda, b, ldb, info); },  \
        [&] { return tev_offload_##p##potrf(handle, uplo, n, a, lda, info); },                                    \
        [&] { tev_lapack_##p##potrs(uplo, n, nrhs, a, lda, b, ldb, info); });                                     \
  }
TEV_OFFLOAD_ROUTINES(s, float)
TEV_OFFLOAD_ROUTINES(d, double)
TEV_OFFLOAD_ROUTINES(c, tev_complex8)
TEV_OFFLOAD_ROUTINES(z, tev_complex16)

}  // extern "C"
