// SPDX-License-Identifier: BSD-3-Clause
// Which libraries meet on a tier: ours, and those of others, each forced to the tier's instruction set.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "contest/contestant.h"
#include "contest/operations.h"

namespace tev::contest {

struct library {
  std::string name, path;
  environment variables;
};

// What is measured.
struct discipline {
  const operation* op;
  char precision = 'd';
  std::string tier = "avx512";
  int threads = 1;
};

// An instruction set in the words of the libraries.
struct instruction_set {
  const char* openblas;
  const char* blis;
  const char* blis_number;  // of BLIS 0.9, for which a name would count as 0
  const char* xsmm;         // null: it generates no such code
};

bool is_tier(const std::string& name);

// The tier's own, and the one below it, whose kernels are sometimes the faster ones. Peers have no kernels for
// avx512_zel: none.
const std::vector<instruction_set>& instruction_sets(const std::string& tier);

// Forces a library of ours to the tier.
environment own_variables(const std::string& tier);

// The distribution's OpenBLAS and BLIS, as far as they are installed.
std::vector<library> installed_peers(const instruction_set& set, bool threaded);

// `program` serves it (contest/serving.h).
std::unique_ptr<contestant> invite(const library& l, const discipline& d,
                                   const std::string& program = "/proc/self/exe");

}  // namespace tev::contest
