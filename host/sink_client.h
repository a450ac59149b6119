// SPDX-License-Identifier: BSD-3-Clause
// A running sink as the host tool uses it: started and initialised, its threads set, its timer already calibrated.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/worker_call.h"
#include "tev/request.h"
#include "vro/host.h"

namespace tev::host {

struct sink_settings {
  std::string executable;
  std::string library_path;    // put before the sink's LD_LIBRARY_PATH; may be empty
  int threads = 0;             // size of the team; 0 leaves it to the sink
  std::vector<int> pin;        // processors for the team's threads, ascending, from 1; empty: no pinning
  std::string processor_type;  // TEV_DEBUG_CPU_TYPE of the sink (host/tier.h); empty: as in this process
  bool trust_features = true;  // vouch for the sink's processor, so that its features alone decide which kernels run
};

struct buffer_deleter {
  void operator()(vro_buffer* buffer) const { vro_buffer_destroy(buffer); }
};

// Must end before its sink_client does.
using shared_buffer = std::unique_ptr<vro_buffer, buffer_deleter>;

// Called about ten times a second while a request is under way, with the seconds since its start.
using tick = std::function<void(double)>;

class sink_client {
 public:
  explicit sink_client(const sink_settings& settings);
  sink_client(const sink_client&) = delete;
  sink_client& operator=(const sink_client&) = delete;
  ~sink_client();

  const std::string& executable() const { return settings_.executable; }

  // Zeroed memory that the sink sees, too.
  shared_buffer make_buffer(int64_t bytes);

  // Runs a worker on the buffers. The record is replaced by what the worker left of it. Returns the seconds that passed
  // from the request to its completion.
  double invoke(const std::string& worker, void* record, size_t record_bytes, const std::vector<vro_buffer*>& buffers,
                int post_mode, const tick& on_tick = {});
  double invoke(const worker_call& call, const std::vector<buffer_part>& parts, int post_mode, const tick& on_tick);

  // Seconds that the sink spent in requests that were posted.
  double busy_seconds();

  // What the sink tells of itself, in its order: threads, tier, caches ...
  std::vector<std::pair<std::string, std::string>> report();

  // Lets the sink end and throws unless it did so in good order. No buffer may be left.
  void shut_down();

 private:
  void call(const char* function, size_t result_length);
  void prepare_invoke(const std::string& worker, const void* record, size_t record_bytes, int post_mode);
  void check(const std::vector<vro_buffer*>& buffers) const;  // of the request: what a sink would not notice
  double send(const std::vector<vro_buffer*>& buffers, size_t result_length, const tick& on_tick);
  void start();
  void trust_features();
  void initialise();
  void apply_threads();
  void apply_pinning(tev_invoke_request* request) const;

  struct process_deleter {
    void operator()(vro_process* process) const;
  };
  struct completion_deleter {
    void operator()(vro_completion* completion) const { vro_completion_release(completion); }
  };

  sink_settings settings_;
  std::unique_ptr<vro_process, process_deleter> process_;
  std::unique_ptr<tev_card_request> request_;                   // the one being built
  std::unique_ptr<vro_completion, completion_deleter> answer_;  // the last one that was done
};

}  // namespace tev::host
