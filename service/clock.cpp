// SPDX-License-Identifier: BSD-3-Clause
// Reading the time-stamp counter and finding out how fast it runs.
#include "service/clock.h"

#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "service/cpuid.h"
#include "service/layer_locks.h"
#include "service/lock.h"

using tev::service::processor;

namespace {

constinit std::atomic<double> counter_frequency = -1.0;  // GHz, once it is above 0

// The counter and a clock, read at the same time.
struct moment {
  uint64_t ticks;
  double seconds;  // since `origin`: a double cannot hold the nanoseconds of the epoch
};

double seconds_since(const timespec& origin, clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec - origin.tv_sec) + static_cast<double>(now.tv_nsec - origin.tv_nsec) * 1e-9;
}

// A thread may lose the processor between the two readings, so the clock is read between two readings of the counter,
// a few times, and the tightest attempt counts.
moment read_moment(const timespec& origin, clockid_t clock) {
  moment tightest = {};
  uint64_t least = UINT64_MAX;
  for (int attempt = 0; attempt < 8; ++attempt) {
    const uint64_t before = processor.time_stamp();
    const double seconds = seconds_since(origin, clock);
    const uint64_t width = processor.time_stamp() - before;
    if (width < least) {
      least = width;
      tightest = {before + width / 2, seconds};
    }
  }
  return tightest;
}

double calibrate() {
  const time_t second = time(nullptr);
  timespec origin;
  clock_gettime(CLOCK_REALTIME, &origin);
  const moment start = read_moment(origin, CLOCK_REALTIME);
  while (std::abs(difftime(time(nullptr), second)) < 0.005) {  // deliberate: waits for the next whole second
  }
  const moment end = read_moment(origin, CLOCK_REALTIME);
  const double elapsed = end.seconds - start.seconds;
  if (elapsed >= 0.0001 && end.ticks > start.ticks) {
    return static_cast<double>(end.ticks - start.ticks) / elapsed * 1e-9;
  }
  return tev_serv_get_max_cpu_frequency();
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// MHz written in the last 16 characters of the brand string, 0 when there is none.
//
//    c0 c1 c2 c3 M Hz
//    2  .  5  0  G Hz     2500
//    3  2  0  0  M Hz     3200; four digits are taken as MHz whatever the letter, deliberately
double brand_megahertz(const char* text) {
  for (int letter = 4; letter <= 13; ++letter) {
    const double unit = text[letter] == 'M' ? 1.0 : text[letter] == 'G' ? 1e3 : text[letter] == 'T' ? 1e6 : 0.0;
    if (unit == 0 || text[letter + 1] != 'H' || text[letter + 2] != 'z') {
      continue;
    }
    const char* c = text + letter - 4;
    const bool fraction = c[1] == '.';
    if (!is_digit(c[0]) || !(fraction || is_digit(c[1])) || !is_digit(c[2]) || !is_digit(c[3])) {
      return 0;
    }
    if (fraction) {
      return (c[0] - '0') * unit + (c[2] - '0') * unit / 10 + (c[3] - '0') * unit / 100;
    }
    return (c[0] - '0') * 1000 + (c[1] - '0') * 100 + (c[2] - '0') * 10 + (c[3] - '0');
  }
  return 0;
}

double brand_megahertz() {
  constexpr uint32_t kLastLeaf = 0x80000000, kBrandEnd = 0x80000004;
  uint32_t registers[4];
  processor.cpuid(kLastLeaf, 0, registers);
  if (registers[0] < kBrandEnd) {
    return 0;
  }
  processor.cpuid(kBrandEnd, 0, registers);
  char text[sizeof registers];
  memcpy(text, registers, sizeof text);
  return brand_megahertz(text);
}

// The number behind the colon of a "cpu MHz" line, whatever the locale.
double number_after_colon(const char* line) {
  const char* colon = strchr(line, ':');
  if (colon == nullptr) {
    return 0;
  }
  const char* first = colon + 1;
  while (*first == ' ' || *first == '\t') {
    ++first;
  }
  double number = 0;
  std::from_chars(first, first + strlen(first), number);
  return number;
}

double cpuinfo_megahertz() {
  FILE* file = fopen(processor.cpuinfo, "re");
  if (file == nullptr) {
    return 0;
  }
  double found = 0;
  char piece[128];  // a long line comes in pieces; only its first can name the field
  bool line_begins = true;
  while (fgets(piece, sizeof piece, file) != nullptr) {
    if (line_begins && strncmp(piece, "cpu MHz", 7) == 0) {
      found = number_after_colon(piece);
      break;
    }
    line_begins = strchr(piece, '\n') != nullptr;
  }
  fclose(file);
  return found;
}

}  // namespace

extern "C" {

void tev_serv_get_cpu_clocks(uint64_t* clocks) {
  uint32_t ignored[4];
  processor.cpuid(0, 0, ignored);
  const uint64_t now = processor.time_stamp();
  if (clocks != nullptr) {
    *clocks = now;
  }
}

double tev_serv_dsecnd(void) {
  const double frequency = tev_serv_get_clocks_frequency();
  uint64_t clocks;
  tev_serv_get_cpu_clocks(&clocks);
  return static_cast<double>(clocks) / (frequency * 1e9);
}

float tev_serv_second(void) { return static_cast<float>(tev_serv_dsecnd()); }

double tev_serv_get_clocks_frequency(void) {
  if (counter_frequency.load(std::memory_order_relaxed) < 0) {
    const tev::service::scoped_lock guard(tev::service::calibration_lock);
    if (counter_frequency.load(std::memory_order_relaxed) < 0) {
      counter_frequency.store(calibrate(), std::memory_order_relaxed);
    }
  }
  return counter_frequency.load(std::memory_order_relaxed);
}

double tev_serv_get_max_cpu_frequency(void) {
  double megahertz = brand_megahertz();
  if (!(megahertz > 0)) {
    megahertz = cpuinfo_megahertz();
  }
  return megahertz > 0 ? megahertz * 0.001 : tev_serv_get_cpu_frequency();
}

double tev_serv_get_cpu_frequency(void) {
  timespec origin;
  clock_gettime(CLOCK_MONOTONIC, &origin);
  const moment start = read_moment(origin, CLOCK_MONOTONIC);
  while (seconds_since(origin, CLOCK_MONOTONIC) < 0.010) {
  }
  const moment end = read_moment(origin, CLOCK_MONOTONIC);
  return static_cast<double>(end.ticks - start.ticks) / (end.seconds - start.seconds) * 1e-9;
}

}  // extern "C"
