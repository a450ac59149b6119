# SPDX-License-Identifier: BSD-3-Clause
"""The distribution's NumPy on this library: decompositions give back the matrix, in processes that it forks, too."""
import multiprocessing
import os
import unittest

import numpy as np

ORDER = 150


def matrix(kind, seed=1):
    random = np.random.default_rng(seed)
    parts = random.standard_normal((2, ORDER, ORDER))
    return (parts[0] + 1j * parts[1] if np.dtype(kind).kind == "c" else parts[0]).astype(kind)


def error_of_inverse(seed):
    a = matrix(np.float64, seed)
    return float(np.abs(a @ np.linalg.inv(a) - np.eye(ORDER)).max())


class OnThisLibrary(unittest.TestCase):
    def test_it_is_this_library(self):
        np.ones((99, 99)) @ np.ones((99, 99))
        library = "libtev_offload.so.0" if os.environ.get("TEVBLAS_OFFLOAD") == "always" else "libtev.so.0"
        with open("/proc/self/maps") as maps:
            loaded = maps.read()
        for name in library, *os.environ.get("LD_PRELOAD", "").replace(":", " ").split():
            self.assertIn(name, loaded)

    def test_decompositions(self):
        for kind in (np.float32, np.float64, np.complex64, np.complex128):
            with self.subTest(kind):
                a = matrix(kind)
                hermitian = a @ a.conj().T + ORDER * np.eye(ORDER, dtype=kind)
                u, s, vh = np.linalg.svd(a)
                w, q = np.linalg.eigh(hermitian)
                lower = np.linalg.cholesky(hermitian)
                qr = np.linalg.qr(a)
                pairs = ((u * s) @ vh, a), ((q * w) @ q.conj().T, hermitian), (lower @ lower.conj().T, hermitian), \
                    (qr[0] @ qr[1], a), (a @ np.linalg.solve(a, hermitian), hermitian), \
                    (np.linalg.inv(a) @ hermitian, np.linalg.solve(a, hermitian)), \
                    (np.einsum("ij,jk->ik", a, a), a @ a), (np.vdot(a, a), np.linalg.norm(a)**2)
                for got, wanted in pairs:
                    bound = 1e3 * np.finfo(kind).eps * ORDER
                    self.assertLess(np.linalg.norm(got - wanted), bound * np.linalg.norm(wanted))

    def test_forked_workers(self):
        before = set(os.listdir("/dev/shm"))
        self.assertLess(error_of_inverse(0), 1e-8)
        with multiprocessing.get_context("fork").Pool(2) as pool:
            self.assertLess(max(pool.map(error_of_inverse, range(8))), 1e-8)
            names = [f"__KMP_REGISTERED_LIB_{worker.pid}_" for worker in (*pool._pool, multiprocessing.current_process())]
        left = set(os.listdir("/dev/shm")) - before
        self.assertEqual([entry for entry in left if entry.startswith(tuple(names))], [])


if __name__ == "__main__":
    unittest.main()
