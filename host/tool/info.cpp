// SPDX-License-Identifier: BSD-3-Clause
// tev-offload info.
#include "host/tool/info.h"

#include <fstream>
#include <thread>

#include "host/tool/output.h"
#include "host/tool/report.h"

namespace tev::host::tool {
namespace {

std::string processor_name() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);)
    if (line.rfind("model name", 0) == 0)
      if (const size_t colon = line.find(": "); colon != line.npos) return line.substr(colon + 2);
  return "unknown processor";
}

}  // namespace

std::string fact(const std::vector<std::pair<std::string, std::string>>& report, const std::string& key) {
  for (const auto& [name, value] : report)
    if (name == key) return value;
  return "?";
}

facts ask(const sink_options& options) {
  sink_client sink(resolve(options));
  const facts f = {processor_name(), static_cast<int>(std::thread::hardware_concurrency()), sink.executable(),
                   sink.report(), sink.busy_seconds()};
  sink.shut_down();
  return f;
}

int show_info(const command_line& line) {
  const facts f = ask(line.sink);
  put(line.json ? info_json(f) : info_text(f));
  return 0;
}

}  // namespace tev::host::tool
