// SPDX-License-Identifier: BSD-3-Clause
#include "bench/level3/peers.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace tev::bench {

namespace {

void add(std::vector<library>& all, const library& one) {
  if (std::none_of(all.begin(), all.end(), [&](const library& l) { return l.name == one.name; })) all.push_back(one);
}

void add_newer(std::vector<library>& all, const instruction_set& set, const options& o) {
  const std::string folder = TEV_NEWER_PEERS "/";
  if (!std::filesystem::exists(folder)) return;
  const auto name = [](const char* library, const char* shown) { return std::string(library) + " " + shown; };
  add(all,
      {name("newer OpenBLAS", set.openblas), folder + "libopenblas-new.so", {{"OPENBLAS_CORETYPE", set.openblas}}});
  add(all, {name("newer BLIS", set.blis), folder + "libblis-new.so", {{"BLIS_ARCH_TYPE", set.blis}}});
  if (set.xsmm && o.op->kind == shape::product && o.precision == 'd' && o.threads == 1)
    add(all, {name("LIBXSMM", set.xsmm), folder + "libxsmm-gemm.so", {{"LIBXSMM_TARGET", set.xsmm}}});
}

std::vector<library> default_peers(const options& o) {
  std::vector<library> all;
  for (const instruction_set& set : instruction_sets(o.tier)) {
    for (const library& peer : installed_peers(set, o.threads > 1)) add(all, peer);
    add_newer(all, set, o);
  }
  if (o.tier == "avx512_zel") all.push_back({"ours avx512", TEV_OURS, own_variables("avx512")});
  return all;
}

}  // namespace

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
  all.push_back(invite({"ours", TEV_OURS, {}}, o));
  if (!all[0]->is_ready()) std::exit(1);
  for (const library& peer : peers)
    if (auto one = invite(peer, o); one->is_ready()) all.push_back(std::move(one));
  return all;
}

std::unique_ptr<contestant> invite_own_product(const options& o) {
  discipline product = o;
  product.op = find_operation("gemm", o.precision);
  return invite({"our product", TEV_OURS, {}}, product);
}

}  // namespace tev::bench
