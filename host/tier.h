// SPDX-License-Identifier: BSD-3-Clause
// Which kernels the sink runs: the user's choice of a tier, held to what this machine can do.
#pragma once

#include <string>

namespace tev::host {

// What TEV_DEBUG_CPU_TYPE must be in the sink's environment for the tier of this name; "" leaves the environment as it
// is: "auto", for which the host vouches for the processor, and "detect", the sink's own choice. Throws a bad_input()
// for an unknown name and for a tier that this machine cannot run.
std::string processor_type_for(const std::string& tier);

}  // namespace tev::host
