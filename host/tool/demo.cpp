// SPDX-License-Identifier: BSD-3-Clause
// tev-offload demo: everything once, in a few seconds.
#include <fmt/format.h>

#include "host/failure.h"
#include "host/offload.h"
#include "host/tool/options.h"
#include "host/tool/output.h"
#include "host/tool/progress_line.h"
#include "host/tool/report.h"

namespace tev::host::tool {
namespace {

// Shapes that no block size divides, and options that make the routines work for it.
std::vector<call_request> demo_calls() {
  std::vector<call_request> calls;
  for (const char* operation : {"gemm", "symm", "trmm", "trsm"})
    for (const char* letter : {"s", "d", "c", "z"}) {
      call_request request;
      request.operation = operation;
      request.precision = letter;
      request.m = 401;
      request.n = 303;
      request.alpha = "1.5";
      if (request.operation == "gemm") {
        request.k = 257;
        request.transb = "T";
        request.beta = "-0.5";
      } else {
        request.side = "R";
        request.uplo = "L";
      }
      request.check = true;
      calls.push_back(request);
    }
  return calls;
}

}  // namespace

int run_demo(const command_line& line) {
  int wrong = 0;
  {
    progress_line shown;
    sink_client sink(resolve(line.sink));
    const auto facts = sink.report();
    put(
        fmt::format("A sink runs at your service: {}, {} threads.\n"
                    "Each call goes to it, and the host computes the result again to check it.\n\n"
                    "call   size                   time   GFLOP/s  check\n",
                    sink.executable(), fact(facts, "threads")));
    for (const call_request& request : demo_calls()) {
      const call c = host::resolve(request);
      const outcome o = run_call(sink, c, [&](const std::string& text) { shown.show(text); });
      shown.clear();
      put(demo_row(c, o));
      wrong += o.check->passed ? 0 : 1;
    }
    put("\n");
    sink.shut_down();
  }
  command_line bench = line;
  bench.call.operation = "gemm";
  bench.call.repeat = 3;
  bench.sizes = "256,512,1000";
  run_bench(bench);
  put("\nNext: tev-offload run --help, tev-offload bench --help\n");
  if (wrong > 0) throw failed(fmt::format("{} of the checks failed", wrong));
  return 0;
}

}  // namespace tev::host::tool
