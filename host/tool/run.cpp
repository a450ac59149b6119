// SPDX-License-Identifier: BSD-3-Clause
// tev-offload run: one call.
#include "host/failure.h"
#include "host/offload.h"
#include "host/tool/options.h"
#include "host/tool/output.h"
#include "host/tool/progress_line.h"
#include "host/tool/report.h"
#include "host/tool/system.h"

namespace tev::host::tool {

int run_one(const command_line& line) {
  if (task_named(line.call.operation)) return run_system(line);
  const call c = host::resolve(line.call);
  progress_line shown;
  sink_client sink(resolve(line.sink));
  const outcome o = run_call(sink, c, [&](const std::string& text) { shown.show(text); });
  shown.clear();
  put(line.json ? run_json(c, o) : run_text(c, o));
  sink.shut_down();
  if (o.check && !o.check->passed)
    throw failed("the check failed: " + o.check->text + (c.out.empty() ? "" : "; " + c.out + " was not written"));
  return 0;
}

}  // namespace tev::host::tool
