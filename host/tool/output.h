// SPDX-License-Identifier: BSD-3-Clause
// Standard output, with every error noticed.
#pragma once

#include <string>

namespace tev::host::tool {

// Writes and flushes; throws a failed() when the output is closed or full.
void put(const std::string& text);

}  // namespace tev::host::tool
