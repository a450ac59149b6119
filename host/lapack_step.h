// SPDX-License-Identifier: BSD-3-Clause
// Steps of a factorization that are no BLAS calls, from generated operands to the judgement of their result:
//
//   laswp    rows 1 to k of A exchanged with pivots below them          every element is where it belongs
//   lu_step  the same in [B; C], then L X = B, C := C - A X             as trsm and gemm are judged
//   larfb    C := op(H) C or C op(H), H = I - V T V^H                   |X - Xref| <= gamma(l + 2 k + 2) (|C| +
//                                                                       |V| |T| |V^H| |C|), l: length of a reflector
#pragma once

#include "host/call.h"
#include "host/offload.h"
#include "host/sink_client.h"

namespace tev::host {

// For a call with is_lapack(c.op).
outcome run_lapack_step(sink_client& sink, const call& c, const progress& on_progress);

}  // namespace tev::host
