// SPDX-License-Identifier: BSD-3-Clause
#include "contest/libraries.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

namespace tev::contest {

namespace {

constexpr instruction_set kPrescott = {"Prescott", "penryn", "5", nullptr};
constexpr instruction_set kCore2 = {"Core2", "penryn", "5", nullptr};
constexpr instruction_set kNehalem = {"Nehalem", "penryn", "5", nullptr};
constexpr instruction_set kSandybridge = {"Sandybridge", "sandybridge", "4", "snb"};
constexpr instruction_set kHaswell = {"Haswell", "haswell", "3", "hsw"};
constexpr instruction_set kSkylake = {"SkylakeX", "skx", "0", "skx"};

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

// The distribution has each library in several flavours, of which not all may be installed; "": none of them.
std::string installed(const std::string& library, const std::string& file, bool threaded) {
  for (const char* flavour : {"serial", "pthread", "openmp"}) {
    const std::string path = "/usr/lib/x86_64-linux-gnu/" + library + "-" + flavour + "/" + file;
    if ((flavour != std::string("serial") || !threaded) && std::filesystem::exists(path)) return path;
  }
  return "";
}

}  // namespace

bool is_tier(const std::string& name) { return find_tier(name) != nullptr; }

const std::vector<instruction_set>& instruction_sets(const std::string& tier) { return find_tier(tier)->peers; }

environment own_variables(const std::string& tier) {
  const tier_row& row = *find_tier(tier);
  environment variables = {{"TEV_DEBUG_CPU_TYPE", row.type_code}};
  if (row.mode) variables.emplace_back("TEV_CBWR", row.mode);
  return variables;
}

std::vector<library> installed_peers(const instruction_set& set, bool threaded) {
  std::vector<library> all = {
      {std::string("OpenBLAS ") + set.openblas,
       installed("openblas", "libopenblas.so.0", threaded),
       {{"OPENBLAS_CORETYPE", set.openblas}}},
      {std::string("BLIS ") + set.blis,
       installed("blis", "libblis.so.4", threaded),
       {{"BLIS_ARCH_TYPE", set.blis_number}}},
  };
  std::erase_if(all, [](const library& l) { return l.path.empty(); });
  return all;
}

std::unique_ptr<contestant> invite(const library& l, const discipline& d, const std::string& program) {
  std::vector<std::string> arguments = {"library", l.path, d.op->name, std::string(1, d.precision)};
  if (d.threads > 1) arguments.push_back("threaded");
  environment variables = own_variables(d.tier);
  for (const char* variable : {"OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "BLIS_NUM_THREADS", "TEV_NUM_THREADS"})
    variables.emplace_back(variable, std::to_string(d.threads));
  variables.insert(variables.end(), l.variables.begin(), l.variables.end());
  return std::make_unique<contestant>(l.name, arguments, variables, program);
}

}  // namespace tev::contest
