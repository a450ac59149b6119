// SPDX-License-Identifier: BSD-3-Clause
// A POSIX thread-specific key that is created when it is first needed, and deleted by the cleanup of a registry.
#pragma once

#include <pthread.h>

#include "tev/service.h"

namespace tev::service {

struct thread_key {
  void (*at_thread_exit)(void*);  // destructor of a thread's value, or null

  // register_own_core_cleanup or register_own_thread_cleanup: whenever the key is created, its deletion is registered
  // there.
  void (*register_cleanup)(tev_serv_cleanup function, void* argument);

  pthread_key_t key = 0;
  int32_t created = 0;  // 1 once `key` is valid
};

// Creates the key if needed; false when the system has no more keys.
bool ready(thread_key& record);

}  // namespace tev::service

// Deletes the key of a thread_key record if it was created: a function for the cleanup registries. Values that threads
// still hold are not destroyed.
extern "C" void tev_tls_destroy(void* record);
