// SPDX-License-Identifier: BSD-3-Clause
#include "bench/level3/options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "bench/level3/peers.h"
#include "bench/level3/size_sets.h"

namespace tev::bench {

namespace {

[[noreturn]] void usage(const std::string& complaint) {
  std::fprintf(
      stderr,
      "level3: %s\n"
      "usage: level3 [--op gemm|symm|hemm|syrk|herk|syr2k|her2k|trmm|trsm] [--precision s|d|c|z] [--tier NAME]\n"
      "              [--set A,B] [--peer NAME=PATH[:VARIABLE=VALUE,...]]... [--threads N] [--rounds N]\n"
      "              [--summary] [--self] [--busy (with threads)]\n",
      complaint.c_str());
  std::exit(2);
}

}  // namespace

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

options parse(const std::vector<std::string>& arguments) {
  options o;
  std::string op = "gemm", precision = "d";
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--summary") {
      o.summary = true;
    } else if (option == "--busy") {
      o.busy = true;
    } else if (option == "--self") {
      o.self = true;
    } else if (i + 1 == arguments.size()) {
      usage(option + ": unknown, or lacks its value");
    } else {
      const std::string& value = arguments[++i];
      if (option == "--op")
        op = value;
      else if (option == "--precision")
        precision = value;
      else if (option == "--tier")
        o.tier = value;
      else if (option == "--set")
        o.sets = split(value, ',');
      else if (option == "--peer")
        o.peers.push_back(value);
      else if (option == "--threads")
        o.threads = std::max(1, std::atoi(value.c_str()));
      else if (option == "--rounds")
        o.rounds = std::max(1, std::atoi(value.c_str()));
      else
        usage(option + ": unknown");
    }
  }
  if (precision.size() != 1 || std::string("sdcz").find(precision) == std::string::npos)
    usage(precision + ": no precision");
  o.precision = precision[0];
  o.op = find_operation(op, o.precision);
  if (!o.op) usage(o.precision + op + ": no operation");
  if (!is_tier(o.tier)) usage(o.tier + ": no tier");
  const std::vector<std::string> all = sets_of(*o.op);
  for (const std::string& set : o.sets)
    if (std::find(all.begin(), all.end(), set) == all.end()) usage(set + ": not a set of " + op);
  if (o.sets.empty()) o.sets = all;
  for (const std::string& peer : o.peers)
    if (!parse_peer(peer)) usage(peer + ": a peer is NAME=PATH[:VARIABLE=VALUE,...]");
  if (o.busy && o.threads == 1) usage("--busy needs --threads");
  return o;
}

}  // namespace tev::bench
