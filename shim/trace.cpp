// SPDX-License-Identifier: BSD-3-Clause
#include "shim/trace.h"

#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "shim/library.h"
#include "shim/process_state.h"

namespace tev::shim {

constinit std::atomic<bool> tracing = true;

namespace {

constexpr double kBounds[] = {16, 64, 256, 1024, 4096};  // of the classes
constexpr const char* kClasses[] = {"1-16", "17-64", "65-256", "257-1024", "1025-4096", "4097-"};

// The file is opened for each line: a descriptor that is kept may be closed by the program and then be another file's.
bool write_line(const char* text, size_t length) {
  const char* const path = state_of_process().trace_file;
  const int file = *path ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666) : STDERR_FILENO;
  if (file < 0) return false;
  const bool done = write(file, text, length) == static_cast<ssize_t>(length);
  if (*path) close(file);
  return done;
}

__attribute__((format(printf, 1, 2))) void write_comment(const char* form, ...) {
  char text[256];
  va_list values;
  va_start(values, form);
  const int length = std::vsnprintf(text, sizeof text, form, values);
  va_end(values);
  write_line(text, std::min(static_cast<size_t>(length), sizeof text - 1));
}

int class_of(double volume, int sizes) {
  int found = 0;
  for (const double bound : kBounds) {
    double largest = 1;
    for (int i = 0; i < sizes; ++i) largest *= bound;
    found += volume > largest;
  }
  return found;
}

void count(const trace_row& call) {
  process_state& state = state_of_process();
  pthread_mutex_lock(&state.trace_lock);
  trace_row* const end = state.trace + state.trace_rows;
  trace_row* const own = std::find_if(state.trace, end, [&call](const trace_row& x) {
    return x.size == call.size && x.in_sink == call.in_sink && std::strcmp(x.routine, call.routine) == 0;
  });
  if (own != end) {
    own->calls += 1;
    own->flops += call.flops;
    own->seconds += call.seconds;
  } else if (state.trace_rows < kMostTraceRows) {
    state.trace[state.trace_rows++] = call;
  }
  pthread_mutex_unlock(&state.trace_lock);
}

void write_table(process_state& state) {
  trace_row* const end = state.trace + state.trace_rows;
  double seconds = 0;
  for (const trace_row* x = state.trace; x < end; ++x) seconds += x->seconds;
  std::sort(state.trace, end, [](const trace_row& x, const trace_row& y) { return x.seconds > y.seconds; });
  write_comment("# process %d: %.6f seconds in BLAS\n", getpid(), seconds);
  write_comment("# %-9s %-10s %-5s %10s %12s %12s %7s\n", "routine", "class", "where", "calls", "flops", "seconds",
                "share");
  for (const trace_row* x = state.trace; x < end; ++x)
    write_comment("# %-9s %-10s %-5s %10lld %12.4g %12.6f %5.1f %%\n", x->routine, kClasses[x->size],
                  x->in_sink ? "sink" : "here", static_cast<long long>(x->calls), x->flops, x->seconds,
                  seconds > 0 ? 100 * x->seconds / seconds : 0);
  state.trace_rows = 0;
}

// By the last of these libraries.
__attribute__((destructor)) void close_trace() {
  if (!opened.load(std::memory_order_acquire) || !tracing.load(std::memory_order_relaxed)) return;
  process_state& state = state_of_process();
  pthread_mutex_lock(&state.trace_lock);
  if (--state.traced_libraries == 0 && state.trace_rows > 0) write_table(state);
  pthread_mutex_unlock(&state.trace_lock);
}

double seconds_since(const timespec& start) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec - start.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec - start.tv_nsec);
}

bool took_sink() {
  const auto asked = library().routed_took_sink;
  return asked && asked() != 0;
}

// The program may change its folder.
bool make_absolute(const char* name, char (&path)[PATH_MAX]) {
  char folder[PATH_MAX] = "";
  const bool relative = *name != '/';
  if (relative && !getcwd(folder, sizeof folder)) return false;
  return std::snprintf(path, sizeof path, "%s%s%s", folder, relative ? "/" : "", name) < PATH_MAX;
}

bool is_wanted(process_state& state) {
  const char* const name = secure_getenv("TEVBLAS_TRACE");
  if (!name || !*name) return false;
  if (std::strcmp(name, "stderr") == 0 || (make_absolute(name, state.trace_file) && write_line("", 0))) return true;
  std::fprintf(stderr, "libtevblas: TEVBLAS_TRACE=%s: cannot be written: %s\n", name, std::strerror(errno));
  return false;
}

}  // namespace

void open_trace() {
  process_state& state = state_of_process();
  pthread_mutex_lock(&state.trace_lock);
  if (!state.is_trace_decided) state.is_traced = is_wanted(state);
  state.is_trace_decided = true;
  ++state.traced_libraries;
  tracing.store(state.is_traced, std::memory_order_relaxed);
  pthread_mutex_unlock(&state.trace_lock);
}

void forget_calls_of_parent() {
  state_of_process().trace_lock = PTHREAD_MUTEX_INITIALIZER;
  state_of_process().trace_rows = 0;
}

trace_line::trace_line(const char* routine, double flops) : routine_(routine), flops_(std::max(flops, 0.0)) {
  add("%s", routine);
}

void trace_line::add(const char* form, ...) {
  va_list values;
  va_start(values, form);
  const int added = std::vsnprintf(text_ + length_, sizeof text_ - length_, form, values);
  va_end(values);
  length_ = std::min(length_ + static_cast<size_t>(added), sizeof text_ - 1);
}

void trace_line::note(const char* name, char letter) { add(" %s=%c", name, letter); }

void trace_line::note(const char* name, int64_t number) {
  add(" %s=%lld", name, static_cast<long long>(number));
  if (name[1] != '\0') return;
  volume_ *= static_cast<double>(std::max<int64_t>(number, 1));
  ++sizes_;
}

void trace_line::begin() {
  took_sink();  // whatever ran before
  clock_gettime(CLOCK_MONOTONIC, &start_);
}

trace_line::~trace_line() {
  const double seconds = seconds_since(start_);
  const bool in_sink = took_sink();
  const int size = class_of(volume_, sizes_);
  add(" flops=%.4g class=%s where=%s seconds=%.4g process=%d\n", flops_, kClasses[size], in_sink ? "sink" : "here",
      seconds, getpid());
  write_line(text_, length_);
  trace_row call = {.size = size, .in_sink = in_sink, .calls = 1, .flops = flops_, .seconds = seconds};
  std::snprintf(call.routine, sizeof call.routine, "%s", routine_);
  count(call);
}

}  // namespace tev::shim
