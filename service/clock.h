// SPDX-License-Identifier: BSD-3-Clause
// The wall clock: the processor's time-stamp counter, divided by a frequency that is calibrated once per process.
// Frequencies are in GHz. The first call that needs the frequency waits for the next whole second of the calendar
// clock (up to one second); threads that call meanwhile wait with it.
#pragma once

#include <cstdint>

extern "C" {

// Serialises the processor and reads the counter; `clocks` may be null.
void tev_serv_get_cpu_clocks(uint64_t* clocks);

// Seconds since the counter started.
double tev_serv_dsecnd(void);
float tev_serv_second(void);

// Frequency of the counter: calibrates on the first call and returns the same value ever after.
double tev_serv_get_clocks_frequency(void);

// Nominal frequency: from the processor's brand string, else from the kernel, else measured.
double tev_serv_get_max_cpu_frequency(void);

// Frequency of the counter, measured afresh in 10 ms.
double tev_serv_get_cpu_frequency(void);

}  // extern "C"
