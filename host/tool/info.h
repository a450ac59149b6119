// SPDX-License-Identifier: BSD-3-Clause
// What host and sink are.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/tool/options.h"

namespace tev::host::tool {

struct facts {
  std::string processor;  // of the host
  int threads;            // processors of the host, as threads see them
  std::string sink;       // its executable
  std::vector<std::pair<std::string, std::string>> report;
  double busy_seconds;
};

// The value of a key in a sink's report, "?" when it has none.
std::string fact(const std::vector<std::pair<std::string, std::string>>& report, const std::string& key);

// Starts a sink for it.
facts ask(const sink_options& options);

}  // namespace tev::host::tool
