// SPDX-License-Identifier: BSD-3-Clause
// What the library itself has to clean up, beside what the program may register (tev/service.h): run after all of that.
// Each registry has room for the two keys that the library may create.
#pragma once

#include "tev/service.h"

namespace tev::service {

void register_own_core_cleanup(tev_serv_cleanup function, void* argument);
void register_own_thread_cleanup(tev_serv_cleanup function, void* argument);

}  // namespace tev::service
