// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace tev::service {

// To be called once, where the OpenMP runtime has started and no fork is under way: its own handler, which must come
// first, starts the runtime of a forked child anew and registers the child by a name.
void keep_children_nameless();

}  // namespace tev::service
