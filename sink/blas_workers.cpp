// SPDX-License-Identifier: BSD-3-Clause
// The sixteen BLAS workers tev_blas_?{gemm,symm,trmm,trsm}_ao_worker. Each hands the scalars where the host put them in
// the record, and the buffers, to the routine of its name; nothing is checked or converted on the way.
#include "tev/blas.h"
#include "tev/request.h"

#define TEV_PASTE_(a, b, c) a##b##c
#define TEV_PASTE(a, b, c) TEV_PASTE_(a, b, c)

#define TEV_P s
#define TEV_T float
#include "sink/blas_workers.exports.inc"
#define TEV_P d
#define TEV_T double
#include "sink/blas_workers.exports.inc"
#define TEV_P c
#define TEV_T tev_complex8
#include "sink/blas_workers.exports.inc"
#define TEV_P z
#define TEV_T tev_complex16
#include "sink/blas_workers.exports.inc"
