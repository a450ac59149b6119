// SPDX-License-Identifier: BSD-3-Clause
// How many threads a matrix product is worth: a fork costs more the larger the team, so small products get few threads
// or one. A function of the sizes alone.
#pragma once

#include <cstdint>

namespace tev::blas {

// Work of one multiply-add beside a double's.
template <class T>
inline constexpr double kWorkPerElement = 4;  // complex
template <>
inline constexpr double kWorkPerElement<float> = 0.5;
template <>
inline constexpr double kWorkPerElement<double> = 1;

// 1 .. max(1, available). `tier` is a type code.
int64_t gemm_thread_count(int32_t tier, int64_t m, int64_t n, int64_t k, double work_per_element, int64_t available);

// True: one thread, however many are available. Cheap, for products that cost less than to ask for their number.
bool never_worth_a_team(int32_t tier, int64_t m, int64_t n, int64_t k, double work_per_element);

}  // namespace tev::blas
