// SPDX-License-Identifier: BSD-3-Clause
// Square cases of the routine with its plainest letters, as the sink has computed them.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "contest/libraries.h"
#include "host/failure.h"
#include "host/tool/places.h"
#include "host/tool/speeds.h"

namespace tev::host::tool {
namespace {

using contestants = std::vector<std::unique_ptr<contest::contestant>>;

contest::level3_case square(const contest::operation& op, int64_t size) {
  const bool has_depth = op.kind == contest::shape::product || op.kind == contest::shape::rank_k;
  const char* const letters = op.kind == contest::shape::product     ? "NN"
                              : op.kind == contest::shape::symmetric ? "LU"
                              : op.kind == contest::shape::rank_k    ? "UN"
                                                                     : "LUNN";
  return {letters, size, size, has_depth ? size : 0, 0};
}

contestants invite(const contest::discipline& d, const std::string& program) {
  std::vector<contest::library> libraries = {{"libtevblas", library_folder() + "/libtevblas.so.0", {}}};
  const auto& sets = contest::instruction_sets(d.tier == "avx512_zel" ? "avx512" : d.tier);
  for (const contest::library& peer : contest::installed_peers(sets.front(), d.threads > 1)) libraries.push_back(peer);
  contestants all;
  for (const contest::library& l : libraries)
    if (auto one = contest::invite(l, d, program); one->is_ready()) all.push_back(std::move(one));
  return all;
}

// Seconds, the best of samples taken in turns; not a number for who cannot do it.
std::vector<double> best_samples(const contestants& all, const contest::level3_case& c, int repeat) {
  std::vector<double> best;
  for (const auto& one : all) best.push_back(one->prepare(c) ? INFINITY : NAN);
  for (int i = 0; i < repeat; ++i)
    for (size_t who = 0; who < all.size(); ++who)
      if (!std::isnan(best[who])) best[who] = std::min(best[who], all[who]->sample());
  return best;
}

void measure_peak(speed_table& table, const conditions& on, int repeat, const std::string& program) {
  contest::contestant peak("peak", {"peak", on.tier, table.name.substr(0, 1)}, {}, program);
  double seconds = INFINITY;
  for (int i = 0; i < 3 * repeat; ++i) seconds = std::min(seconds, peak.sample());
  if (seconds > 0) table.peak = on.threads / seconds / 1e9;
}

}  // namespace

void compare(speed_table& table, const conditions& on, int repeat, const progress& tell) {
  const std::string program = companion_program("tev_contestant");
  if (access(program.c_str(), X_OK) != 0) throw failed(program + ": is missing; libraries are measured by it");
  if (!contest::is_tier(on.tier)) return;
  if (table.unit == "GFLOP/s") measure_peak(table, on, repeat, program);
  const contest::operation* op = contest::find_operation(table.name.substr(1), table.name[0]);
  if (!op) return;
  const contestants all = invite({op, table.name[0], on.tier, on.threads}, program);
  for (const auto& one : all) table.libraries.push_back({one->name(), {}});
  for (const speed_row& row : table.rows) {
    tell(fmt::format("libraries beside it, size {}", row.size));
    const contest::level3_case c = square(*op, row.size);
    const std::vector<double> seconds = best_samples(all, c, repeat);
    for (size_t i = 0; i < all.size(); ++i)
      table.libraries[i].speeds.push_back(std::isfinite(seconds[i]) ? row.speed * row.seconds / seconds[i] : NAN);
  }
}

}  // namespace tev::host::tool
