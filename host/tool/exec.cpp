// SPDX-License-Identifier: BSD-3-Clause
// tev-offload exec: a program whose BLAS is libtevblas, with its settings.
#include <dlfcn.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "host/failure.h"
#include "host/tool/options.h"
#include "host/tool/places.h"

namespace tev::host::tool {
namespace {

constexpr char kLibrary[] = "libtevblas.so.0";

// Only a library that opens is preloaded: the loader would merely warn, and the program run on the BLAS that it has.
std::string library_path() {
  const std::string path = library_folder() + "/" + kLibrary;
  if (path.find_first_of(" :") != std::string::npos)
    throw bad_input(fmt::format("{}: cannot be preloaded from a folder with blanks or colons in its name", path));
  if (dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL) == nullptr) throw failed(dlerror());
  return path;
}

void set(const char* name, const std::string& value) {
  if (!value.empty()) setenv(name, value.c_str(), 1);
}

void check_number(const char* option, const std::string& text, bool may_be_zero) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (!text.empty() && (*end != '\0' || !(may_be_zero ? number >= 0 : number > 0) || !std::isfinite(number)))
    throw bad_input(fmt::format("{} '{}': must be a number {} 0", option, text, may_be_zero ? "from" : "above"));
}

void check_sink(const std::string& path) {
  if (access(path.c_str(), X_OK) != 0)
    throw bad_input(fmt::format("{}: cannot be started as sink: {}", path, std::strerror(errno)));
}

}  // namespace

int exec_program(const command_line& line) {
  const exec_options& options = line.exec;
  if (options.program.empty()) throw bad_input("no program is given (see exec --help)");
  check_number("--threshold", options.threshold, true);
  check_number("--timeout", options.timeout, false);
  const std::string sink = resolve(line.sink).executable;
  if (options.offload != "never") check_sink(sink);
  const char* const others = std::getenv("LD_PRELOAD");
  set("LD_PRELOAD", library_path() + (others != nullptr ? ":" + std::string(others) : ""));
  set("TEVBLAS_OFFLOAD", options.offload);
  set("TEVBLAS_SINK", sink);
  set("TEVBLAS_SINK_THREADS", line.sink.threads > 0 ? std::to_string(line.sink.threads) : "");
  set("TEVBLAS_THRESHOLD", options.threshold);
  set("TEVBLAS_TIMEOUT", options.timeout);
  set("TEVBLAS_TRACE", options.trace);
  std::vector<char*> arguments;
  for (const std::string& word : options.program) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  std::signal(SIGPIPE, SIG_DFL);  // which this tool ignores
  std::signal(SIGXFSZ, SIG_DFL);
  execvp(arguments[0], arguments.data());
  throw bad_input(fmt::format("{}: {}", options.program[0], std::strerror(errno)));
}

}  // namespace tev::host::tool
