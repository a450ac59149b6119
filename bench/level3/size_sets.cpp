// SPDX-License-Identifier: BSD-3-Clause
// Products have their letters beside the sizes. The other operations have more letters than a set has sizes: some sizes
// are measured with every combination, each other one with the next in turn.
//
//   set      product           symmetric, triangular (order x right-hand sides)   rank_k, rank_2k
//   small, mid, large          order n everywhere, from 2 to 4000
//   skinny   one size tiny     2000 x 2 ... 16 and the reverse                    k tiny
//   deepk    k = 50000         none                                               k = 50000
//   lu       k = 128 ... 384   128 ... 384 x 4000                                 k = 128 ... 384
//   badld    leading dimensions that are powers of two
//   rhs      none              16 ... 1024 x 1 ... 64, triangular only            none
//   odd      1 to 24 wide, 1 to 8 deep   none                                     none
//   orders   2, 3 ... 128, all letters   none                                     none
#include "bench/level3/size_sets.h"

#include <algorithm>
#include <utility>

namespace tev::bench {

namespace {

std::vector<level3_case> product_cases(const std::string& set) {
  std::vector<level3_case> cases;
  const auto add = [&](int64_t m, int64_t n, int64_t k, const char* letters = "NN", int64_t ld = 0) {
    cases.push_back({letters, m, n, k, ld});
  };
  const char* const transposed[] = {"TN", "NT", "TT"};
  if (set == "small") {
    for (int64_t n : {2, 3, 4, 5, 6, 8, 10, 12, 16, 20, 24, 32, 40, 48, 64, 80, 100, 128}) add(n, n, n);
    for (const char* t : transposed)
      for (int64_t n : {4, 10, 24, 64, 100}) add(n, n, n, t);
  } else if (set == "mid") {
    for (int64_t n : {192, 256, 300, 400, 512, 640, 800, 1000, 1024}) add(n, n, n);
    for (const char* t : transposed) add(500, 500, 500, t);
  } else if (set == "large") {
    for (int64_t n : {2000, 3000, 4000}) add(n, n, n);
  } else if (set == "skinny") {
    for (int64_t n : {2, 4, 8, 16}) add(2000, n, 2000), add(n, 2000, 2000);
    for (const char* t : transposed) add(2000, 8, 2000, t), add(8, 2000, 2000, t);
    add(4000, 4000, 4), add(4000, 4000, 16);
  } else if (set == "deepk") {
    for (int64_t n : {4, 8, 16, 32, 64, 100}) add(n, n, 50000);
    for (const char* t : transposed) add(16, 16, 50000, t);
  } else if (set == "lu") {
    for (int64_t k : {128, 192, 256, 384}) add(4000, 4000, k);
  } else if (set == "badld") {
    add(256, 256, 256, "NN", 4096), add(500, 500, 500, "NN", 512), add(1000, 1000, 1000, "NN", 1024);
    add(1000, 1000, 1000, "NN", 4096), add(1000, 1000, 1000, "TN", 4096), add(1000, 1000, 1000, "NT", 4096);
    add(2048, 2048, 256, "NN", 4096);
  } else if (set == "odd") {
    for (const char* t : {"NN", "TN", "NT", "TT"}) {
      add(1, 1, 4000, t), add(1, 1000, 1000, t), add(1000, 1, 1000, t), add(3, 1000, 1000, t), add(1000, 5, 1000, t);
      add(4, 4, 4000, t), add(8, 8, 10000, t), add(24, 24, 4000, t), add(24, 200, 8192, t);
      add(1000, 1000, 1, t), add(1000, 1000, 2, t), add(200, 200, 8, t), add(5, 5, 5, t), add(14, 14, 14, t);
    }
    add(320, 320, 320, "TT"), add(768, 768, 768);
  } else if (set == "orders") {
    for (const char* t : {"NN", "TN", "NT", "TT"})
      for (int64_t n = 2; n <= 128; ++n) add(n, n, n, t);
  }
  return cases;
}

// C is m x n. With side R the two are exchanged, so that m is the order of the symmetric or triangular operand.
struct size {
  int64_t m, n, k, ld;
};

struct size_set {
  std::vector<size> letters_in_turn, every_letter;
};

std::vector<size> cubes(const std::vector<int64_t>& orders) {
  std::vector<size> sizes;
  for (const int64_t n : orders) sizes.push_back({n, n, n, 0});
  return sizes;
}

std::vector<size> sided(const std::vector<int64_t>& orders, const std::vector<int64_t>& others) {
  std::vector<size> sizes;
  for (const int64_t m : orders)
    for (const int64_t n : others) sizes.push_back({m, n, 0, 0});
  return sizes;
}

std::vector<size> ranks(int64_t n, const std::vector<int64_t>& depths) {
  std::vector<size> sizes;
  for (const int64_t k : depths) sizes.push_back({n, n, k, 0});
  return sizes;
}

std::vector<size> joined(std::vector<size> head, const std::vector<size>& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

size_set square_sizes(const std::string& set) {
  if (set == "small") return {cubes({2, 3, 5, 6, 8, 12, 16, 20, 32, 40, 48, 80, 128}), cubes({4, 10, 24, 64, 100})};
  if (set == "mid") return {cubes({192, 256, 300, 400, 512, 640, 800, 1000, 1024}), cubes({500})};
  if (set == "large") return {cubes({2000, 3000, 4000}), {}};
  if (set == "badld")
    return {{{256, 256, 256, 4096}, {1000, 1000, 1000, 1024}, {1000, 1000, 1000, 4096}}, {{500, 500, 500, 512}}};
  return {};
}

size_set sided_sizes(const std::string& set, shape kind) {
  const std::vector<int64_t> tiny = {2, 4, 8, 16};
  if (set == "skinny") return {joined(sided({2000}, {2, 4, 16}), sided(tiny, {2000})), sided({2000}, {8})};
  if (set == "lu") return {sided({128, 192, 384}, {4000}), sided({256}, {4000})};
  if (set == "rhs" && kind == shape::triangular) return {sided({16, 64, 256, 1024}, {1, 4, 16, 64}), {}};
  return square_sizes(set);
}

size_set rank_sizes(const std::string& set) {
  if (set == "skinny") return {joined(ranks(2000, {2, 4, 16}), ranks(4000, {4, 16})), ranks(2000, {8})};
  if (set == "deepk") {
    size_set deep = {cubes({4, 8, 32, 64, 100}), cubes({16})};
    for (auto* sizes : {&deep.letters_in_turn, &deep.every_letter})
      for (size& s : *sizes) s.k = 50000;
    return deep;
  }
  if (set == "lu") return {ranks(4000, {128, 192, 384}), ranks(4000, {256})};
  return square_sizes(set);
}

}  // namespace

std::vector<level3_case> cases_of(const operation& op, char precision, const std::string& set) {
  if (op.kind == shape::product) return product_cases(set);
  const bool has_side = op.kind == shape::symmetric || op.kind == shape::triangular;
  const size_set sizes = has_side ? sided_sizes(set, op.kind) : rank_sizes(set);
  const std::vector<std::string> letters = letter_combinations(op, precision);
  std::vector<level3_case> cases;
  const auto add = [&](const size& s, const std::string& l) {
    level3_case c = {l, s.m, s.n, has_side ? 0 : s.k, s.ld};
    if (l[0] == 'R') std::swap(c.m, c.n);
    cases.push_back(c);
  };
  constexpr size_t kStep = 5;  // prime to the 4, 8 or 12 combinations, so that short sets meet each letter, too
  for (size_t i = 0; i < sizes.letters_in_turn.size(); ++i)
    add(sizes.letters_in_turn[i], letters[i * kStep % letters.size()]);
  for (const size& s : sizes.every_letter)
    for (const std::string& l : letters) add(s, l);
  return cases;
}

std::vector<std::string> sets_of(const operation& op) {
  std::vector<std::string> sets;
  for (const char* set : {"small", "mid", "skinny", "deepk", "lu", "badld", "rhs", "odd", "orders", "large"})
    if (!cases_of(op, 's', set).empty()) sets.push_back(set);
  return sets;
}

}  // namespace tev::bench
