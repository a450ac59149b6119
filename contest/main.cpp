// SPDX-License-Identifier: BSD-3-Clause
// tev_contestant --serve ARGUMENTS: the measured side, for programs that link libraries which others must not meet.
#include <cstdio>
#include <string_view>

#include "contest/serving.h"

int main(int argc, char** argv) {
  if (argc > 2 && argv[1] == std::string_view("--serve")) return tev::contest::serve({argv + 2, argv + argc});
  std::fputs("tev_contestant: is started by `tev-offload bench --plot`\n", stderr);
  return 2;
}
