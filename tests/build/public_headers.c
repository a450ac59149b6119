/* SPDX-License-Identifier: BSD-3-Clause */
/* Compiles when every public header stands alone in C11; their own assertions check the record layouts. */
#define TEVBLAS_DECLARE_EXTENSIONS
#include "tev/blas.h"
#include "tev/check.h"
#include "tev/direct_kernels.h"
#include "tev/front_end.h"
#include "tev/lapack.h"
#include "tev/offload.h"
#include "tev/request.h"
#include "tev/routed.h"
#include "tev/tevblas.h"
#include "tev/types.h"
#include "vro/device.h"
#include "vro/host.h"

/* A function of the right type can be handed to a host or sink written in C. */
vro_run_function* public_headers_run_function(vro_run_function* f) { return f; }
tev_worker* public_headers_worker(tev_worker* w) { return w; }
