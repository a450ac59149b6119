// SPDX-License-Identifier: BSD-3-Clause
// How many threads a routine uses: the thread's own count, else the domain's, else the count for all, else OpenMP's;
// in dynamic mode no more than the cores, or than the share of one of several MPI processes on the machine. OpenMP's
// count, unless OMP_NUM_THREADS chose it, is also limited to the cores that affinity and processor-time quota leave the
// process.
#include "service/threads.h"

#include <omp.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "service/cleanup.h"
#include "service/environment.h"
#include "service/layer_locks.h"
#include "service/lock.h"
#include "service/openmp_name.h"
#include "service/settings.h"
#include "service/thread_key.h"
#include "service/topology.h"

extern "C" {

constinit int32_t __tev_num_threads = -1;
constinit int32_t __tev_blas_num_threads = -1;
constinit int32_t __tev_fft_num_threads = -1;
constinit int32_t __tev_vort_num_threads = -1;
constinit int32_t __tev_pardiso_num_threads = -1;
constinit int32_t __tev_num_stripes = -1;
constinit int32_t __tev_dynamic = -1;
constinit int32_t __omp_num_threads = -1;
constinit int32_t __tev_mpi_ppn = -1;
constinit int32_t __tev_mpi_thread_level = -1;
constinit int32_t __mpi_SAFETY_BLACS = -1;
constinit int32_t __threads_env_NOT_readed = 1;

constinit int32_t __N_Logical_Cores = 0;
constinit int32_t __N_Physical_Cores = 0;
constinit int32_t __N_CPU_Packages = 1;
constinit int32_t __N_Cores_per_Packages = 0;
constinit int32_t __HT = 0;

}  // extern "C"

constinit int32_t tev::service::usable_core_count = 0;

namespace {

constinit int32_t processes_per_node = 0;  // 0 until asked for, -1 unknown
constinit tev::service::thread_key own_counts = {.at_thread_exit = nullptr,
                                                 .register_cleanup = tev::service::register_own_thread_cleanup};

int32_t get(int32_t& setting) { return std::atomic_ref<int32_t>(setting).load(std::memory_order_relaxed); }

void set(int32_t& setting, int32_t number) {
  std::atomic_ref<int32_t>(setting).store(number, std::memory_order_relaxed);
}

// Indexed by domain.
constexpr int32_t* kCounts[] = {&__tev_num_threads, &__tev_blas_num_threads, &__tev_fft_num_threads,
                                &__tev_vort_num_threads, &__tev_pardiso_num_threads};

bool is_domain(int32_t domain) { return domain >= TEV_DOMAIN_ALL && domain <= TEV_DOMAIN_PARDISO; }

// As long as no thread ever set a count of its own there is no key to look up.
int32_t own_count() {
  if (std::atomic_ref<int32_t>(own_counts.created).load(std::memory_order_acquire) == 0) return 0;
  return static_cast<int32_t>(reinterpret_cast<intptr_t>(pthread_getspecific(own_counts.key)));
}

void store_topology(const tev::service::topology& machine) {
  set(__N_Logical_Cores, machine.logical);
  set(__N_Physical_Cores, machine.physical);
  set(__N_CPU_Packages, machine.packages);
  set(__N_Cores_per_Packages, machine.physical / machine.packages);
  set(__HT, machine.logical != machine.physical ? 1 : 0);
}

void read_settings() {
  const tev::service::scoped_lock guard(tev::service::thread_settings_lock);
  if (get(__threads_env_NOT_readed) == 0) return;
  tev_read_threads_env();
  const tev::service::topology machine = tev::service::probe_topology();
  tev::service::keep_children_nameless();
  store_topology(machine);
  set(tev::service::usable_core_count, tev::service::usable_cores(machine));
  std::atomic_ref<int32_t>(__threads_env_NOT_readed).store(0, std::memory_order_release);
}

void read_settings_once() {
  if (std::atomic_ref<int32_t>(__threads_env_NOT_readed).load(std::memory_order_acquire) == 0) return;
  read_settings();
  tev::service::wait_for_forks();
}

// What the program or the environment asks for; 0 leaves it to OpenMP.
int32_t wanted_count(int32_t domain) {
  if (is_domain(domain))
    if (const int32_t count = get(*kCounts[domain]); count > 0) return count;
  return std::max(get(__tev_num_threads), 0);
}

// The share of this process, for a count that is OpenMP's own.
int32_t share_of_process(int32_t count, int32_t cores, int32_t processes) {
  if (get(__tev_mpi_thread_level) < 1) return 1;
  return std::max(std::min(cores / processes, count), 1);
}

// The launcher's value as a positive number that is followed by `end`, else 0.
template <tev::service::setting Launcher>
int32_t number_before(char end) {
  const tev::service::setting_value<Launcher> value;
  char* rest;
  const long number = strtol(value.text, &rest, 10);
  return *rest == end && number > 0 && number <= INT32_MAX ? static_cast<int32_t>(number) : 0;
}

int32_t read_processes_per_node() {
  using tev::service::setting;
  static constexpr struct {
    int32_t (*number_before)(char end);
    char end;
  } kLaunchers[] = {
      {number_before<setting::TEV_MPI_PPN>, 0},
      {number_before<setting::Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE>, 0},
      {number_before<setting::Z_MPI_PIN_MAPPING>, ':'},  // 4:0 0,1 12: the places of 4 processes
      {number_before<setting::OMPI_COMM_WORLD_LOCAL_SIZE>, 0},
      {number_before<setting::MPI_LOCALNRANKS>, 0},
  };
  for (const auto& launcher : kLaunchers)
    if (const int32_t number = launcher.number_before(launcher.end)) return number;
  return -1;
}

}  // namespace

extern "C" {

void tev_serv_set_num_threads(int32_t n) {
  if (n >= 1) set(__tev_num_threads, n);
}

int32_t tev_serv_domain_set_num_threads(int32_t n, int32_t domain) {
  if (n < 0 || !is_domain(domain)) return 0;
  set(*kCounts[domain], n);
  return 1;
}

int32_t tev_serv_set_num_threads_local(int32_t n) {
  const int32_t before = own_count();
  if (n != before && tev::service::ready(own_counts))
    pthread_setspecific(own_counts.key, reinterpret_cast<void*>(static_cast<intptr_t>(n)));
  return before;
}

int32_t tev_serv_get_max_threads(void) { return tev_serv_domain_get_max_threads(-1); }

int32_t tev_serv_domain_get_max_threads(int32_t domain) {
  if (const int32_t own = own_count(); own > 0) return own;
  read_settings_once();
  const bool dynamic = get(__tev_dynamic) != 0;
  if (dynamic && tev_serv_omp_in_parallel()) return 1;
  const int32_t wanted = wanted_count(domain);
  const int32_t count = wanted > 0 ? wanted : omp_get_max_threads();
  if (!dynamic) return count;

  const int32_t cores = get(__N_Physical_Cores);
  const bool chosen = wanted > 0 || get(__omp_num_threads) > 0;
  const int32_t limited = std::min(count, chosen ? cores : get(tev::service::usable_core_count));
  if (const int32_t safe = get(__mpi_SAFETY_BLACS); safe >= 0) return safe == 1 ? limited : 1;
  const int32_t processes = get(__tev_mpi_ppn);
  if (processes < 1 || chosen) return limited;
  return share_of_process(limited, cores, processes);
}

void tev_serv_set_dynamic(int32_t flag) { set(__tev_dynamic, flag != 0 ? 1 : 0); }

int32_t tev_serv_get_dynamic(void) {
  read_settings_once();
  return get(__tev_dynamic);
}

void tev_serv_set_num_stripes(int32_t n) {
  if (n >= 0) set(__tev_num_stripes, n);
}

int32_t tev_serv_get_num_stripes(void) {
  read_settings_once();
  return get(__tev_num_stripes);
}

int32_t tev_serv_get_ncpus(void) {
  read_settings_once();
  return get(__N_CPU_Packages);
}

int32_t tev_serv_get_ncorespercpu(void) {
  read_settings_once();
  return get(__N_Cores_per_Packages);
}

int32_t tev_serv_get_ht(void) {
  read_settings_once();
  return get(__HT);
}

int32_t tev_serv_get_nlogicalcores(void) {
  read_settings_once();
  return get(__N_Logical_Cores);
}

void tev_serv_mpi_safe(int32_t flag) { set(__mpi_SAFETY_BLACS, flag == 1 ? 1 : 0); }

int32_t tev_serv_mpi_get_ppn(void) {
  if (const int32_t known = get(processes_per_node); known != 0) return known;
  const int32_t answer = read_processes_per_node();
  set(processes_per_node, answer);
  return answer;
}

int32_t tev_serv_omp_in_parallel(void) { return omp_in_parallel() ? 1 : 0; }

int32_t tev_serv_get_thread_layer(void) { return 0; }

}  // extern "C"
