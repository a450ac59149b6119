// SPDX-License-Identifier: BSD-3-Clause
// The tool's commands where the operation is a whole factorization or a system to be solved.
#pragma once

#include "host/linear_system.h"
#include "host/tool/options.h"
#include "host/tool/speeds.h"

namespace tev::host::tool {

// Returns the program's exit status.
int run_system(const command_line& line);

speed_table bench_systems(const command_line& line);

}  // namespace tev::host::tool
