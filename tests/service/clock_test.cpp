// SPDX-License-Identifier: BSD-3-Clause
// The clock on the processor at hand, and the nominal frequency and the calibration on processors made up here.
// What is decided once per process is tested in a child that starts anew.
#include "service/clock.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "service/cpuid.h"

namespace {

using tev::service::processor;

uint32_t last_leaf;
char brand_end[17];

void made_up_cpuid(uint32_t leaf, uint32_t, uint32_t registers[4]) {
  memset(registers, 0, 16);
  if (leaf == 0x80000000) registers[0] = last_leaf;
  if (leaf == 0x80000004) memcpy(registers, brand_end, 16);
}

uint64_t stopped_counter() { return 1234; }

double seconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class Clock : public testing::Test {
 protected:
  void SetUp() override { last_leaf = 0x80000008; }
  void TearDown() override {
    processor = real_;
    if (!file_.empty()) remove(file_.c_str());
  }

  void be_processor(const char* brand, const char* cpuinfo) {
    memset(brand_end, 0, sizeof brand_end);
    snprintf(brand_end, sizeof brand_end, "%s", brand);
    file_ = testing::TempDir() + "cpuinfo." + std::to_string(getpid());
    FILE* file = fopen(file_.c_str(), "w");
    ASSERT_NE(file, nullptr);
    fputs(cpuinfo, file);
    fclose(file);
    processor.cpuid = made_up_cpuid;
    processor.cpuinfo = file_.c_str();
  }

  const tev::service::processor_source real_ = processor;
  std::string file_;
};

TEST_F(Clock, NominalFrequencyFromTheBrandString) {
  const char* const kernel = "cpu MHz\t\t: 1000.000\n";
  const struct {
    const char* brand;
    double gigahertz;
  } rows[] = {
      {"U @ 2.60GHz", 2.6},        // as the makers write it, NUL-padded
      {" 0 @ 3.07GHz   ", 3.07},   //
      {"2.50GHz", 2.5},            // letter at the first position looked at
      {"         1.25GHz", 1.25},  // and at the last
      {"          1.5GHz", 1.0},   // behind it
      {"5GHz 2.50GHz", 2.5},       // too early, then right
      {"  3200MHz", 3.2},          //
      {"  3200GHz", 3.2},          // four digits are MHz whatever the letter
      {"  2.00THz", 2000.0},       //
      {"  3.25MHz", 0.00325},      //
      {"  0000MHz", 1.0},          // from here on the kernel's number
      {"    800MHz", 1.0},        {"  12a0MHz", 1.0}, {"  x.50GHz", 1.0}, {"  2.x0GHz", 1.0},
      {"  2.50KHz", 1.0},         {"  2.50Ghz", 1.0}, {"", 1.0},
  };
  for (const auto& row : rows) {
    ASSERT_NO_FATAL_FAILURE(be_processor(row.brand, kernel));
    EXPECT_DOUBLE_EQ(tev_serv_get_max_cpu_frequency(), row.gigahertz) << '"' << row.brand << '"';
  }
  ASSERT_NO_FATAL_FAILURE(be_processor("  2.50GHz", kernel));
  last_leaf = 0x80000003;
  EXPECT_DOUBLE_EQ(tev_serv_get_max_cpu_frequency(), 1.0);
}

TEST_F(Clock, NominalFrequencyFromTheKernelElseMeasured) {
  const std::string flags = "flags : " + std::string(119, 'f') + "cpu MHz : 9.9\n";  // the name begins a piece of 127
  const double measured = tev_serv_get_cpu_frequency();
  const struct {
    std::string cpuinfo;
    double gigahertz;
  } rows[] = {
      {"processor : 0\n" + flags + "cpu MHz\t\t: 2596.096\ncpu MHz : 1\n", 2.596096},
      {"x cpu MHz : 5\ncpu MHz:1200", 1.2},
      {"cpu MHz : none\ncpu MHz : 1200\n", measured},
      {"cpu MHz : -5\n", measured},
      {"cpu MHz\n", measured},
      {"", measured},
  };
  for (const auto& row : rows) {
    ASSERT_NO_FATAL_FAILURE(be_processor("", row.cpuinfo.c_str()));
    EXPECT_NEAR(tev_serv_get_max_cpu_frequency(), row.gigahertz, row.gigahertz == measured ? measured * 0.02 : 1e-12)
        << row.cpuinfo;
  }
  processor.cpuinfo = "/nonexistent";
  EXPECT_NEAR(tev_serv_get_max_cpu_frequency(), measured, measured * 0.02);
}

TEST_F(Clock, CalibrationRacedByThreadsGivesOneValueThatFitsTheMonotonicClock) {
  std::vector<double> frequencies(8);
  const double begin = seconds();
  std::vector<std::thread> threads;
  for (double& frequency : frequencies)
    threads.emplace_back([&frequency] { frequency = tev_serv_get_clocks_frequency(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_LT(seconds() - begin, 2.0) << "the threads calibrated one after another";
  for (double frequency : frequencies) EXPECT_EQ(frequency, frequencies[0]);

  const double from = seconds(), clock_from = tev_serv_dsecnd();
  double last = clock_from;
  while (seconds() - from < 0.5) {
    const double now = tev_serv_dsecnd();
    ASSERT_GE(now, last);
    last = now;
  }
  const double elapsed = seconds() - from;
  EXPECT_NEAR(tev_serv_dsecnd() - clock_from, elapsed, elapsed * 0.02);
  EXPECT_NEAR(tev_serv_second(), tev_serv_dsecnd(), 1.0 + tev_serv_dsecnd() * 1e-6);
  EXPECT_NEAR(tev_serv_get_cpu_frequency(), frequencies[0], frequencies[0] * 0.02);
  tev_serv_get_cpu_clocks(nullptr);
}

TEST_F(Clock, StoppedCounterFallsBackToTheNominalFrequency) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto calibrate = [this] {
    be_processor("  2.50GHz", "");
    processor.time_stamp = stopped_counter;
    const double first = tev_serv_get_clocks_frequency();
    be_processor("  3.00GHz", "");
    remove(file_.c_str());
    _exit(first == 2.5 && tev_serv_get_clocks_frequency() == 2.5 && tev_serv_dsecnd() == 1234 / 2.5e9 ? 0 : 1);
  };
  EXPECT_EXIT(calibrate(), testing::ExitedWithCode(0), "");
}

}  // namespace
