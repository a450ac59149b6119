// SPDX-License-Identifier: BSD-3-Clause
// The tool's entry: whatever goes wrong becomes one line and an exit status.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

#include "host/failure.h"
#include "host/tool/options.h"
#include "host/tool/output.h"

namespace {

using namespace tev::host;

// A closed standard descriptor would be given to the next file that is opened, which then received our output.
// Opened in the wrong direction, it reports an error instead.
void occupy_standard_descriptors() {
  constexpr int kFlags[] = {O_WRONLY, O_RDONLY, O_WRONLY};
  for (int descriptor = 0; descriptor <= 2; ++descriptor)
    if (fcntl(descriptor, F_GETFD) < 0) (void)!open("/dev/null", kFlags[descriptor]);
}

int run(int argc, char** argv) {
  const tool::command_line line = tool::parse_command_line(argc, argv);
  switch (line.command) {
    case tool::tool_command::info:
      return tool::show_info(line);
    case tool::tool_command::run:
      return tool::run_one(line);
    case tool::tool_command::bench:
      return tool::run_bench(line);
    case tool::tool_command::demo:
      return tool::run_demo(line);
    case tool::tool_command::exec:
      return tool::exec_program(line);
    case tool::tool_command::trace:
      return tool::show_trace(line);
    case tool::tool_command::status:
      return tool::show_status(line);
    default:
      tool::put(line.text);
      return kSuccess;
  }
}

// One line, whatever bytes a file's name or header brought into it.
int complain(std::string text, int status) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
  std::fputs(("tev-offload: " + text + "\n").c_str(), stderr);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  std::signal(SIGPIPE, SIG_IGN);  // a closed output is an error like others,
  std::signal(SIGXFSZ, SIG_IGN);  // and so is a file that may not become so large
  try {
    return run(argc, argv);
  } catch (const failure& e) {
    return complain(e.what(), e.status());
  } catch (const std::bad_alloc&) {
    return complain("not enough memory", kFailed);
  } catch (const std::exception& e) {
    return complain(e.what(), kFailed);
  }
}
