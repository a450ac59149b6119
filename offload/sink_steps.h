// SPDX-License-Identifier: BSD-3-Clause
// Steps of which a sink takes a share. The calling thread factors the panels and updates the blocks next to them, the
// sink the blocks to the right:
//
//   panel 3     | . . . F | h h h | s s s s s |      F  being factored, or to be
//   panel 4     | . . . . F | h h | s s s s s |      h  updated here      s  by the sink
//   panel 5     | . . . . . F | h h | s s s s |
//
// The border moves to the right as the matrix shrinks, so that both sides end at the same time; a block that will cross
// it comes first in the sink's line. The border depends on sizes and numbers of threads only. What is to be done here
// waits until it is needed, the leftmost blocks first, or until the sink has enough to do.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "factorizations/steps.h"
#include "offload/connection.h"

namespace tev::offload {

using lapack::span;

// Of the blocks beyond a panel the first one that belongs to the sink. A panel takes about as long as the update of one
// block; where the blocks form a triangle, the first ones are the longest.
inline int64_t border(int64_t panel, int64_t blocks, int64_t sink_threads, bool is_triangular) {
  const auto beyond = static_cast<double>(blocks - panel - 1);
  if (beyond < 1) return panel + 1;
  const double share = std::max(0.0, ((beyond + 1) / static_cast<double>(sink_threads + 1) - 1) / beyond);
  const double here = beyond * (is_triangular ? 1 - std::sqrt(1 - share) : share);
  return panel + 1 + std::max<int64_t>(std::llround(here), 1);
}

// Factorization: as for team_steps. Requests: one of offload/requests.h.
template <class Factorization, class Requests>
class sink_steps final : public lapack::steps {
 public:
  sink_steps(connection& sink, int64_t sink_threads, Factorization& what, const Requests& requests, int64_t panels,
             int64_t blocks)
      : sink_(sink), sink_threads_(sink_threads), what_(what), requests_(requests), panels_(panels), blocks_(blocks) {
    lines_.resize(static_cast<size_t>(blocks));
  }

  void run() { run_with_lookahead(panels_, blocks_, *this); }

 private:
  // Before new requests: what is under way is work for about two panels.
  static constexpr int64_t kMostUnderWay = 4;

  struct line {
    std::vector<int64_t> panels;  // whose updates are to be done here, in this order
    size_t done = 0;              // of them
    int64_t request = 0;          // the last one that the sink has for the block

    bool is_empty() const { return done == panels.size(); }
  };

  bool factor(int64_t panel) override { return !sink_.has_ended() && what_.factor(panel); }

  void update(int64_t panel, span blocks) override {
    const int64_t first = std::clamp(border_of(panel), blocks.begin, blocks.end);
    const int64_t stays = std::clamp(border_of(panel + 1), first, blocks.end);
    for (int64_t b = blocks.begin; b < first; ++b) lines_[static_cast<size_t>(b)].panels.push_back(panel);
    send(panel, {first, stays});
    send(panel, {stays, blocks.end});
  }

  void wait_for(int64_t block) override {
    const line& own = lines_[static_cast<size_t>(block)];
    while (!sink_.has_ended() && !(own.is_empty() && sink_.is_done(own.request)))
      if (!update_one_here()) sink_.wait_for(own.request);
  }

  // What finishes the blocks at the end is done here.
  int64_t border_of(int64_t panel) const {
    return panel >= panels_ ? blocks_ : border(panel, blocks_, sink_threads_, Requests::kIsTriangular);
  }

  void send(int64_t panel, span blocks) {
    if (blocks.size() < 1) return;
    while (sink_.under_way() >= kMostUnderWay)
      if (!update_one_here()) sink_.wait_for_oldest();
    for (const step_request& request : requests_(panel, blocks)) {
      const int64_t number = sink_.send(request);
      for (int64_t b = blocks.begin; b < blocks.end; ++b) lines_[static_cast<size_t>(b)].request = number;
    }
  }

  // False: there is nothing that can be done at present.
  bool update_one_here() {
    for (int64_t b = 0; b < blocks_; ++b) {
      line& own = lines_[static_cast<size_t>(b)];
      if (own.is_empty() || !sink_.is_done(own.request)) continue;
      what_.update(own.panels[own.done++], {b, b + 1});
      return true;
    }
    return false;
  }

  connection& sink_;
  const int64_t sink_threads_;
  Factorization& what_;
  const Requests requests_;
  const int64_t panels_, blocks_;
  std::vector<line> lines_;
};

}  // namespace tev::offload
