// SPDX-License-Identifier: BSD-3-Clause
// The OpenMP runtimes that the program brought along.
#pragma once

namespace tev::shim {

// Does the calling thread run in a parallel region of any of them?
bool in_region_of_another_runtime();

// For a fork: nobody walks through the loaded files while it is held. In the child whoever looked for them is not
// there.
void hold_searches();
void release_searches();
void forget_other_searches();

}  // namespace tev::shim
