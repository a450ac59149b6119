// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/team/team.h"

#include <algorithm>

#include "tev/service.h"

namespace tev::blas {

int64_t permitted_threads() {
  return std::min(tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS), omp_get_thread_limit());
}

int64_t available_threads(double work) { return team_that_pays(permitted_threads(), work); }

}  // namespace tev::blas
