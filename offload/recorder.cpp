// SPDX-License-Identifier: BSD-3-Clause
#include "offload/recorder.h"

#include <algorithm>
#include <new>

namespace tev::offload {
namespace {

constexpr double kShortestWait = 20e-6;  // seconds; shorter ones are how threads meet

}  // namespace

void recorder::set_recording(bool on) {
  recording_ = on;
  spans_.clear();
}

// Without memory the record has a gap: a step is no place to fail.
void recorder::keep(const tev_offload_span& span) {
  if (!recording_) return;
  const std::lock_guard held(lock_);
  try {
    spans_.push_back(span);
  } catch (const std::bad_alloc&) {
  }
}

void recorder::saw(lapack::step_kind kind, int64_t thread, int64_t panel, lapack::span blocks, double begin) {
  using lapack::step_kind;
  const double end = lapack::clock_seconds();
  const int32_t what = kind == step_kind::panel    ? TEV_OFFLOAD_PANEL
                       : kind == step_kind::update ? TEV_OFFLOAD_UPDATE
                                                   : TEV_OFFLOAD_WAIT;
  if (kind != step_kind::wait || end - begin >= kShortestWait)
    keep({what, static_cast<int32_t>(thread), panel, blocks.begin, blocks.end, begin, end});
  if (kind == step_kind::panel && told_ != nullptr) told_(context_, panel + 1, panels_);
}

void recorder::saw_request(int64_t panel, const lapack::span& blocks, double begin) {
  keep({TEV_OFFLOAD_REQUEST, 0, panel, blocks.begin, blocks.end, begin, lapack::clock_seconds()});
}

// It began when it was there and the one before was over.
void recorder::saw_sink(int64_t panel, const lapack::span& blocks, double sent, double busy) {
  const double begin = std::max(sent, sink_free_);
  sink_free_ = begin + busy;
  keep({TEV_OFFLOAD_UPDATE, -1, panel, blocks.begin, blocks.end, begin, sink_free_});
}

}  // namespace tev::offload
