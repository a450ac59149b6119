// SPDX-License-Identifier: BSD-3-Clause
// The kinds of arguments of shim/routines.inc: how each is stored and checked, and what it is in Fortran and in C. And
// two macros that walk over the arguments of a row.
#pragma once

#include <cstdint>
#include <type_traits>

#include "tev/types.h"

// TEV_EACH(macro, (kind, name, ...)...): macro(kind, name, ...) for each argument; TEV_LIST: with commas between them.
#define TEV_PARENTHESES ()
#define TEV_SCAN(...) TEV_SCAN3(TEV_SCAN3(TEV_SCAN3(__VA_ARGS__)))
#define TEV_SCAN3(...) TEV_SCAN2(TEV_SCAN2(TEV_SCAN2(__VA_ARGS__)))
#define TEV_SCAN2(...) __VA_ARGS__
#define TEV_EACH(macro, ...) __VA_OPT__(TEV_SCAN(TEV_EACH_STEP(macro, __VA_ARGS__)))
#define TEV_EACH_STEP(macro, item, ...) macro item __VA_OPT__(TEV_EACH_AGAIN TEV_PARENTHESES(macro, __VA_ARGS__))
#define TEV_EACH_AGAIN() TEV_EACH_STEP
#define TEV_LIST(macro, ...) __VA_OPT__(TEV_SCAN(TEV_LIST_STEP(macro, __VA_ARGS__)))
#define TEV_LIST_STEP(macro, item, ...) macro item __VA_OPT__(, TEV_LIST_AGAIN TEV_PARENTHESES(macro, __VA_ARGS__))
#define TEV_LIST_AGAIN() TEV_LIST_STEP

namespace tev::shim {

// clang-format off
enum class kind {
  ORDER, SIDE, UPLO, TRANS, OP, DIAG,      // letters
  INT, SIZE, INC, STEP, LD, LWORK,         // integers
  SCALAR, REAL, NORM, IN, OUT, REAL_OUT,   // by address
  INDICES, INDICES_OUT, INFO               // arrays of integers
};
// clang-format on

constexpr bool is_letter(kind k) { return k <= kind::DIAG; }
constexpr bool is_integer(kind k) { return k >= kind::INT && k <= kind::LWORK; }

template <class E>
inline constexpr bool kComplex = !std::is_floating_point_v<E>;

// E: element, P: the type of its parts.
template <kind K, class E, class P>
auto field_example() {
  if constexpr (is_letter(K)) return char{};
  if constexpr (is_integer(K)) return int64_t{};
  if constexpr (K == kind::SCALAR || K == kind::IN) return static_cast<const E*>(nullptr);
  if constexpr (K == kind::OUT) return static_cast<E*>(nullptr);
  if constexpr (K == kind::REAL || K == kind::NORM) return static_cast<const P*>(nullptr);
  if constexpr (K == kind::REAL_OUT) return static_cast<P*>(nullptr);
}

template <kind K, class E, class P>
using field = decltype(field_example<K, E, P>());

// In capitals; what is no letter stays.
constexpr char capital(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

constexpr bool is_one_of(char letter, const char* letters) {
  while (*letters != '\0' && *letters != letter) ++letters;
  return *letters != '\0';
}

template <kind K>
constexpr bool is_wrong([[maybe_unused]] auto value, [[maybe_unused]] auto... rule) {
  if constexpr (K == kind::ORDER) return !is_one_of(value, "CR");
  if constexpr (K == kind::SIDE) return !is_one_of(value, "LR");
  if constexpr (K == kind::UPLO) return !is_one_of(value, "UL");
  if constexpr (K == kind::DIAG) return !is_one_of(value, "NU");
  if constexpr (K == kind::TRANS) return !is_one_of(value, rule...);
  if constexpr (K == kind::OP) return !is_one_of(value, "NTCR");
  if constexpr (K == kind::SIZE) return value < 0 || (... || (value > rule));
  if constexpr (K == kind::INC) return value == 0;
  if constexpr (K == kind::LD) return value < 1 || (value < ... < rule);
  if constexpr (K == kind::LWORK) return value != -1 && (value < 1 || (value < ... < rule));
  if constexpr (K == kind::NORM) return *value < 0;
  return false;
}

template <kind K>
constexpr bool is_idle([[maybe_unused]] auto value) {
  if constexpr (K == kind::STEP)
    return value <= 0;
  else
    return false;
}

// Of a vector that meets a matrix: its elements follow each other.
template <kind K>
constexpr bool is_gapless([[maybe_unused]] auto value) {
  if constexpr (K == kind::INC)
    return value == 1;
  else
    return true;
}

// ---- How tev/blas.h wants them: by address.

inline const char* by_address(const char& letter) { return &letter; }
inline const int64_t* by_address(const int64_t& number) { return &number; }
template <class T>
T* by_address(T* pointer) {
  return pointer;
}

// ---- Fortran: by address, integers of type I.

template <kind K, class E, class P, class I>
using fortran_parameter =
    std::conditional_t<is_letter(K), const char*, std::conditional_t<is_integer(K), const I*, field<K, E, P>>>;

template <kind K, class Parameter>
auto from_fortran(Parameter parameter) {
  if constexpr (is_letter(K))
    return capital(*parameter);
  else if constexpr (is_integer(K))
    return int64_t{*parameter};
  else
    return parameter;
}

// ---- C: letters are numbers, real scalars come by value, all that is complex is void.

template <kind K, class E, class P, class I>
auto c_example() {
  using element = std::conditional_t<kComplex<E>, void, E>;
  if constexpr (is_letter(K)) return int{};
  if constexpr (is_integer(K)) return I{};
  if constexpr (K == kind::SCALAR) return std::conditional_t<kComplex<E>, const void*, E>{};
  if constexpr (K == kind::IN) return static_cast<const element*>(nullptr);
  if constexpr (K == kind::OUT) return static_cast<element*>(nullptr);
  if constexpr (K == kind::REAL) return P{};
  if constexpr (K == kind::REAL_OUT) return static_cast<P*>(nullptr);
}

template <kind K, class E, class P, class I>
using c_parameter = decltype(c_example<K, E, P, I>());

// A number that is none of the enumeration's becomes a letter that no routine knows.
template <kind K>
constexpr char letter_of(int number) {
  constexpr bool kTransposes = K == kind::TRANS || K == kind::OP;
  constexpr int kFirst = K == kind::ORDER  ? 101
                         : kTransposes     ? 111
                         : K == kind::UPLO ? 121
                         : K == kind::DIAG ? 131
                                           : 141;
  constexpr const char* kLetters = K == kind::ORDER   ? "RC"
                                   : K == kind::TRANS ? "NTC"
                                   : K == kind::OP    ? "NTCR"
                                   : K == kind::UPLO  ? "UL"
                                   : K == kind::DIAG  ? "NU"
                                                      : "LR";
  for (int i = 0; kLetters[i] != '\0'; ++i)
    if (number == kFirst + i) return kLetters[i];
  return '?';
}

template <kind K, class E, class P, class Parameter>
field<K, E, P> from_c(const Parameter& parameter) {
  if constexpr (is_letter(K))
    return letter_of<K>(parameter);
  else if constexpr (is_integer(K))
    return parameter;
  else if constexpr (std::is_pointer_v<Parameter>)
    return static_cast<field<K, E, P>>(parameter);
  else
    return &parameter;
}

}  // namespace tev::shim
