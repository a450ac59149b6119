// SPDX-License-Identifier: BSD-3-Clause
// The start of the OpenMP runtime in a process that gets its settings by request: nothing of the runtime may start, or
// read the environment, before a request has had its say.
#pragma once

// Takes out of the environment, before anything of the runtime runs, what would start it at once, and every value with
// which it does not start: it aborts on some (OMP_NUM_THREADS=''). Says on standard error what was dropped.
void clean_openmp_environment();

// Takes the settings' thread binding into the environment, for a runtime that has not started yet.
void bind_from_the_start(const char* settings);

// The host may kill this process at any time.
void remove_openmp_name();
