// SPDX-License-Identifier: BSD-3-Clause
// Whether a sink that believes a request stays within the request's buffers. One rule after another, the first that is
// broken ends the check; each reads its number where the block has it, since a block may lie at any address.
//
//   every request    length, code, number of buffers, strings that end
//   code 1           and pinning, and what its worker says:
//   BLAS, LAPACK     buffers >= those used; option letters; m, n, k >= 0; for each matrix: leading dimension >= rows,
//                    relocation + ((columns - 1) leading dimension + rows) elements <= buffer
//   steps            and parameter and number of buffers as the worker demands them
#include "tev/check.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tev/request.h"

namespace {

constexpr size_t kRecord = offsetof(tev_invoke_request, record);
constexpr size_t kM = offsetof(tev_dgemm_record, m);  // these lie alike in all records
constexpr size_t kN = offsetof(tev_dgemm_record, n);
constexpr size_t kK = offsetof(tev_dgemm_record, k);

// What the precision of a record decides.
struct layout {
  uint32_t element, part;  // bytes of an element, and of each number in it
  size_t leading[3];       // offsets of lda, ldb, ldc; not steps
  uint32_t record;         // bytes; steps only
};

template <class Record, uint32_t kElement, uint32_t kPart>
constexpr layout kLayout = {kElement, kPart, {offsetof(Record, lda), offsetof(Record, ldb), offsetof(Record, ldc)}, 0};
template <class Record, uint32_t kElement, uint32_t kPart>
constexpr layout kStepLayout = {kElement, kPart, {}, sizeof(Record)};

// A matrix of a request: its buffer, its name, and where its leading dimension is.
struct operand {
  uint32_t buffer;
  const char* name;
  const char* leading_name;
  size_t leading;
  int64_t rows, columns;
};

class checker {
 public:
  checker(const void* block, const uint64_t* buffer_bytes, uint32_t buffer_count, char* text, size_t text_bytes)
      : block_(static_cast<const unsigned char*>(block)),
        buffer_bytes_(buffer_bytes),
        buffer_count_(buffer_count),
        text_(text),
        text_bytes_(text_bytes) {
    if (text_bytes_ > 0) *text_ = 0;
  }

  int code() const { return code_; }

  // All of these return whether the rule is kept.
  bool check_request(size_t block_bytes);
  bool check_gemm(const layout& at);
  bool check_symm(const layout& at);
  bool check_in_place(const layout& at);
  bool check_lu_step(const layout& at);
  bool check_gemm_step(const layout& at);
  bool check_trsm_step(const layout& at);
  bool check_syrk_step(const layout& at);
  bool check_larfb_step(const layout& at);
  bool check_threading(const layout&);
  bool check_nothing(const layout&) { return true; }

 private:
  template <class T>
  T read(size_t position) const {
    T value;
    std::memcpy(&value, block_ + position, sizeof(value));
    return value;
  }
  int64_t size_at(size_t offset) const { return read<int64_t>(kRecord + offset); }
  bool is_letter(size_t offset, char letter) const { return (read<char>(kRecord + offset) | 0x20) == (letter | 0x20); }

  bool check_invoke();
  bool check_string(const char* what, size_t position, size_t room, size_t shortest);
  bool check_pinning();
  bool check_buffers(uint32_t used);
  bool check_option(const char* name, size_t offset, const char* letters);
  bool check_size(const char* name, size_t offset);
  bool check_square_and_block(const layout& at);
  bool check_at_most(const char* name, size_t offset, const char* bound_name, int64_t bound);
  bool check_step(const layout& at, uint32_t buffers);
  bool check_interchanges(const layout& at);
  bool check_update(const layout& at);
  bool check_matrix(uint32_t buffer, int64_t rows, int64_t columns, const layout& at);
  bool check_operand(const operand& x, const layout& at);
  bool check_place(const operand& x, int64_t leading, uint32_t element, uint32_t part);

  __attribute__((format(printf, 3, 4))) bool refuse(int code, const char* format, ...) {
    code_ = code;
    va_list arguments;
    va_start(arguments, format);
    if (text_bytes_ > 0) std::vsnprintf(text_, text_bytes_, format, arguments);
    va_end(arguments);
    return false;
  }

  const unsigned char* block_;
  const uint64_t* buffer_bytes_;
  uint32_t buffer_count_;
  char* text_;
  size_t text_bytes_;
  int code_ = TEV_CHECK_OK;
};

// ---- Workers

struct known_worker {
  const char* name;
  bool (checker::*check)(const layout&);
  layout at;
};

#define TEV_BLAS_WORKERS(p, element, part)                                                                           \
  {"tev_blas_" #p "gemm_ao_worker", &checker::check_gemm, kLayout<tev_##p##gemm_record, element, part>},             \
      {"tev_blas_" #p "symm_ao_worker", &checker::check_symm, kLayout<tev_##p##level3_record, element, part>},       \
      {"tev_blas_" #p "trmm_ao_worker", &checker::check_in_place, kLayout<tev_##p##level3_record, element, part>}, { \
    "tev_blas_" #p "trsm_ao_worker", &checker::check_in_place, kLayout<tev_##p##level3_record, element, part>        \
  }

#define TEV_LAPACK_WORKERS(p, element, part)                                                                           \
  {"tev_lapack_" #p "getrf_worker", &checker::check_lu_step, kStepLayout<tev_getrf_record, element, part>},            \
      {"tev_lapack_" #p "gemm_worker", &checker::check_gemm_step, kStepLayout<tev_##p##step_record, element, part>},   \
      {"tev_lapack_" #p "trsm_worker", &checker::check_trsm_step, kStepLayout<tev_##p##step_record, element, part>},   \
      {"tev_lapack_" #p "syrk_worker", &checker::check_syrk_step, kStepLayout<tev_##p##step_record, element, part>}, { \
    "tev_lapack_" #p "larfb_worker", &checker::check_larfb_step, kStepLayout<tev_##p##step_record, element, part>      \
  }

constexpr known_worker kWorkers[] = {
    TEV_BLAS_WORKERS(s, 4, 4),
    TEV_BLAS_WORKERS(d, 8, 8),
    TEV_BLAS_WORKERS(c, 8, 4),
    TEV_BLAS_WORKERS(z, 16, 8),
    TEV_LAPACK_WORKERS(s, 4, 4),
    TEV_LAPACK_WORKERS(d, 8, 8),
    TEV_LAPACK_WORKERS(c, 8, 4),
    TEV_LAPACK_WORKERS(z, 16, 8),
    {"configure_device_threading_worker", &checker::check_threading, {}},
    {"ueaa_prv_query_device_time_worker", &checker::check_nothing, {}},
};
#undef TEV_LAPACK_WORKERS
#undef TEV_BLAS_WORKERS

bool checker::check_gemm(const layout& at) {
  if (!(check_buffers(3) && check_option("transa", 0, "NTC") && check_option("transb", 1, "NTC") &&
        check_size("m", kM) && check_size("n", kN) && check_size("k", kK)))
    return false;
  const int64_t m = size_at(kM), n = size_at(kN), k = size_at(kK);
  const bool plain_a = is_letter(0, 'N'), plain_b = is_letter(1, 'N');
  return check_matrix(0, plain_a ? m : k, plain_a ? k : m, at) &&
         check_matrix(1, plain_b ? k : n, plain_b ? n : k, at) && check_matrix(2, m, n, at);
}

bool checker::check_symm(const layout& at) {
  return check_buffers(3) && check_square_and_block(at) && check_matrix(2, size_at(kM), size_at(kN), at);
}

bool checker::check_in_place(const layout& at) {
  return check_buffers(2) && check_option("transa", offsetof(tev_dlevel3_record, transa), "NTC") &&
         check_option("diag", offsetof(tev_dlevel3_record, diag), "NU") && check_square_and_block(at);
}

// What symm, trmm and trsm have in common: A of the order that the side tells, and B.
bool checker::check_square_and_block(const layout& at) {
  if (!(check_option("side", offsetof(tev_dlevel3_record, side), "LR") &&
        check_option("uplo", offsetof(tev_dlevel3_record, uplo), "UL") && check_size("m", kM) && check_size("n", kN)))
    return false;
  const int64_t m = size_at(kM), n = size_at(kN), order = is_letter(offsetof(tev_dlevel3_record, side), 'L') ? m : n;
  return check_matrix(0, order, order, at) && check_matrix(1, m, n, at);
}

// ---- Steps of a factorization

#define TEV_AT(field) offsetof(tev_step_slots, field)

bool checker::check_gemm_step(const layout& at) {
  if (!(check_step(at, 3) && check_option("transa", TEV_AT(gemm.transa), "NTC") &&
        check_option("transb", TEV_AT(gemm.transb), "NTC") && check_size("m", TEV_AT(gemm.m)) &&
        check_size("n", TEV_AT(gemm.n)) && check_size("k", TEV_AT(gemm.k))))
    return false;
  const int64_t m = size_at(TEV_AT(gemm.m)), n = size_at(TEV_AT(gemm.n)), k = size_at(TEV_AT(gemm.k));
  const bool plain_a = is_letter(TEV_AT(gemm.transa), 'N'), plain_b = is_letter(TEV_AT(gemm.transb), 'N');
  return check_operand({0, "A", "lda", TEV_AT(gemm.lda), plain_a ? m : k, plain_a ? k : m}, at) &&
         check_operand({1, "B", "ldb", TEV_AT(gemm.ldb), plain_b ? k : n, plain_b ? n : k}, at) &&
         check_operand({2, "C", "ldc", TEV_AT(gemm.ldc), m, n}, at);
}

bool checker::check_trsm_step(const layout& at) {
  if (!(check_step(at, 2) && check_option("side", TEV_AT(trsm.side), "LR") &&
        check_option("uplo", TEV_AT(trsm.uplo), "UL") && check_option("transa", TEV_AT(trsm.transa), "NTC") &&
        check_option("diag", TEV_AT(trsm.diag), "NU") && check_size("m", TEV_AT(trsm.m)) &&
        check_size("n", TEV_AT(trsm.n))))
    return false;
  const int64_t m = size_at(TEV_AT(trsm.m)), n = size_at(TEV_AT(trsm.n));
  const int64_t order = is_letter(TEV_AT(trsm.side), 'L') ? m : n;
  return check_operand({0, "A", "lda", TEV_AT(trsm.lda), order, order}, at) &&
         check_operand({1, "B", "ldb", TEV_AT(trsm.ldb), m, n}, at);
}

bool checker::check_syrk_step(const layout& at) {
  const bool is_complex = at.element != at.part;
  if (!(check_step(at, 2) && check_option("uplo", TEV_AT(syrk.uplo), "UL") &&
        check_option("trans", TEV_AT(syrk.trans), is_complex ? "NT" : "NTC") && check_size("n", TEV_AT(syrk.n)) &&
        check_size("k", TEV_AT(syrk.k))))
    return false;
  const int64_t n = size_at(TEV_AT(syrk.n)), k = size_at(TEV_AT(syrk.k));
  const bool plain = is_letter(TEV_AT(syrk.trans), 'N');
  return check_operand({0, "A", "lda", TEV_AT(syrk.lda), plain ? n : k, plain ? k : n}, at) &&
         check_operand({1, "C", "ldc", TEV_AT(syrk.ldc), n, n}, at);
}

bool checker::check_larfb_step(const layout& at) {
  if (!(check_step(at, 4) && check_option("side", TEV_AT(larfb.side), "LR") &&
        check_option("trans", TEV_AT(larfb.trans), "NTC") && check_option("direct", TEV_AT(larfb.direct), "FB") &&
        check_option("storev", TEV_AT(larfb.storev), "CR") && check_size("m", TEV_AT(larfb.m)) &&
        check_size("n", TEV_AT(larfb.n)) && check_size("k", TEV_AT(larfb.k))))
    return false;
  const bool left = is_letter(TEV_AT(larfb.side), 'L'), columns = is_letter(TEV_AT(larfb.storev), 'C');
  const int64_t m = size_at(TEV_AT(larfb.m)), n = size_at(TEV_AT(larfb.n)), k = size_at(TEV_AT(larfb.k));
  const int64_t length = left ? m : n;
  return check_at_most("k", TEV_AT(larfb.k), left ? "m" : "n", length) &&
         check_operand({0, "V", "ldv", TEV_AT(larfb.ldv), columns ? length : k, columns ? k : length}, at) &&
         check_operand({1, "T", "ldt", TEV_AT(larfb.ldt), k, k}, at) &&
         check_operand({2, "C", "ldc", TEV_AT(larfb.ldc), m, n}, at) &&
         check_operand({3, "the work array", "ldwork", TEV_AT(larfb.ldwork), left ? n : m, k}, at);
}

#undef TEV_AT
#define TEV_AT(field) offsetof(tev_getrf_record, field)

bool checker::check_lu_step(const layout& at) {
  const bool updates = size_at(TEV_AT(update_guards[0])) < size_at(TEV_AT(update_guards[1]));
  if (!(check_buffers(updates ? 7 : 4) && check_interchanges(at) && check_size("m of the solve", TEV_AT(solve_m)) &&
        check_size("n of the solve", TEV_AT(solve_n))))
    return false;
  const int64_t m = size_at(TEV_AT(solve_m)), n = size_at(TEV_AT(solve_n));
  return check_operand({2, "the triangle", "its leading dimension", TEV_AT(solve_lda), m, m}, at) &&
         check_operand({3, "the right side", "its leading dimension", TEV_AT(solve_ldb), m, n}, at) &&
         (!updates || check_update(at));
}

// The pivots may name any row up to the leading dimension, so all of these must be there.
bool checker::check_interchanges(const layout& at) {
  if (!check_size("columns to interchange", TEV_AT(swap_n))) return false;
  const int64_t n = size_at(TEV_AT(swap_n)), lda = size_at(TEV_AT(swap_lda));
  const int64_t first = size_at(TEV_AT(swap_k1)), last = size_at(TEV_AT(swap_k2));
  if (!check_operand({0, "the columns to interchange", "their leading dimension", TEV_AT(swap_lda), lda, n}, at) ||
      n == 0 || first > last)
    return code_ == TEV_CHECK_OK;
  if (first < 1)
    return refuse(TEV_CHECK_SIZE, "byte %zu, first row: found %lld, expected at least 1", kRecord + TEV_AT(swap_k1),
                  static_cast<long long>(first));
  return check_at_most("last row", TEV_AT(swap_k2), "the leading dimension", lda) &&
         check_place({1, "the pivots", "", 0, last, 1}, last, sizeof(int64_t), sizeof(int64_t));
}

bool checker::check_update(const layout& at) {
  if (!(check_size("m of the update", TEV_AT(update_m)) && check_size("n of the update", TEV_AT(update_n)) &&
        check_size("k of the update", TEV_AT(update_k))))
    return false;
  const int64_t m = size_at(TEV_AT(update_m)), n = size_at(TEV_AT(update_n)), k = size_at(TEV_AT(update_k));
  return check_operand({4, "A", "lda", TEV_AT(update_lda), m, k}, at) &&
         check_operand({5, "B", "ldb", TEV_AT(update_ldb), k, n}, at) &&
         check_operand({6, "C", "ldc", TEV_AT(update_ldc), m, n}, at);
}

#undef TEV_AT

// ---- Other workers

bool checker::check_threading(const layout&) {
  return check_string("OpenMP settings", kRecord + offsetof(tev_threading_record, settings),
                      sizeof(tev_threading_record::settings), 0);
}

// ---- Rules

bool checker::check_request(size_t block_bytes) {
  if (!block_ || block_bytes != TEV_REQUEST_BYTES)
    return refuse(TEV_CHECK_BLOCK, "block: found %zu bytes, expected %d", block_ ? block_bytes : 0, TEV_REQUEST_BYTES);
  if (buffer_count_ > TEV_REQUEST_BUFFERS)
    return refuse(TEV_CHECK_COUNT, "buffers: found %u, expected at most %d", buffer_count_, TEV_REQUEST_BUFFERS);
  if (buffer_count_ > 0 && !buffer_bytes_)
    return refuse(TEV_CHECK_COUNT, "buffers: found no lengths, expected %u", buffer_count_);
  switch (const uint32_t code = read<uint32_t>(0)) {
    case TEV_REQUEST_FINALISE:
      return true;
    case TEV_REQUEST_INITIALISE:
      return check_string("library path", offsetof(tev_initialise_request, library_path),
                          sizeof(tev_initialise_request::library_path), 0);
    case TEV_REQUEST_CALL:
      return check_string("name of a function", offsetof(tev_call_request, name), sizeof(tev_call_request::name), 1);
    case TEV_REQUEST_INVOKE:
      return check_invoke();
    default:
      return refuse(TEV_CHECK_BLOCK, "byte 0, request code: found %u, expected 0, 1, 6 or 7", code);
  }
}

bool checker::check_invoke() {
  constexpr size_t kName = offsetof(tev_invoke_request, worker);
  if (!(check_string("name of a worker", kName, TEV_WORKER_NAME_BYTES, 1) && check_pinning())) return false;
  const char* const name = reinterpret_cast<const char*>(block_ + kName);
  for (const known_worker& worker : kWorkers)
    if (std::strcmp(name, worker.name) == 0) return (this->*worker.check)(worker.at);
  return true;
}

bool checker::check_string(const char* what, size_t position, size_t room, size_t shortest) {
  const size_t length = strnlen(reinterpret_cast<const char*>(block_ + position), room);
  if (length >= shortest && length < room) return true;
  return refuse(TEV_CHECK_STRING, "byte %zu, %s: found %s, expected %zu to %zu bytes and a NUL", position, what,
                length == room ? "no NUL" : "nothing", shortest, room - 1);
}

bool checker::check_pinning() {
  if (read<int32_t>(offsetof(tev_invoke_request, pin)) == 0) return true;
  constexpr size_t kProcessors = offsetof(tev_invoke_request, processor_count);
  constexpr size_t kThreads = offsetof(tev_invoke_request, thread_count);
  const int32_t processors = read<int32_t>(kProcessors), threads = read<int32_t>(kThreads);
  if (processors < 0 || processors > TEV_REQUEST_PROCESSORS)
    return refuse(TEV_CHECK_PINNING, "byte %zu, processors: found %d, expected 0 to %d", kProcessors, processors,
                  TEV_REQUEST_PROCESSORS);
  if (threads < 1)
    return refuse(TEV_CHECK_PINNING, "byte %zu, threads: found %d, expected at least 1", kThreads, threads);
  return true;
}

bool checker::check_buffers(uint32_t used) {
  if (buffer_count_ >= used) return true;
  return refuse(TEV_CHECK_COUNT, "buffers: found %u, expected at least %u", buffer_count_, used);
}

bool checker::check_option(const char* name, size_t offset, const char* letters) {
  for (const char* letter = letters; *letter; ++letter)
    if (is_letter(offset, *letter)) return true;
  const unsigned char found = read<unsigned char>(kRecord + offset);
  return refuse(TEV_CHECK_OPTION, "byte %zu, %s: found 0x%02x, expected one of the letters %s", kRecord + offset, name,
                found, letters);
}

bool checker::check_size(const char* name, size_t offset) {
  const int64_t size = size_at(offset);
  if (size >= 0) return true;
  return refuse(TEV_CHECK_SIZE, "byte %zu, %s: found %lld, expected at least 0", kRecord + offset, name,
                static_cast<long long>(size));
}

bool checker::check_at_most(const char* name, size_t offset, const char* bound_name, int64_t bound) {
  const int64_t size = size_at(offset);
  if (size <= bound) return true;
  return refuse(TEV_CHECK_SIZE, "byte %zu, %s: found %lld, expected at most %s, %lld", kRecord + offset, name,
                static_cast<long long>(size), bound_name, static_cast<long long>(bound));
}

// The step workers do nothing for any other parameter or number of buffers.
bool checker::check_step(const layout& at, uint32_t buffers) {
  constexpr size_t kParameter = offsetof(tev_invoke_request, parameter);
  if (const uint32_t parameter = read<uint32_t>(kParameter); parameter != at.record)
    return refuse(TEV_CHECK_PARAMETER, "byte %zu, parameter: found %u, expected the size of the record, %u", kParameter,
                  parameter, at.record);
  if (buffer_count_ == buffers) return true;
  return refuse(TEV_CHECK_COUNT, "buffers: found %u, expected exactly %u", buffer_count_, buffers);
}

// Buffer 0, 1 or 2 holds the matrix A, B or C.
bool checker::check_matrix(uint32_t buffer, int64_t rows, int64_t columns, const layout& at) {
  constexpr const char *kNames[] = {"A", "B", "C"}, *kLeadingNames[] = {"lda", "ldb", "ldc"};
  return check_operand({buffer, kNames[buffer], kLeadingNames[buffer], at.leading[buffer], rows, columns}, at);
}

bool checker::check_operand(const operand& x, const layout& at) {
  const int64_t leading = size_at(x.leading), least = x.rows > 1 ? x.rows : 1;
  if (leading < least)
    return refuse(TEV_CHECK_LEADING, "byte %zu, %s: found %lld, expected at least %lld", kRecord + x.leading,
                  x.leading_name, static_cast<long long>(leading), static_cast<long long>(least));
  return check_place(x, leading, at.element, at.part);
}

bool checker::check_place(const operand& x, int64_t leading, uint32_t element, uint32_t part) {
  const size_t position = offsetof(tev_invoke_request, relocation) + x.buffer * sizeof(uint64_t);
  const uint64_t offset = read<uint64_t>(position), length = buffer_bytes_[x.buffer];
  if (offset > length || offset % part != 0)
    return refuse(TEV_CHECK_OFFSET,
                  "byte %zu, relocation of buffer %u: found %llu, expected a multiple of %u up to %llu", position,
                  x.buffer, static_cast<unsigned long long>(offset), part, static_cast<unsigned long long>(length));
  uint64_t bytes = 0;
  const bool countable =
      x.rows == 0 || x.columns == 0 ||
      !(__builtin_mul_overflow(x.columns - 1, leading, &bytes) || __builtin_add_overflow(bytes, x.rows, &bytes) ||
        __builtin_mul_overflow(bytes, element, &bytes));
  if (countable && bytes <= length - offset) return true;
  return refuse(TEV_CHECK_BUFFER,
                "buffer %u: found %llu bytes behind the relocation, expected %s%llu for %s with %lld rows, %lld "
                "columns, leading dimension %lld",
                x.buffer, static_cast<unsigned long long>(length - offset), countable ? "" : "more than ",
                countable ? static_cast<unsigned long long>(bytes) : ~0ULL, x.name, static_cast<long long>(x.rows),
                static_cast<long long>(x.columns), static_cast<long long>(leading));
}

}  // namespace

extern "C" int tev_check_request(const void* block, size_t block_bytes, const uint64_t* buffer_bytes,
                                 uint32_t buffer_count, char* text, size_t text_bytes) {
  checker c(block, buffer_bytes, buffer_count, text, text_bytes);
  c.check_request(block_bytes);
  return c.code();
}
