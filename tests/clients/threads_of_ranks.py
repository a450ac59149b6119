# SPDX-License-Identifier: BSD-3-Clause
"""Ranks of an MPI job on one machine: their teams together are no larger than the machine, bound or not."""
import ctypes
import os

library = ctypes.CDLL("libblas.so.3")
one = ctypes.byref(ctypes.c_int(1))
library.dscal_(one, ctypes.byref(ctypes.c_double(1)), ctypes.byref(ctypes.c_double(1)), one)
threads, ranks = library.tevblas_get_num_threads(), int(os.environ["OMPI_COMM_WORLD_LOCAL_SIZE"])
processors, all_processors = len(os.sched_getaffinity(0)), len(os.sched_getaffinity(1))
fair = 1 <= threads <= processors and (threads - 1) * ranks < all_processors
print(f"{threads} of {processors} processors:", "no more than processors" if fair else "more threads than processors")
