// SPDX-License-Identifier: BSD-3-Clause
// Whether a sink that believes a request stays within the request's buffers. One rule after another, the first that is
// broken ends the check; each reads its number where the block has it, since a block may lie at any address.
//
//   every request    length, code, number of buffers, strings that end
//   code 1           and pinning, and what its worker says:
//   BLAS workers     buffers >= those used; option letters; m, n, k >= 0; for each matrix: leading dimension >= rows,
//                    relocation + ((columns - 1) leading dimension + rows) elements <= buffer
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
  size_t leading[3];       // offsets of lda, ldb, ldc
};

template <class Record, uint32_t kElement, uint32_t kPart>
constexpr layout kLayout = {kElement, kPart, {offsetof(Record, lda), offsetof(Record, ldb), offsetof(Record, ldc)}};

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
  bool check_matrix(uint32_t buffer, int64_t rows, int64_t columns, const layout& at);
  bool check_place(uint32_t buffer, int64_t rows, int64_t columns, int64_t leading, const layout& at);

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

constexpr known_worker kWorkers[] = {
    TEV_BLAS_WORKERS(s, 4, 4),
    TEV_BLAS_WORKERS(d, 8, 8),
    TEV_BLAS_WORKERS(c, 8, 4),
    TEV_BLAS_WORKERS(z, 16, 8),
    {"configure_device_threading_worker", &checker::check_threading, {}},
    {"ueaa_prv_query_device_time_worker", &checker::check_nothing, {}},
};
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

// Buffer 0, 1 or 2 holds the matrix A, B or C.
bool checker::check_matrix(uint32_t buffer, int64_t rows, int64_t columns, const layout& at) {
  const int64_t leading = size_at(at.leading[buffer]), least = rows > 1 ? rows : 1;
  if (leading < least)
    return refuse(TEV_CHECK_LEADING, "byte %zu, ld%c: found %lld, expected at least %lld", kRecord + at.leading[buffer],
                  "abc"[buffer], static_cast<long long>(leading), static_cast<long long>(least));
  return check_place(buffer, rows, columns, leading, at);
}

bool checker::check_place(uint32_t buffer, int64_t rows, int64_t columns, int64_t leading, const layout& at) {
  const size_t position = offsetof(tev_invoke_request, relocation) + buffer * sizeof(uint64_t);
  const uint64_t offset = read<uint64_t>(position), length = buffer_bytes_[buffer];
  if (offset > length || offset % at.part != 0)
    return refuse(TEV_CHECK_OFFSET,
                  "byte %zu, relocation of buffer %u: found %llu, expected a multiple of %u up to %llu", position,
                  buffer, static_cast<unsigned long long>(offset), at.part, static_cast<unsigned long long>(length));
  uint64_t bytes = 0;
  const bool countable =
      rows == 0 || columns == 0 ||
      !(__builtin_mul_overflow(columns - 1, leading, &bytes) || __builtin_add_overflow(bytes, rows, &bytes) ||
        __builtin_mul_overflow(bytes, at.element, &bytes));
  if (countable && bytes <= length - offset) return true;
  return refuse(
      TEV_CHECK_BUFFER,
      "buffer %u: found %llu bytes behind the relocation, expected %s%llu for %c with %lld rows, %lld columns, "
      "leading dimension %lld",
      buffer, static_cast<unsigned long long>(length - offset), countable ? "" : "more than ",
      countable ? static_cast<unsigned long long>(bytes) : ~0ULL, "ABC"[buffer], static_cast<long long>(rows),
      static_cast<long long>(columns), static_cast<long long>(leading));
}

}  // namespace

extern "C" int tev_check_request(const void* block, size_t block_bytes, const uint64_t* buffer_bytes,
                                 uint32_t buffer_count, char* text, size_t text_bytes) {
  checker c(block, buffer_bytes, buffer_count, text, text_bytes);
  c.check_request(block_bytes);
  return c.code();
}
