// SPDX-License-Identifier: BSD-3-Clause
// The clock on the processor at hand, and the nominal frequency and the calibration on processors made up here.
#include "service/clock.h"

#include "service/cpuid.h"
#include "tests/support/at_once.h"
#include "tests/support/in_child.h"
#include "tests/support/kernel_folder.h"

namespace {

using tev::service::processor;
using tev::test::printed;

uint32_t last_leaf = 0x80000008;
std::string brand_end;

class Clock : public testing::Test {
 protected:
  ~Clock() override { processor = real_; }

  // A processor whose brand string ends like this, in a system that describes it so.
  void be(const std::string& brand, const std::string& cpuinfo) {
    brand_end = brand;
    brand_end.resize(16);
    file_ = folder_.put("cpuinfo", cpuinfo);
    processor.cpuinfo = file_.c_str();
    processor.cpuid = [](uint32_t leaf, uint32_t, uint32_t registers[4]) {
      memset(registers, 0, 16);
      if (leaf == 0x80000000) registers[0] = last_leaf;
      if (leaf == 0x80000004) memcpy(registers, brand_end.data(), 16);
    };
  }

 private:
  const tev::service::processor_source real_ = processor;
  const tev::test::kernel_folder folder_;
  std::string file_;
};

// The first one: the other tests decide the frequency.
TEST_F(Clock, StoppedCounterFallsBackToTheNominalFrequency) {
  const auto calibrate = [this] {
    be("  2.50GHz", "");
    processor.time_stamp = [] { return uint64_t{1234}; };
    printf("%g ", tev_serv_get_clocks_frequency());
    be("  3.00GHz", "");
    printf("%g %g", tev_serv_get_clocks_frequency(), tev_serv_dsecnd() * 2.5e9);
  };
  EXPECT_EQ(printed({}, calibrate), "2.5 2.5 1234");
}

TEST_F(Clock, NominalFrequencyFromTheBrandString) {
  const std::pair<const char*, double> rows[] = {
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
  for (const auto& [brand, gigahertz] : rows) {
    be(brand, "cpu MHz\t\t: 1000.000\n");
    EXPECT_DOUBLE_EQ(tev_serv_get_max_cpu_frequency(), gigahertz) << '"' << brand << '"';
  }
  const auto shorter = [this] {
    be("  2.50GHz", "cpu MHz : 1000");
    last_leaf = 0x80000003;
    printf("%g", tev_serv_get_max_cpu_frequency());
  };
  EXPECT_EQ(printed({}, shorter), "1");
}

TEST_F(Clock, NominalFrequencyFromTheKernelElseMeasured) {
  const std::string flags = "flags : " + std::string(119, 'f') + "cpu MHz : 9.9\n";  // the name begins a piece of 127
  const double measured = tev_serv_get_cpu_frequency();
  const std::pair<std::string, double> rows[] = {
      {"processor : 0\n" + flags + "cpu MHz\t\t: 2596.096\ncpu MHz : 1\n", 2.596096},
      {"x cpu MHz : 5\ncpu MHz:1200", 1.2},
      {"cpu MHz : none\ncpu MHz : 1200\n", measured},
      {"cpu MHz : -5\n", measured},
      {"cpu MHz\n", measured},
      {"", measured},
  };
  for (const auto& [cpuinfo, gigahertz] : rows) {
    be("", cpuinfo);
    EXPECT_NEAR(tev_serv_get_max_cpu_frequency(), gigahertz, gigahertz == measured ? measured * 0.02 : 1e-12)
        << cpuinfo;
  }
  processor.cpuinfo = "/nonexistent";
  EXPECT_NEAR(tev_serv_get_max_cpu_frequency(), measured, measured * 0.02);
}

TEST_F(Clock, CalibrationRacedByThreadsGivesOneValueThatFitsTheMonotonicClock) {
  const auto seconds = [] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  };
  std::vector<double> frequencies(8);
  const double begin = seconds();
  tev::test::at_once(8, [&](int t) { frequencies[t] = tev_serv_get_clocks_frequency(); });
  EXPECT_LT(seconds() - begin, 2.0) << "the threads calibrated one after another";
  EXPECT_EQ(frequencies, std::vector<double>(8, frequencies[0]));

  const double from = seconds(), clock_from = tev_serv_dsecnd();
  for (double last = clock_from, now; seconds() - from < 0.5; last = now) ASSERT_GE(now = tev_serv_dsecnd(), last);
  const double elapsed = seconds() - from;
  EXPECT_NEAR(tev_serv_dsecnd() - clock_from, elapsed, elapsed * 0.02);
  EXPECT_NEAR(tev_serv_second(), tev_serv_dsecnd(), 1.0 + tev_serv_dsecnd() * 1e-6);
  EXPECT_NEAR(tev_serv_get_cpu_frequency(), frequencies[0], frequencies[0] * 0.02);
  tev_serv_get_cpu_clocks(nullptr);
}

}  // namespace
