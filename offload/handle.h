// SPDX-License-Identifier: BSD-3-Clause
// What tev_offload_open makes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "offload/connection.h"
#include "offload/recorder.h"
#include "offload/sink_steps.h"

struct tev_offload {
  std::unique_ptr<tev::offload::connection> sink;  // null: there is none
  tev::offload::core_division cores;
  int32_t own_threads;  // of a call without a sink; 0: as the library has it
  bool finish_here;
  std::string error;
  std::vector<std::unique_ptr<char[]>> own_memory;  // where there is no sink
  tev::offload::recorder observer;

  bool uses_sink() const { return sink && !sink->has_ended(); }
};
