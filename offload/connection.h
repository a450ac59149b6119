// SPDX-License-Identifier: BSD-3-Clause
// A running sink and the requests that are under way. Once anything fails, the connection has ended: requests do
// nothing, waits return at once, and error() tells what happened.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tev/request.h"
#include "vro/host.h"

namespace tev::offload {

struct connection_options {
  std::string sink, library_path;
  int32_t threads;
  bool trust_features;
  bool detached = false;  // the sink is no child of this process
  int patience_ms = -1;   // a sink that does not answer for so long is ended; below 0: never
};

// What an invoke request says. Operands are addresses in memory of the connection.
struct step_request {
  std::string worker;
  uint32_t parameter;
  std::vector<unsigned char> record;
  std::vector<const void*> operands;
};

class connection {
 public:
  explicit connection(const connection_options& options);
  connection(const connection&) = delete;
  connection& operator=(const connection&) = delete;
  ~connection();

  bool has_ended() const { return !error_.empty(); }
  const std::string& error() const { return error_; }

  void* allocate(size_t bytes);
  void release(void* memory);
  bool holds(const void* address) const { return buffer_of(address) != buffers_.end(); }

  // From now on.
  void set_patience(int milliseconds) { patience_ms_ = milliseconds; }

  // Requests run one after the other; the number names one of them. Sending may wait for room.
  int64_t send(const step_request& step);
  // Without waiting; true also when the connection has ended.
  bool is_done(int64_t number);
  void wait_for(int64_t number);
  void wait_for_oldest();
  void wait_for_all();
  double busy_seconds();
  // The same at the end of what was requested so far; told by whoever notices the answer.
  void ask_busy_seconds(std::function<void(double)> told);

 private:
  struct process_deleter {
    void operator()(vro_process* process) const;
  };
  struct completion_deleter {
    void operator()(vro_completion* completion) const { vro_completion_release(completion); }
  };
  struct request {
    std::unique_ptr<vro_completion, completion_deleter> completion;
    std::function<void(double)> busy_told;  // of a question for the busy time; else empty
  };
  using buffer_map = std::map<const char*, vro_buffer*>;  // by address

  buffer_map::const_iterator buffer_of(const void* address) const;
  bool start(const connection_options& options);
  bool set_up(const connection_options& options);
  int64_t send_block(const std::vector<vro_buffer*>& buffers, size_t result_bytes);
  template <class Record>
  void ask(const char* worker, Record* record);
  int64_t send_question(const char* worker, const void* record, size_t bytes);
  template <class Record>
  Record answer() const;
  int64_t under_way();
  bool take_oldest(int timeout_ms);
  void fail(const char* why) noexcept;

  std::unique_ptr<vro_process, process_deleter> process_;
  buffer_map buffers_;
  std::unique_ptr<tev_card_request> block_;  // the one being built
  std::deque<request> waiting_;
  std::unique_ptr<vro_completion, completion_deleter> answer_;  // the last one that was done
  int64_t sent_ = 0;                                            // the number of the last one
  int patience_ms_;
  std::string error_;
};

}  // namespace tev::offload
