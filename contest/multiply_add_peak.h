// SPDX-License-Identifier: BSD-3-Clause
// The rate of multiply-adds that one core gives when nothing but registers is involved: the floor under every product.
#pragma once

#include <cstdint>
#include <string>

namespace tev::contest {

// Runs `loops` rounds of independent multiply-adds with the vectors of `tier`; returns floating-point operations done.
double spend_multiply_adds(const std::string& tier, bool single, int64_t loops);

}  // namespace tev::contest
