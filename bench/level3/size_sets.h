// SPDX-License-Identifier: BSD-3-Clause
// What is measured: named sets of sizes, shaped to the operation.
#pragma once

#include <string>
#include <vector>

#include "contest/operations.h"

namespace tev::bench {

using namespace contest;

// The names of the sets that the operation has.
std::vector<std::string> sets_of(const operation& op);

// Empty when the operation has no such set.
std::vector<level3_case> cases_of(const operation& op, char precision, const std::string& set);

}  // namespace tev::bench
