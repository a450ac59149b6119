// SPDX-License-Identifier: BSD-3-Clause
// Requests for the BLAS and LAPACK workers made of random bytes, most of them almost right, and whether they are:
// reckoned without a bound on the numbers, by tables of offsets of its own.
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

// Where the records of an operation have their options, sizes and leading dimensions. Those of ?getrf are all sizes.
struct form {
  const char* op;
  bool is_step;  // of a factorization
  std::vector<size_t> letters;
  std::vector<const char*> choices;
  std::vector<size_t> sizes;
  std::vector<size_t> leading;  // of the matrices in their order; BLAS: in double precision
};

inline const form kForms[] = {
    {"gemm", false, {0, 1}, {"NTC", "NTC"}, {8, 16, 24}, {40, 48, 64}},
    {"symm", false, {0, 2}, {"LR", "UL"}, {8, 16}, {48, 56, 64}},
    {"trmm", false, {0, 1, 2, 3}, {"LR", "NTC", "UL", "NU"}, {8, 16}, {48, 56}},
    {"trsm", false, {0, 1, 2, 3}, {"LR", "NTC", "UL", "NU"}, {8, 16}, {48, 56}},
    {"gemm", true, {0, 8}, {"NTC", "NTC"}, {16, 24, 32}, {40, 48, 56}},
    {"trsm", true, {0, 8, 16, 24}, {"LR", "UL", "NTC", "NU"}, {32, 40}, {48, 56}},
    {"syrk", true, {0, 8}, {"UL", "NT"}, {16, 24}, {32, 40}},
    {"larfb", true, {0, 8, 16, 24}, {"LR", "NTC", "FB", "CR"}, {32, 40, 48}, {56, 64, 72, 80}},
    {"getrf", true, {}, {}, {0, 8, 16, 48, 56, 80}, {88, 0, 64, 72, 24, 32, 40}},
};

struct attempt {
  const form* of;
  char precision;  // s d c z
  tev_card_request block;
  std::vector<uint64_t> lengths;

  bool is(const char* op) const { return std::string(of->op) == op; }
  int matrices() const { return is("getrf") && !updates() ? 4 : static_cast<int>(of->leading.size()); }
  int part() const { return precision == 's' || precision == 'c' ? 4 : 8; }
  int element() const { return precision == 'c' || precision == 'z' ? 2 * part() : part(); }
  int element(int matrix) const { return is_pivots(matrix) ? 8 : element(); }
  int part(int matrix) const { return is_pivots(matrix) ? 8 : part(); }
  bool is_pivots(int matrix) const { return is("getrf") && matrix == 1; }
  bool updates() const { return number(112) < number(120); }
  size_t at_leading(int matrix) const {
    const size_t in_double = of->leading[static_cast<size_t>(matrix)];
    if (of->is_step || precision == 'c' || precision == 'd') return in_double;
    if (precision == 's') return is("gemm") ? in_double : in_double - 8;
    return in_double + (is("gemm") && matrix < 2 ? 8 : 16);
  }
  unsigned char* record() { return block.invoke.record; }
  void put(size_t offset, int64_t value) { std::memcpy(record() + offset, &value, sizeof(value)); }
  wide number(size_t offset) const {
    int64_t value;
    std::memcpy(&value, block.invoke.record + offset, sizeof(value));
    return value;
  }
  char letter(size_t i) const { return static_cast<char>(block.invoke.record[of->letters[i]] & ~0x20); }
  bool letter_is_known(size_t i) const {
    const char found = letter(i);
    const bool real_only = is("syrk") && i == 1 && element() == part() && found == 'C';
    return real_only || (found != 0 && std::strchr(of->choices[i], found));
  }

  // Of the matrix in a buffer.
  std::pair<wide, wide> shape(int matrix) const {
    const auto size = [&](size_t i) { return number(of->sizes[i]); };
    if (is("getrf")) {
      const std::pair<wide, wide> shapes[] = {{number(88), size(5)}, {number(104), 1},   {size(3), size(3)},
                                              {size(3), size(4)},    {size(1), size(2)}, {size(2), size(0)},
                                              {size(1), size(0)}};
      return shapes[matrix];
    }
    const wide m = size(0), n = size(1), k = of->sizes.size() > 2 ? size(2) : 0, order = letter(0) == 'L' ? m : n;
    const auto turned_unless = [](bool plain, wide rows, wide columns) {
      return plain ? std::pair(rows, columns) : std::pair(columns, rows);
    };
    if (is("gemm")) {
      if (matrix == 2) return {m, n};
      return matrix == 0 ? turned_unless(letter(0) == 'N', m, k) : turned_unless(letter(1) == 'N', k, n);
    }
    if (is("syrk")) return matrix == 1 ? std::pair(m, m) : turned_unless(letter(1) == 'N', m, n);  // its n, its k
    if (is("larfb")) {
      if (matrix == 0) return turned_unless(letter(3) == 'C', order, k);
      return matrix == 1 ? std::pair(k, k) : matrix == 2 ? std::pair(m, n) : std::pair(m + n - order, k);
    }
    return matrix == 0 ? std::pair(order, order) : std::pair(m, n);
  }
  wide leading(int matrix) const { return is_pivots(matrix) ? number(104) : number(at_leading(matrix)); }
  wide elements(int matrix) const {
    const auto [rows, columns] = shape(matrix);
    return rows == 0 || columns == 0 ? 0 : (columns - 1) * leading(matrix) + rows;
  }
  bool interchanges() const { return number(80) > 0 && number(96) <= number(104); }

  uint32_t step_bytes() const { return static_cast<uint32_t>(128 + 16 * element()); }
  bool is_taken() const {  // not ignored
    return !of->is_step || is("getrf") ||
           (block.invoke.parameter == step_bytes() && static_cast<int>(lengths.size()) == matrices());
  }

  // Whether a worker that believes the record stays within its buffers, on whole numbers.
  bool is_sound() const {
    if (!is_taken()) return false;
    for (size_t i = 0; i < of->letters.size(); ++i)
      if (!letter_is_known(i)) return false;
    for (size_t i = updates() || !is("getrf") ? 0 : 3; i < of->sizes.size(); ++i)
      if (number(of->sizes[i]) < 0) return false;
    if (is("larfb") && number(48) > number(letter(0) == 'L' ? 32 : 40)) return false;
    if (is("getrf") && interchanges() && (number(96) < 1 || number(104) > number(88))) return false;
    for (int i = 0; i < matrices(); ++i) {
      if (is_pivots(i) && !interchanges()) continue;
      const wide begin = block.invoke.relocation[i];
      if (leading(i) < std::max<wide>(shape(i).first, 1) || begin % part(i) != 0) return false;
      if (begin > lengths[i] || elements(i) > (lengths[i] - begin) / element(i)) return false;
    }
    return true;
  }
};

inline attempt make_attempt(byte_source& bytes, int64_t longest) {
  const uint8_t choice = bytes.next();
  attempt a = {&kForms[choice / 4 % std::size(kForms)], "sdcz" [choice % 4], {}, {}};
  a.block.invoke.code = TEV_REQUEST_INVOKE;
  (std::string(a.of->is_step ? "tev_lapack_" : "tev_blas_") + a.precision + a.of->op +
   (a.of->is_step ? "_worker" : "_ao_worker"))
      .copy(a.block.invoke.worker, TEV_WORKER_NAME_BYTES);
  a.block.invoke.parameter = bytes.rarely() ? bytes.next() : a.step_bytes();
  for (size_t i = 0; i < a.of->letters.size(); ++i) {
    const char* letters = a.of->choices[i];
    const uint8_t letter = bytes.next(), lower = bytes.next() & 0x20;
    a.record()[a.of->letters[i]] =
        bytes.rarely() ? letter : static_cast<unsigned char>(letters[letter % std::strlen(letters)] | lower);
  }
  for (const size_t size : a.of->sizes)
    a.put(size, bytes.rarely() ? bytes.one_of({-1, INT64_MIN, INT64_MAX, int64_t{1} << 31, int64_t{1} << 62})
                               : bytes.next() % bytes.one_of({2, 4, 12, 40, 100}));
  if (a.is("getrf")) {
    for (const size_t at : {112, 120}) a.put(at, bytes.next() % 4);
    a.put(88, bytes.rarely() ? -1 : bytes.next() % 50);
    for (const size_t row : {96, 104}) a.put(row, bytes.rarely() ? 60 : bytes.next() % 12);
  }
  if (!a.of->is_step) a.put(32, bytes.one_of({0, 0x3ff0000000000000}));  // alpha: nothing, or one in double precision
  for (int i = 0; i < a.matrices(); ++i) {
    const auto rows = static_cast<int64_t>(std::clamp<wide>(a.shape(i).first, 1, INT64_MAX - 256));
    const bool is_chosen = a.is("getrf") && i < 2;
    if (!is_chosen)
      a.put(a.at_leading(i), bytes.rarely() ? bytes.one_of({rows - 1, 0, INT64_MIN, INT64_MAX, int64_t{1} << 61})
                                            : rows + bytes.one_of({0, 0, 1, 5, 256}));
    const int64_t begin = bytes.rarely() ? bytes.one_of({1, -a.part(i), INT64_MIN, INT64_MAX, longest / 2})
                                         : bytes.one_of({0, 1, 2, 7, 16}) * a.part(i);
    a.block.invoke.relocation[i] = static_cast<uint64_t>(begin);
    const wide end = std::clamp<wide>(a.elements(i), 0, longest) * a.element(i) + begin;
    const int64_t slack = bytes.rarely() ? -a.part(i) : bytes.one_of({0, 0, 8, 64});
    a.lengths.push_back(static_cast<uint64_t>(std::clamp<wide>(end + slack, 0, longest)));
  }
  if (bytes.rarely()) a.lengths.push_back(8);
  return a;
}

}  // namespace request_check_test
