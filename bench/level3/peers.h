// SPDX-License-Identifier: BSD-3-Clause
// Who takes part: ours, and those of others that the command line names or that are installed, once more on the
// instruction set below the tier's.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/level3/options.h"
#include "contest/libraries.h"

namespace tev::bench {

// NAME=PATH[:VARIABLE=VALUE,...]
std::optional<library> parse_peer(const std::string& text);

// Ours first, then the peers that are there and have the operation. Ends the program when ours does not run.
std::vector<std::unique_ptr<contestant>> invite(const options& o);

// Ours alone, with the operation of `o` exchanged for the product.
std::unique_ptr<contestant> invite_own_product(const options& o);

}  // namespace tev::bench
