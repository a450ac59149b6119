// SPDX-License-Identifier: BSD-3-Clause
#include "bench/level3/peers.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace tev::bench {

namespace {

// An instruction set in the words of the libraries. BLIS 0.9 takes a number: a name would count as 0.
struct instruction_set {
  const char* openblas;
  const char* blis;
  const char* blis_number;
  const char* xsmm;  // null: it generates no such code
};
constexpr instruction_set kPrescott = {"Prescott", "penryn", "5", nullptr};
constexpr instruction_set kCore2 = {"Core2", "penryn", "5", nullptr};
constexpr instruction_set kNehalem = {"Nehalem", "penryn", "5", nullptr};
constexpr instruction_set kSandybridge = {"Sandybridge", "sandybridge", "4", "snb"};
constexpr instruction_set kHaswell = {"Haswell", "haswell", "3", "hsw"};
constexpr instruction_set kSkylake = {"SkylakeX", "skx", "0", "skx"};

// Peers have no kernels for avx512_zel; avx512 is what it is measured against.
struct tier_row {
  const char* name;
  const char* type_code;  // TEV_DEBUG_CPU_TYPE
  const char* mode;       // TEV_CBWR; null: not set
  std::vector<instruction_set> peers;
};
const tier_row kTiers[] = {
    {"def", "0", nullptr, {kPrescott}},
    {"cnr_def", "0", "AUTO", {kPrescott}},
    {"mc", "2", nullptr, {kCore2, kPrescott}},
    {"mc3", "3", nullptr, {kNehalem, kCore2}},
    {"avx", "4", nullptr, {kSandybridge, kNehalem}},
    {"avx2", "5", nullptr, {kHaswell, kSandybridge}},
    {"avx512_zel", "6", nullptr, {}},
    {"avx512", "7", nullptr, {kSkylake, kHaswell}},
};

const tier_row* find_tier(const std::string& name) {
  const auto* row =
      std::find_if(std::begin(kTiers), std::end(kTiers), [&](const tier_row& t) { return t.name == name; });
  return row == std::end(kTiers) ? nullptr : row;
}

environment own_variables(const std::string& tier) {
  const tier_row& row = *find_tier(tier);
  environment variables = {{"TEV_DEBUG_CPU_TYPE", row.type_code}};
  if (row.mode) variables.emplace_back("TEV_CBWR", row.mode);
  return variables;
}

// The distribution has each library in several flavours, of which not all may be installed.
std::string installed(const std::string& library, const std::string& file, bool threaded) {
  std::string path;
  for (const char* flavour : {"serial", "pthread", "openmp"}) {
    path = "/usr/lib/x86_64-linux-gnu/" + library + "-" + flavour + "/" + file;
    if ((flavour != std::string("serial") || !threaded) && std::filesystem::exists(path)) break;
  }
  return path;
}

std::vector<library> default_peers(const options& o) {
  std::vector<library> all;
  const auto add = [&](const std::string& name, const std::string& path, const char* variable, const char* value,
                       const std::string& shown) {
    const std::string full = name + " " + shown;
    if (std::none_of(all.begin(), all.end(), [&](const library& l) { return l.name == full; }))
      all.push_back({full, path, {{variable, value}}});
  };
  const bool threaded = o.threads > 1, with_newer = std::filesystem::exists(TEV_NEWER_PEERS);
  const std::string newer = TEV_NEWER_PEERS "/";
  for (const instruction_set& set : find_tier(o.tier)->peers) {
    add("OpenBLAS", installed("openblas", "libopenblas.so.0", threaded), "OPENBLAS_CORETYPE", set.openblas,
        set.openblas);
    add("BLIS", installed("blis", "libblis.so.4", threaded), "BLIS_ARCH_TYPE", set.blis_number, set.blis);
    if (!with_newer) continue;
    add("newer OpenBLAS", newer + "libopenblas-new.so", "OPENBLAS_CORETYPE", set.openblas, set.openblas);
    add("newer BLIS", newer + "libblis-new.so", "BLIS_ARCH_TYPE", set.blis, set.blis);
    if (set.xsmm && o.op->kind == shape::product && o.precision == 'd' && !threaded)
      add("LIBXSMM", newer + "libxsmm-gemm.so", "LIBXSMM_TARGET", set.xsmm, set.xsmm);
  }
  if (o.tier == "avx512_zel") all.push_back({"ours avx512", TEV_OURS, own_variables("avx512")});
  return all;
}

std::unique_ptr<contestant> invite_one(const library& l, const char* op, const options& o) {
  std::vector<std::string> arguments = {"library", l.path, op, std::string(1, o.precision)};
  if (o.threads > 1) arguments.push_back("threaded");
  environment variables = own_variables(o.tier);
  for (const char* variable : {"OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "BLIS_NUM_THREADS", "TEV_NUM_THREADS"})
    variables.emplace_back(variable, std::to_string(o.threads));
  variables.insert(variables.end(), l.variables.begin(), l.variables.end());
  return std::make_unique<contestant>(l.name, arguments, variables);
}

}  // namespace

bool is_tier(const std::string& name) { return find_tier(name) != nullptr; }

std::optional<library> parse_peer(const std::string& text) {
  const size_t path = text.find('='), variables = text.find(':', path);
  if (path == std::string::npos || path == 0) return std::nullopt;
  library peer = {text.substr(0, path), text.substr(path + 1, variables - path - 1), {}};
  if (peer.path.empty()) return std::nullopt;
  if (variables == std::string::npos) return peer;
  for (const std::string& pair : split(text.substr(variables + 1), ',')) {
    const size_t equals = pair.find('=');
    if (equals == std::string::npos) return std::nullopt;
    peer.variables.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
  }
  return peer;
}

std::vector<std::unique_ptr<contestant>> invite(const options& o) {
  std::vector<library> peers;
  for (const std::string& text : o.peers) peers.push_back(*parse_peer(text));
  if (peers.empty()) peers = default_peers(o);
  std::vector<std::unique_ptr<contestant>> all;
  all.push_back(invite_one({"ours", TEV_OURS, {}}, o.op->name, o));
  if (!all[0]->is_ready()) std::exit(1);
  for (const library& peer : peers)
    if (auto one = invite_one(peer, o.op->name, o); one->is_ready()) all.push_back(std::move(one));
  return all;
}

std::unique_ptr<contestant> invite_own_product(const options& o) {
  return invite_one({"our product", TEV_OURS, {}}, "gemm", o);
}

}  // namespace tev::bench
