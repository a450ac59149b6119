// SPDX-License-Identifier: BSD-3-Clause
// What is added up does not depend on where it lies.
#pragma once

#include "tests/support/matrix.h"

namespace tev::test {

// compute(operands) on arrays of random numbers of these lengths, at sixteen places each, gives the same bits.
template <class T>
void expect_same_bits_at_every_address(const std::vector<int64_t>& lengths, const auto& compute) {
  engine random(7);
  std::vector<std::vector<T>> arrays, moved;
  for (const int64_t length : lengths) {
    for (T& x : arrays.emplace_back(static_cast<size_t>(length))) x = random_element<T>(random, values::fractions);
    moved.emplace_back(arrays.back().size() + 16);
  }
  decltype(compute(std::vector<T*>())) first;
  for (size_t place = 0; place < 16; ++place) {
    std::vector<T*> operands;
    for (size_t i = 0; i < arrays.size(); ++i)  // all of them differently
      operands.push_back(std::copy(arrays[i].begin(), arrays[i].end(), &moved[i][place * (2 * i + 1) % 16]) -
                         std::ssize(arrays[i]));
    const auto result = compute(operands);
    if (place == 0) first = result;
    ASSERT_EQ(std::memcmp(result.data(), first.data(), result.size() * sizeof(result[0])), 0) << "place " << place;
  }
}

}  // namespace tev::test
