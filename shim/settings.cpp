// SPDX-License-Identifier: BSD-3-Clause
#include "shim/settings.h"

#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "shim/thread_limit.h"

namespace tev::shim {

namespace {

constexpr double kThreshold = 1e6;  // flops: a product of order 79, microseconds
constexpr double kMostThreads = 1024, kMostSeconds = 1e6, kMostFlops = 1e300;

// From the library's folder: where it was built, and where it is installed.
constexpr const char* kSinks[] = {"../bin/tev_sink", "../../bin/tev_sink", "../libexec/tev_sink",
                                  "../../libexec/tev_sink", "../../../libexec/tev_sink"};
constinit char found_sink[PATH_MAX] = "";

// Null where it is empty, too; and in programs that run with more rights than their user.
const char* value_of(const char* name) {
  const char* const value = secure_getenv(name);
  return value && *value ? value : nullptr;
}

void complain(const char* name, const char* value, const char* expected) {
  std::fprintf(stderr, "libtevblas: %s=%s: expected %s; ignored\n", name, value, expected);
}

double number_of(const char* name, double least, double most, double otherwise, const char* expected) {
  const char* const value = value_of(name);
  if (!value) return otherwise;
  char* end;
  const double number = std::strtod(value, &end);
  if (end != value && *end == '\0' && number >= least && number <= most) return number;
  complain(name, value, expected);
  return otherwise;
}

const char* sink_from(const char* folder) {
  if (const char* const named = value_of("TEVBLAS_SINK")) return named;
  for (const char* place : kSinks) {
    std::snprintf(found_sink, sizeof found_sink, "%s%s", folder, place);
    if (*folder && access(found_sink, X_OK) == 0) break;
  }
  return found_sink;
}

const char* mode() {
  const char* const value = value_of("TEVBLAS_OFFLOAD");
  return value ? value : "never";
}

}  // namespace

bool may_offload() { return std::strcmp(mode(), "always") == 0 || std::strcmp(mode(), "auto") == 0; }

void check_settings() {
  if (!may_offload() && std::strcmp(mode(), "never") != 0) complain("TEVBLAS_OFFLOAD", mode(), "never, always or auto");
}

tev_routing offload_settings(const char* folder) {
  const double sink_threads =
      number_of("TEVBLAS_SINK_THREADS", 1, kMostThreads, processors_of_rank(), "a number of threads");
  return {.sink = sink_from(folder),
          .sink_threads = static_cast<int32_t>(sink_threads),
          .host_threads = threads_of_rank(),
          .only_if_faster = std::strcmp(mode(), "auto") == 0,
          .threshold = number_of("TEVBLAS_THRESHOLD", 0, kMostFlops, kThreshold, "floating-point operations"),
          .timeout = number_of("TEVBLAS_TIMEOUT", 0, kMostSeconds, 0, "seconds")};
}

}  // namespace tev::shim
