// SPDX-License-Identifier: BSD-3-Clause
// Which libraries meet on a tier: ours, and those of others, each forced to the tier's instruction set, and once more
// to the one below it, whose kernels are sometimes the faster ones.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/level3/contestant.h"
#include "bench/level3/options.h"

namespace tev::bench {

struct library {
  std::string name, path;
  environment variables;
};

bool is_tier(const std::string& name);

// NAME=PATH[:VARIABLE=VALUE,...]
std::optional<library> parse_peer(const std::string& text);

// Ours first, then the peers that are there and have the operation. Ends the program when ours does not run.
std::vector<std::unique_ptr<contestant>> invite(const options& o);

// Ours alone, with the operation of `o` exchanged for the product.
std::unique_ptr<contestant> invite_own_product(const options& o);

}  // namespace tev::bench
