// SPDX-License-Identifier: BSD-3-Clause
// Requests for the BLAS workers made of random bytes, most of them almost right, and whether they are: reckoned without
// a bound on the numbers, by a table of offsets of its own.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tev/request.h"

namespace request_check_test {

__extension__ using wide = __int128;

// Hands out bytes, then zeros.
struct byte_source {
  const uint8_t* data;
  size_t left;

  uint8_t next() { return left == 0 ? uint8_t{0} : (--left, *data++); }
  int64_t one_of(std::initializer_list<int64_t> values) { return values.begin()[next() % values.size()]; }
  bool rarely() { return next() >= 250; }
};

struct attempt {
  std::string op;  // gemm symm trmm trsm
  char precision;  // s d c z
  tev_card_request block;
  std::vector<uint64_t> lengths;

  bool is_gemm() const { return op == "gemm"; }
  bool has_c() const { return is_gemm() || op == "symm"; }
  int matrices() const { return has_c() ? 3 : 2; }
  int part() const { return precision == 's' || precision == 'c' ? 4 : 8; }
  int element() const { return precision == 'c' || precision == 'z' ? 2 * part() : part(); }
  size_t at_leading(int matrix) const {
    if (is_gemm()) return std::array{40, 48, 64}[matrix] + (precision == 'z' ? std::array{8, 8, 16}[matrix] : 0);
    return 48 + 8 * matrix + (precision == 's' ? -8 : precision == 'z' ? 16 : 0);
  }
  unsigned char* record() { return block.invoke.record; }
  void put(size_t offset, int64_t value) { std::memcpy(record() + offset, &value, sizeof(value)); }
  wide number(size_t offset) const {
    int64_t value;
    std::memcpy(&value, block.invoke.record + offset, sizeof(value));
    return value;
  }
  bool is(int at, const char* letters) const {
    return block.invoke.record[at] && std::strchr(letters, block.invoke.record[at]);
  }

  // Of matrix A, B or C.
  std::pair<wide, wide> shape(int matrix) const {
    const wide m = number(8), n = number(16), k = number(24), order = is(0, "Ll") ? m : n;
    if (is_gemm() && matrix == 0) return is(0, "Nn") ? std::pair(m, k) : std::pair(k, m);
    if (is_gemm() && matrix == 1) return is(1, "Nn") ? std::pair(k, n) : std::pair(n, k);
    return matrix == 0 ? std::pair(order, order) : std::pair(m, n);
  }
  wide elements(int matrix) const {
    const auto [rows, columns] = shape(matrix);
    return rows == 0 || columns == 0 ? 0 : (columns - 1) * number(at_leading(matrix)) + rows;
  }

  // Whether a worker that believes the record stays within its buffers, on whole numbers.
  bool is_sound() const {
    const bool letters = is_gemm() ? is(0, "NTCntc") && is(1, "NTCntc")
                                   : is(0, "LRlr") && is(2, "ULul") && (has_c() || (is(1, "NTCntc") && is(3, "NUnu")));
    if (!letters || std::min({number(8), number(16), is_gemm() ? number(24) : 0}) < 0) return false;
    for (int i = 0; i < matrices(); ++i) {
      const wide begin = block.invoke.relocation[i];
      if (number(at_leading(i)) < std::max<wide>(shape(i).first, 1) || begin % part() != 0) return false;
      if (begin > lengths[i] || elements(i) > (lengths[i] - begin) / element()) return false;
    }
    return true;
  }
};

inline attempt make_attempt(byte_source& bytes, int64_t longest) {
  const uint8_t choice = bytes.next();
  attempt a = {std::array{"gemm", "symm", "trmm", "trsm"}[choice % 4], "sdcz" [choice / 4 % 4], {}, {}};
  a.block.invoke.code = TEV_REQUEST_INVOKE;
  (std::string("tev_blas_") + a.precision + a.op + "_ao_worker").copy(a.block.invoke.worker, TEV_WORKER_NAME_BYTES);
  for (int i = 0; i < 4; ++i) {
    const char* letters = a.is_gemm() ? "NTCntc" : std::array{"LRlr", "NTCn", "ULul", "NUnu"}[i];
    const uint8_t letter = bytes.next();
    a.record()[i] = bytes.rarely() ? letter : static_cast<unsigned char>(letters[letter % std::strlen(letters)]);
  }
  for (const size_t size : {8, 16, 24})
    a.put(size, bytes.rarely() ? bytes.one_of({-1, INT64_MIN, INT64_MAX, int64_t{1} << 31, int64_t{1} << 62})
                               : bytes.next() % bytes.one_of({2, 4, 12, 40, 100}));
  a.put(32, bytes.one_of({0, 0x3ff0000000000000}));  // alpha: nothing, or one in double precision
  for (int i = 0; i < a.matrices(); ++i) {
    const auto rows = static_cast<int64_t>(std::clamp<wide>(a.shape(i).first, 1, INT64_MAX - 256));
    a.put(a.at_leading(i), bytes.rarely() ? bytes.one_of({rows - 1, 0, INT64_MIN, INT64_MAX, int64_t{1} << 61})
                                          : rows + bytes.one_of({0, 0, 1, 5, 256}));
    const int64_t begin = bytes.rarely() ? bytes.one_of({1, -a.part(), INT64_MIN, INT64_MAX, longest / 2})
                                         : bytes.one_of({0, 1, 2, 7, 16}) * a.part();
    a.block.invoke.relocation[i] = static_cast<uint64_t>(begin);
    const wide end = std::clamp<wide>(a.elements(i), 0, longest) * a.element() + begin;
    const int64_t slack = bytes.rarely() ? -a.part() : bytes.one_of({0, 0, 8, 64});
    a.lengths.push_back(static_cast<uint64_t>(std::clamp<wide>(end + slack, 0, longest)));
  }
  return a;
}

}  // namespace request_check_test
