// SPDX-License-Identifier: BSD-3-Clause
// Argument errors of level 2: the first wrong argument is reported by its number, nothing is touched.
#include <gtest/gtest.h>

#include <string>

#include "tev/blas.h"
#include "tev/service.h"

namespace tev::test {
namespace {

// What a routine checks is told as "u1n2a5x7y10": of each argument the letter by which it stands here, and its number.
struct arguments {
  char u, t, d;                    // uplo, trans, diag
  int64_t m, n, l, h, k, a, x, y;  // l, h: diagonals below and above; a, x, y: leading dimension and increments
};
constexpr arguments kWrong = {'X', 'X', 'X', -1, -1, -1, -1, -1, 0, 0, 0};
// Leading dimensions are as small as they may be.
arguments right(int64_t lda) { return {'u', 'n', 'N', 2, 2, 1, 1, 1, lda, 1, -1}; }

struct routine {
  const char* name;
  void (*call)(const arguments&);
  const char* checks;
  int64_t lda;
};

// The operands are null: whatever is touched ends the test.
#define TEV_ROW(name, routine, checks, lda, ...) \
  {name, [](const arguments& v) { tev_blas_##routine(__VA_ARGS__); }, checks, lda},
#define TEV_TRIANGULAR(P, p, op, OP)                                                                             \
  TEV_ROW(P "TR" OP, p##tr##op, "u1t2d3n4a6x8", 2, &v.u, &v.t, &v.d, &v.n, nullptr, &v.a, nullptr, &v.x)         \
  TEV_ROW(P "TB" OP, p##tb##op, "u1t2d3n4k5a7x9", 2, &v.u, &v.t, &v.d, &v.n, &v.k, nullptr, &v.a, nullptr, &v.x) \
  TEV_ROW(P "TP" OP, p##tp##op, "u1t2d3n4x7", 2, &v.u, &v.t, &v.d, &v.n, nullptr, nullptr, &v.x)
#define TEV_PRECISION(P, p, SY, sy, SB, sb, SP, sp)                                                                    \
  TEV_ROW(P SY "MV", p##sy##mv, "u1n2a5x7y10", 2, &v.u, &v.n, nullptr, nullptr, &v.a, nullptr, &v.x, nullptr, nullptr, \
          &v.y)                                                                                                        \
  TEV_ROW(P SB "MV", p##sb##mv, "u1n2k3a6x8y11", 2, &v.u, &v.n, &v.k, nullptr, nullptr, &v.a, nullptr, &v.x, nullptr,  \
          nullptr, &v.y)                                                                                               \
  TEV_ROW(P SP "MV", p##sp##mv, "u1n2x6y9", 2, &v.u, &v.n, nullptr, nullptr, nullptr, &v.x, nullptr, nullptr, &v.y)    \
  TEV_ROW(P SY "R", p##sy##r, "u1n2x5a7", 2, &v.u, &v.n, nullptr, nullptr, &v.x, nullptr, &v.a)                        \
  TEV_ROW(P SP "R", p##sp##r, "u1n2x5", 2, &v.u, &v.n, nullptr, nullptr, &v.x, nullptr)                                \
  TEV_ROW(P SY "R2", p##sy##r2, "u1n2x5y7a9", 2, &v.u, &v.n, nullptr, nullptr, &v.x, nullptr, &v.y, nullptr, &v.a)     \
  TEV_ROW(P SP "R2", p##sp##r2, "u1n2x5y7", 2, &v.u, &v.n, nullptr, nullptr, &v.x, nullptr, &v.y, nullptr)             \
  TEV_ROW(P "GBMV", p##gbmv, "t1m2n3l4h5a8x10y13", 3, &v.t, &v.m, &v.n, &v.l, &v.h, nullptr, nullptr, &v.a, nullptr,   \
          &v.x, nullptr, nullptr, &v.y)                                                                                \
  TEV_TRIANGULAR(P, p, mv, "MV") TEV_TRIANGULAR(P, p, sv, "SV")
const routine kRoutines[] = {
    TEV_PRECISION("S", s, "SY", sy, "SB", sb, "SP", sp) TEV_PRECISION("D", d, "SY", sy, "SB", sb, "SP", sp)
        TEV_PRECISION("C", c, "HE", he, "HB", hb, "HP", hp) TEV_PRECISION("Z", z, "HE", he, "HB", hb, "HP", hp)};

std::string reported;
void remember(const char* name, const int32_t* info, int32_t length) {
  reported += std::string(name, static_cast<size_t>(length)) + ' ' + std::to_string(*info) + '\n';
}

void put_right(arguments& v, char argument, const arguments& from) {
  constexpr struct {
    char letter;
    int64_t arguments::*size;
  } sizes[] = {{'m', &arguments::m}, {'n', &arguments::n}, {'l', &arguments::l}, {'h', &arguments::h},
               {'k', &arguments::k}, {'a', &arguments::a}, {'x', &arguments::x}, {'y', &arguments::y}};
  for (const auto& [letter, size] : sizes)
    if (letter == argument) v.*size = from.*size;
  if (argument == 'u') v.u = from.u;
  if (argument == 't') v.t = from.t;
  if (argument == 'd') v.d = from.d;
}

// Starts with every argument wrong and puts one right after the other.
TEST(Level2, ArgumentErrorsAreReportedInOrder) {
  tev_serv_set_xerbla(remember);
  for (const routine& r : kRoutines) {
    const arguments good = right(r.lda);
    arguments v = kWrong;
    v.a = r.lda - 1;
    for (const char* check = r.checks; *check != 0;) {
      const char argument = *check++;
      std::string number;
      while (*check >= '0' && *check <= '9') number += *check++;
      reported.clear();
      r.call(v);
      EXPECT_EQ(reported, r.name + (' ' + number + '\n'));
      put_right(v, argument, good);
    }
  }
  tev_serv_set_xerbla(nullptr);
}

}  // namespace
}  // namespace tev::test
