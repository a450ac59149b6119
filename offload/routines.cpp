// SPDX-License-Identifier: BSD-3-Clause
// What tev/offload.h promises. A factorization goes through the sink when there is one and the matrix is large enough
// to be worth it; everything else is the library's own routine in this process, which also tells of wrong arguments.
#include "tev/offload.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "factorizations/arguments.h"
#include "factorizations/least_squares.h"
#include "offload/handle.h"
#include "offload/through_sink.h"
#include "tev/front_end.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace tev::offload {
namespace {

constexpr int64_t kFewestLines = 512;  // below, a factorization is over before the sink has seen much of it

constexpr int64_t kInverseWork = 64;  // elements for each column of an inverse

thread_local std::string open_error;

core_division divide_cores(const tev_offload_options& options) {
  const int64_t host = std::max<int64_t>(options.host_threads, 1), others = tev_serv_usable_processors() - host;
  return {host, options.sink_threads > 0 ? options.sink_threads : std::max<int64_t>(others, 1)};
}

// A routine within a routine ends the outer one with its code.
struct stopped {
  int code;
};

// What the body throws becomes a code, and a text that needs no memory.
template <class Body>
int guarded(std::string* error, const Body& body) noexcept {
  try {
    return body();
  } catch (const stopped& end) {
    return end.code;
  } catch (const std::bad_alloc&) {
    *error = "no memory";
  } catch (const std::exception&) {
    *error = "internal error";
  }
  return TEV_OFFLOAD_SYSTEM;
}

// Without a sink, the threads that the handle was opened for; else what the library has.
class handles_threads {
 public:
  explicit handles_threads(const tev_offload& handle)
      : set_(handle.own_threads > 0), before_(set_ ? tev_serv_set_num_threads_local(handle.own_threads) : 0) {}
  handles_threads(const handles_threads&) = delete;
  handles_threads& operator=(const handles_threads&) = delete;
  ~handles_threads() {
    if (set_) tev_serv_set_num_threads_local(before_);
  }

 private:
  const bool set_;
  const int32_t before_;
};

template <class Body>
int called(tev_offload* handle, const Body& body) {
  if (handle == nullptr) return TEV_OFFLOAD_INVALID;
  const observed_scope observed(handle->observer);
  const handles_threads threads(*handle);
  return guarded(&handle->error, [&] { return body(*handle); });
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

template <class Here>
int call_here(tev_offload* handle, const Here& here) {
  return called(handle, [&](tev_offload&) { return in_process(here); });
}

template <class T>
std::vector<T> work_array(int64_t elements) {
  return std::vector<T>(static_cast<size_t>(std::max<int64_t>(elements, 1)));
}

template <class T, class Here>
int getrf(tev_offload* handle, int64_t m, int64_t n, T* a, int64_t lda, int64_t* ipiv, int64_t* info,
          const Here& here) {
  return called(handle, [&](tev_offload& h) {
    if (!pays(h, m, n) || !lapack::holds(lda, m)) return in_process(here);
    return lu_through_sink<T>(h, {a, m, n, lda}, ipiv, info, here);
  });
}

template <class T, class Here>
int potrf(tev_offload* handle, char uplo, int64_t n, T* a, int64_t lda, int64_t* info, const Here& here) {
  return called(handle, [&](tev_offload& h) {
    if (!pays(h, n, n) || !lapack::holds(lda, n) || !lapack::is_one_of(uplo, "UL")) return in_process(here);
    return cholesky_through_sink<T>(h, lapack::upper_case(uplo), {a, n, n, lda}, info, here);
  });
}

template <class T, class Here>
int geqrf(tev_offload* handle, int64_t m, int64_t n, T* a, int64_t lda, T* tau, int64_t* info, const Here& here) {
  return called(handle, [&](tev_offload& h) {
    if (!pays(h, m, n) || !lapack::holds(lda, m)) return in_process(here);
    return qr_through_sink<T>(h, {a, m, n, lda}, tau, info, here);
  });
}

// Its QR is that of a tall matrix, A or A^H.
template <class T>
int gels(tev_offload* handle, char trans, int64_t m, int64_t n, int64_t nrhs, T* a, int64_t lda, T* b, int64_t ldb,
         int64_t* info) {
  return called(handle, [&](tev_offload& h) {
    const int64_t order = std::min(m, n), length = std::max<int64_t>(order, 0) + std::max({order, nrhs, int64_t{1}});
    std::vector<T> work = work_array<T>(length);
    const auto factor = [&](const matrix_view<T>& tall, T* tau) {
      bool has_memory = true;
      const auto here = [&] { has_memory = lapack::qr_in_process(tall, tau); };
      int64_t ignored = 0;
      const int code =
          pays(h, tall.rows, tall.columns) ? qr_through_sink<T>(h, tall, tau, &ignored, here) : in_process(here);
      if (code != TEV_OFFLOAD_OK) throw stopped{code};
      return has_memory;
    };
    lapack::gels<T>(trans, m, n, nrhs, a, lda, b, ldb, work.data(), length, info, factor);
    return static_cast<int>(TEV_OFFLOAD_OK);
  });
}

// By factors. Wrong arguments are told by the routine of this process that does it all.
template <class Here, class Factor, class Solve>
int solve_system(tev_offload* handle, int64_t n, int64_t right_sides, int64_t lda, int64_t ldb, const int64_t* info,
                 const Here& here, const Factor& factor, const Solve& solve) {
  return called(handle, [&](tev_offload& h) {
    if (!pays(h, n, n) || right_sides < 0 || !lapack::holds(lda, n) || !lapack::holds(ldb, n)) return in_process(here);
    const int code = factor();
    if (code == TEV_OFFLOAD_OK && *info == 0) solve();
    return code;
  });
}

}  // namespace
}  // namespace tev::offload

extern "C" {

int tev_offload_open(const tev_offload_options* options, tev_offload** handle) {
  if (handle == nullptr || options == nullptr) return TEV_OFFLOAD_INVALID;
  *handle = nullptr;
  return tev::offload::guarded(&tev::offload::open_error, [&]() -> int {
    auto made = std::make_unique<tev_offload>();
    if (options->trust_features != 0) tev_serv_trust_features(1);
    made->finish_here = options->finish_here != 0;
    made->cores = tev::offload::divide_cores(*options);
    if (options->sink == nullptr) {
      made->own_threads = std::max(options->host_threads, 0);
    } else {
      const tev::offload::connection_options connection_options = {
          options->sink, options->library_path != nullptr ? options->library_path : "",
          static_cast<int32_t>(made->cores.sink), options->trust_features != 0};
      made->sink = std::make_unique<tev::offload::connection>(connection_options);
      tev::offload::open_error = made->sink->error();
      if (made->sink->has_ended()) return TEV_OFFLOAD_SYSTEM;
    }
    *handle = made.release();
    return TEV_OFFLOAD_OK;
  });
}

void tev_offload_close(tev_offload* handle) { delete handle; }

const char* tev_offload_last_error(const tev_offload* handle) {
  return handle != nullptr ? handle->error.c_str() : tev::offload::open_error.c_str();
}

double tev_offload_busy_seconds(tev_offload* handle) {
  double busy = 0;
  if (handle != nullptr && handle->uses_sink())
    tev::offload::guarded(&handle->error, [&] { return busy = handle->sink->busy_seconds(), TEV_OFFLOAD_OK; });
  return busy;
}

int tev_offload_has_sink(const tev_offload* handle) { return handle != nullptr && handle->uses_sink() ? 1 : 0; }

void* tev_offload_allocate(tev_offload* handle, size_t bytes) {
  if (handle == nullptr) return nullptr;
  void* memory = nullptr;
  tev::offload::guarded(&handle->error, [&] {
    if (handle->sink) {
      memory = handle->sink->allocate(bytes);
    } else {
      handle->own_memory.emplace_back(new char[std::max<size_t>(bytes, 1)]());
      memory = handle->own_memory.back().get();
    }
    return TEV_OFFLOAD_OK;
  });
  return memory;
}

void tev_offload_release(tev_offload* handle, void* memory) {
  if (handle == nullptr) return;
  if (handle->sink) return handle->sink->release(memory);
  std::erase_if(handle->own_memory, [memory](const auto& own) { return own.get() == memory; });
}

void tev_offload_set_progress(tev_offload* handle, tev_offload_progress_fn* told, void* context) {
  if (handle != nullptr) handle->observer.set_progress(told, context);
}

void tev_offload_record(tev_offload* handle, int on) {
  if (handle != nullptr) handle->observer.set_recording(on != 0);
}

const tev_offload_span* tev_offload_recorded(const tev_offload* handle, size_t* count) {
  *count = handle != nullptr ? handle->observer.spans().size() : 0;
  return *count > 0 ? handle->observer.spans().data() : nullptr;
}

using tev::offload::call_here;
using tev::offload::work_array;

#define TEV_OFFLOAD_ROUTINES(p, T, R)                                                                                  \
  int tev_offload_##p##getrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a, const int64_t* lda,        \
                             int64_t* ipiv, int64_t* info) {                                                           \
    return tev::offload::getrf(handle, *m, *n, a, *lda, ipiv, info,                                                    \
                               [&] { tev_lapack_##p##getrf(m, n, a, lda, ipiv, info); });                              \
  }                                                                                                                    \
  int tev_offload_##p##getrs(tev_offload* handle, const char* trans, const int64_t* n, const int64_t* nrhs,            \
                             const T* a, const int64_t* lda, const int64_t* ipiv, T* b, const int64_t* ldb,            \
                             int64_t* info) {                                                                          \
    return call_here(handle, [&] { tev_lapack_##p##getrs(trans, n, nrhs, a, lda, ipiv, b, ldb, info); });              \
  }                                                                                                                    \
  int tev_offload_##p##gesv(tev_offload* handle, const int64_t* n, const int64_t* nrhs, T* a, const int64_t* lda,      \
                            int64_t* ipiv, T* b, const int64_t* ldb, int64_t* info) {                                  \
    return tev::offload::solve_system(                                                                                 \
        handle, *n, *nrhs, *lda, *ldb, info, [&] { tev_lapack_##p##gesv(n, nrhs, a, lda, ipiv, b, ldb, info); },       \
        [&] { return tev_offload_##p##getrf(handle, n, n, a, lda, ipiv, info); },                                      \
        [&] { tev_lapack_##p##getrs("N", n, nrhs, a, lda, ipiv, b, ldb, info); });                                     \
  }                                                                                                                    \
  int tev_offload_##p##getri(tev_offload* handle, const int64_t* n, T* a, const int64_t* lda, const int64_t* ipiv,     \
                             int64_t* info) {                                                                          \
    return call_here(handle, [&] {                                                                                     \
      std::vector<T> work = work_array<T>(*n * tev::offload::kInverseWork);                                            \
      const int64_t length = std::ssize(work);                                                                         \
      tev_lapack_##p##getri(n, a, lda, ipiv, work.data(), &length, info);                                              \
    });                                                                                                                \
  }                                                                                                                    \
  int tev_offload_##p##potrf(tev_offload* handle, const char* uplo, const int64_t* n, T* a, const int64_t* lda,        \
                             int64_t* info) {                                                                          \
    return tev::offload::potrf(handle, *uplo, *n, a, *lda, info,                                                       \
                               [&] { tev_lapack_##p##potrf(uplo, n, a, lda, info); });                                 \
  }                                                                                                                    \
  int tev_offload_##p##potrs(tev_offload* handle, const char* uplo, const int64_t* n, const int64_t* nrhs, const T* a, \
                             const int64_t* lda, T* b, const int64_t* ldb, int64_t* info) {                            \
    return call_here(handle, [&] { tev_lapack_##p##potrs(uplo, n, nrhs, a, lda, b, ldb, info); });                     \
  }                                                                                                                    \
  int tev_offload_##p##posv(tev_offload* handle, const char* uplo, const int64_t* n, const int64_t* nrhs, T* a,        \
                            const int64_t* lda, T* b, const int64_t* ldb, int64_t* info) {                             \
    return tev::offload::solve_system(                                                                                 \
        handle, *n, *nrhs, *lda, *ldb, info, [&] { tev_lapack_##p##posv(uplo, n, nrhs, a, lda, b, ldb, info); },       \
        [&] { return tev_offload_##p##potrf(handle, uplo, n, a, lda, info); },                                         \
        [&] { tev_lapack_##p##potrs(uplo, n, nrhs, a, lda, b, ldb, info); });                                          \
  }                                                                                                                    \
  int tev_offload_##p##potri(tev_offload* handle, const char* uplo, const int64_t* n, T* a, const int64_t* lda,        \
                             int64_t* info) {                                                                          \
    return call_here(handle, [&] { tev_lapack_##p##potri(uplo, n, a, lda, info); });                                   \
  }                                                                                                                    \
  int tev_offload_##p##geqrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a, const int64_t* lda,        \
                             T* tau, int64_t* info) {                                                                  \
    return tev::offload::geqrf(handle, *m, *n, a, *lda, tau, info, [&] {                                               \
      std::vector<T> work = work_array<T>(*n);                                                                         \
      const int64_t length = std::ssize(work);                                                                         \
      tev_lapack_##p##geqrf(m, n, a, lda, tau, work.data(), &length, info);                                            \
    });                                                                                                                \
  }                                                                                                                    \
  int tev_offload_##p##gels(tev_offload* handle, const char* trans, const int64_t* m, const int64_t* n,                \
                            const int64_t* nrhs, T* a, const int64_t* lda, T* b, const int64_t* ldb, int64_t* info) {  \
    return tev::offload::gels(handle, *trans, *m, *n, *nrhs, a, *lda, b, *ldb, info);                                  \
  }                                                                                                                    \
  TEV_OFFLOAD_CONDITION(p, gecon, T, R)                                                                                \
  TEV_OFFLOAD_CONDITION(p, pocon, T, R)
// Of a factor; `which` is the norm or the triangle. Real types have integer work besides, complex ones real work.
#define TEV_OFFLOAD_CONDITION(p, name, T, R)                                                                          \
  int tev_offload_##p##name(tev_offload* handle, const char* which, const int64_t* n, const T* a, const int64_t* lda, \
                            const R* anorm, R* rcond, int64_t* info) {                                                \
    return call_here(handle, [&] {                                                                                    \
      std::vector<T> work = work_array<T>(4 * *n);                                                                    \
      auto more = work_array<std::conditional_t<std::is_same_v<T, R>, int64_t, R>>(2 * *n);                           \
      tev_lapack_##p##name(which, n, a, lda, anorm, rcond, work.data(), more.data(), info);                           \
    });                                                                                                               \
  }
TEV_OFFLOAD_ROUTINES(s, float, float)
TEV_OFFLOAD_ROUTINES(d, double, double)
TEV_OFFLOAD_ROUTINES(c, tev_complex8, float)
TEV_OFFLOAD_ROUTINES(z, tev_complex16, double)

}  // extern "C"
