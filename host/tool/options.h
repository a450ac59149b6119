// SPDX-License-Identifier: BSD-3-Clause
// The command line as a record, and the functions that carry out what it asks for.
#pragma once

#include <string>
#include <vector>

#include "host/call.h"
#include "host/sink_client.h"

namespace tev::host::tool {

// As written; an empty text was not given.
struct sink_options {
  std::string sink, library_path;
  std::string tier = "auto";
  int threads = 0;
  std::string pin;
};

// What the environment of the program will say; empty: as it is.
struct exec_options {
  std::string offload = "auto", threshold, timeout, trace;
  std::vector<std::string> program;  // and its arguments
};

struct trace_options {
  std::string file, svg;
};

enum class tool_command { info, run, bench, demo, exec, trace, status, text_only };

struct command_line {
  tool_command command = tool_command::text_only;
  std::string text;  // text_only: help or version
  sink_options sink;
  bool json = false;
  call_request call;         // run; bench: what all rows share
  std::string sizes;         // bench
  std::string plot, report;  // bench: files for pictures; empty: none
  std::string program;       // status; empty: any
  exec_options exec;
  trace_options trace;
};

// Throws a bad_input() for what it does not understand.
command_line parse_command_line(int argc, char** argv);

// Finds the sink and its libraries where the options, the environment or the tool's own folder say.
sink_settings resolve(const sink_options& options);

// Each returns the program's exit status.
int show_info(const command_line& line);
int run_one(const command_line& line);
int run_bench(const command_line& line);
int run_demo(const command_line& line);
int exec_program(const command_line& line);  // in place of this one
int show_trace(const command_line& line);
int show_status(const command_line& line);

}  // namespace tev::host::tool
