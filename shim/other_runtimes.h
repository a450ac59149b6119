// SPDX-License-Identifier: BSD-3-Clause
// The OpenMP runtimes that the program brought along.
#pragma once

namespace tev::shim {

// Does the calling thread run in a parallel region of any of them?
bool in_region_of_another_runtime();

// In a forked child: whoever looked for them is not here.
void forget_other_searches();

}  // namespace tev::shim
