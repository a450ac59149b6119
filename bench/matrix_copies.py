# SPDX-License-Identifier: BSD-3-Clause
"""?omatcopy and ?imatcopy of several libraries, taking turns: gigabytes read and written a second.

    OMP_NUM_THREADS=1 python3 bench/matrix_copies.py build/release/lib/libtevblas.so.0 OPENBLAS [SIZE...]
"""
import ctypes
import sys
import time

import numpy as np

CASES = ("omatcopy", "N"), ("omatcopy", "T"), ("imatcopy", "T")
SECONDS, TURNS = 0.1, 5


def call_of(library, kind, letter, routine, trans, a, b):
    n, lda = (ctypes.c_int(size) for size in a.shape)
    order, op = ctypes.c_char_p(b"C"), ctypes.c_char_p(trans.encode())
    alpha = np.ones(1, kind)
    arguments = [order, op, ctypes.byref(n), ctypes.byref(n), alpha.ctypes, a.ctypes, ctypes.byref(lda)]
    arguments += [b.ctypes, ctypes.byref(lda)] if routine[0] == "o" else [ctypes.byref(lda)]
    function = getattr(library, f"{letter}{routine}_")
    return lambda: function(*arguments)


def best_time(call):
    best, end = np.inf, time.perf_counter() + SECONDS
    while time.perf_counter() < end:
        start = time.perf_counter()
        call()
        best = min(best, time.perf_counter() - start)
    return best


paths, sizes = [a for a in sys.argv[1:] if not a.isdigit()], [int(a) for a in sys.argv[1:] if a.isdigit()]
libraries = [ctypes.CDLL(path) for path in paths]
print(f"{'':12} {'n':>5}", *(f"{path.rsplit('/')[-1]:>20}" for path in paths))
for letter, kind in ("s", np.float32), ("d", np.float64), ("c", np.complex64), ("z", np.complex128):
    for routine, trans in CASES:
        for n in sizes or (32, 200, 1000, 2048, 4000):
            a, b = np.ones((n, n), kind), np.ones((n, n), kind)
            calls = [call_of(library, kind, letter, routine, trans, a, b) for library in libraries]
            best = np.min([[best_time(call) for call in calls] for _ in range(TURNS)], axis=0)
            print(f"{letter}{routine} {trans:2} {n:5}", *(f"{2e-9 * a.nbytes / t:20.2f}" for t in best), flush=True)
