// SPDX-License-Identifier: BSD-3-Clause
// What the steps of a handle's factorizations tell: spans for a record, and how far they are.
#pragma once

#include <mutex>
#include <vector>

#include "factorizations/step_observer.h"
#include "tev/offload.h"

namespace tev::offload {

class recorder final : public lapack::step_observer {
 public:
  void set_progress(tev_offload_progress_fn* told, void* context) { told_ = told, context_ = context; }
  void set_recording(bool on);
  bool is_recording() const { return recording_; }
  bool has_listener() const { return recording_ || told_ != nullptr; }
  const std::vector<tev_offload_span>& spans() const { return spans_; }

  void begins(int64_t panels) override { panels_ = panels; }
  void saw(lapack::step_kind kind, int64_t thread, int64_t panel, lapack::span blocks, double begin) override;
  void reached(int64_t done, int64_t columns) override {
    if (told_ != nullptr) told_(context_, done, columns);
  }
  // Of the calling thread, until now.
  void saw_request(int64_t panel, const lapack::span& blocks, double begin);
  // That request's work: the sink was busy for so long.
  void saw_sink(int64_t panel, const lapack::span& blocks, double sent, double busy);

 private:
  void keep(const tev_offload_span& span);

  std::mutex lock_;
  std::vector<tev_offload_span> spans_;
  bool recording_ = false;
  tev_offload_progress_fn* told_ = nullptr;
  void* context_ = nullptr;
  int64_t panels_ = 0;
  double sink_free_ = 0;  // when its last request was over
};

// While it lives, the calling thread's factorizations are observed.
class observed_scope {
 public:
  explicit observed_scope(recorder& observer) {
    if (observer.has_listener()) lapack::observer_of_this_thread = &observer;
  }
  observed_scope(const observed_scope&) = delete;
  observed_scope& operator=(const observed_scope&) = delete;
  ~observed_scope() { lapack::observer_of_this_thread = nullptr; }
};

}  // namespace tev::offload
