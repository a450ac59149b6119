// SPDX-License-Identifier: BSD-3-Clause
// Wrong arguments of QR and least squares: names and numbers; and what happens without memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/in_child.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace tev::test {
namespace {

struct call {
  std::string letters;
  std::vector<int64_t> n;  // the integers, in the routine's order
};
// One argument made wrong: a letter, or the integer in this place.
struct mistake {
  int place;
  int64_t value;
  int position;  // that is reported; of a letter 1 + its place
};
constexpr int kLetters = 100;  // places of letters count from here

double a[64], tau[16], c[64], work[64];
tev_complex16 za[64], ztau[16], zc[64], zwork[64];
int64_t pivots[8];

struct routine {
  const char* name;
  void (*run)(const char* letters, const int64_t* integers, int64_t* info);
  call right;
  std::vector<mistake> mistakes;
};
const std::vector<mistake> kOfGeqrf = {{0, -1, 1}, {1, -1, 2}, {2, 4, 4}, {3, 3, 7}, {3, -2, 7}};
const std::vector<mistake> kOfOrgqr = {{0, -1, 1}, {0, 3, 2}, {1, -1, 2}, {2, -1, 3}, {2, 5, 3}, {3, 4, 5}, {4, 3, 8}};
const std::vector<mistake> kOfOrmqr = {
    {kLetters, 'X', 1}, {kLetters + 1, 'X', 2}, {0, -1, 3}, {1, -1, 4}, {2, -1, 5}, {2, 6, 5}, {3, 4, 7}, {4, 4, 10},
    {5, 3, 12}};
const std::vector<mistake> kOfGels = {{kLetters, 'X', 1}, {0, -1, 2}, {1, -1, 3}, {2, -1, 4},
                                      {3, 4, 6},          {4, 4, 8},  {5, 5, 10}};
const std::vector<mistake> kOfGeqp3 = {{0, -1, 1}, {1, -1, 2}, {2, 4, 4}, {3, 4, 8}};

void dormqr(const char* l, const int64_t* n, int64_t* i) {
  tev_lapack_dormqr(l, l + 1, n, n + 1, n + 2, a, n + 3, tau, c, n + 4, work, n + 5, i);
}
void zunmqr(const char* l, const int64_t* n, int64_t* i) {
  tev_lapack_zunmqr(l, l + 1, n, n + 1, n + 2, za, n + 3, ztau, zc, n + 4, zwork, n + 5, i);
}

const routine kRoutines[] = {
    {"DGEQRF",
     [](const char*, const int64_t* n, int64_t* i) { tev_lapack_dgeqrf(n, n + 1, a, n + 2, tau, work, n + 3, i); },
     {"", {5, 4, 5, 4}},
     kOfGeqrf},
    {"DORGQR",
     [](const char*, const int64_t* n, int64_t* i) {
       tev_lapack_dorgqr(n, n + 1, n + 2, a, n + 3, tau, work, n + 4, i);
     },
     {"", {5, 4, 3, 5, 4}},
     kOfOrgqr},
    {"ZUNGQR",
     [](const char*, const int64_t* n, int64_t* i) {
       tev_lapack_zungqr(n, n + 1, n + 2, za, n + 3, ztau, zwork, n + 4, i);
     },
     {"", {5, 4, 3, 5, 4}},
     kOfOrgqr},
    {"DORMQR", dormqr, {"LT", {5, 4, 3, 5, 5, 4}}, kOfOrmqr},
    {"DORMQR",
     dormqr,
     {"RN", {4, 5, 3, 5, 4, 4}},
     {{kLetters + 1, 'C', 2}, {2, 6, 5}, {3, 4, 7}, {4, 3, 10}, {5, 3, 12}}},
    {"ZUNMQR", zunmqr, {"LC", {5, 4, 3, 5, 5, 4}}, kOfOrmqr},
    {"ZUNMQR", zunmqr, {"RN", {4, 5, 3, 5, 4, 4}}, {{kLetters + 1, 'T', 2}}},
    {"DGELS",
     [](const char* l, const int64_t* n, int64_t* i) {
       tev_lapack_dgels(l, n, n + 1, n + 2, a, n + 3, c, n + 4, work, n + 5, i);
     },
     {"T", {5, 3, 2, 5, 5, 6}},
     kOfGels},
    {"DGEQP3",
     [](const char*, const int64_t* n, int64_t* i) {
       tev_lapack_dgeqp3(n, n + 1, a, n + 2, pivots, tau, work, n + 3, i);
     },
     {"", {5, 4, 5, 13}},
     kOfGeqp3},
    {"ZGEQP3",
     [](const char*, const int64_t* n, int64_t* i) {
       tev_lapack_zgeqp3(n, n + 1, za, n + 2, pivots, ztau, zwork, n + 3, nullptr, i);
     },
     {"", {5, 4, 5, 5}},
     kOfGeqp3},
};

std::string reported;
void remember(const char* name, const int32_t* info, int32_t length) {
  reported = std::string(name, static_cast<size_t>(length)) + ' ' + std::to_string(*info);
}

// Before anything is decided in this process.
TEST(QrArguments, NoMemoryIsReported) {
  const child_result result = in_child({{"TEV_DISABLE_FAST_MM", "1"}}, [] {
    i_malloc = [](size_t) -> void* { return nullptr; };
    i_free = std::free;
    tev_serv_set_xerbla(remember);
    for (const routine& r : kRoutines) {
      int64_t info = 7;
      r.run(r.right.letters.data(), r.right.n.data(), &info);
      EXPECT_EQ(info, -1089) << r.name;
      EXPECT_EQ(reported, std::string(r.name) + " 1089");
    }
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(QrArguments, TheFirstWrongOneIsReported) {
  const auto before = tev_serv_set_xerbla(remember);
  for (const routine& r : kRoutines) {
    for (const mistake& wrong : r.mistakes) {
      call x = r.right;
      const auto place = static_cast<size_t>(wrong.place);
      if (wrong.place >= kLetters)
        x.letters[place - kLetters] = static_cast<char>(wrong.value);
      else
        x.n[place] = wrong.value;
      int64_t info = 7;
      reported.clear();
      r.run(x.letters.data(), x.n.data(), &info);
      EXPECT_EQ(info, -wrong.position) << r.name;
      EXPECT_EQ(reported, r.name + (' ' + std::to_string(wrong.position)));
    }
    int64_t info = 7;
    reported.clear();
    call x = r.right;
    r.run(x.letters.data(), x.n.data(), &info);
    EXPECT_EQ(info, 0) << r.name;
    const auto least = static_cast<double>(x.n.back());
    x.n.back() = -1;
    r.run(x.letters.data(), x.n.data(), &info);
    EXPECT_TRUE(work[0] == least || zwork[0].real == least) << r.name;
    EXPECT_TRUE(info == 0 && reported.empty()) << r.name << reported;
  }
  tev_serv_set_xerbla(before);
}

}  // namespace
}  // namespace tev::test
