// SPDX-License-Identifier: BSD-3-Clause
// What ran when, in the trace-event format that ui.perfetto.dev opens: this process as one group of tracks (the phases
// of the command, then a track for each thread), the sink as another one.
#pragma once

#include <string>

#include "host/linear_system.h"

namespace tev::host::tool {

// Whole, or not at all.
void write_timeline(const std::string& path, const system_outcome& o);

}  // namespace tev::host::tool
