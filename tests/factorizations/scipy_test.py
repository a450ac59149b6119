# SPDX-License-Identifier: BSD-3-Clause
"""A second opinion: the distribution's SciPy and its LAPACK, on one table of matrices.

scipy_test.py LIBTEV

Both libraries solve every problem. What is unique beyond rounding must agree; what the condition of the matrix leaves
open is judged by its residual.
"""
import ctypes
import sys
import unittest

import numpy as np
from scipy.linalg import lapack

LIBRARY = ctypes.CDLL(sys.argv.pop(1))
LIBRARY.tev_serv_set_num_threads(2)
KINDS = {"s": np.float32, "d": np.float64, "c": np.complex64, "z": np.complex128}
ORDERS = 1, 7, 40, 260  # the last over the team


def random(order, kind, seed=1):
    parts = np.random.default_rng(seed).uniform(-1, 1, (2, order, order))
    return (parts[0] + 1j * parts[1] if kind in "cz" else parts[0]).astype(KINDS[kind], order="F")


def scaled(rows, columns):
    """Entry (i, j) times a power of two, which is a function of i and of j as parts of the order."""
    def build(order, kind):
        part, most = np.arange(order) / order, np.finfo(KINDS[kind]).maxexp
        factors = 2.0 ** rows(part, most)[:, None], 2.0 ** columns(part, most)
        return np.asfortranarray((random(order, kind) * factors[0] * factors[1]).astype(KINDS[kind]))
    return build


def cut(rank):
    """Whole numbers, so that elimination of the first columns leaves true zeros."""
    def build(order, kind):
        a = np.round(random(order, kind)) + 2 * np.eye(order)
        a[:, rank(order):] = 0
        return np.asfortranarray(a.astype(KINDS[kind]))
    return build


MATRICES = {
    "random": lambda order, kind: random(order, kind),
    "graded rows": scaled(lambda part, most: -20 * part, lambda part, most: 0 * part),
    "graded columns": scaled(lambda part, most: 0 * part, lambda part, most: -20 * part),
    "ill-conditioned": scaled(lambda part, most: -20 * part, lambda part, most: -20 * part),
    "huge": scaled(lambda part, most: 0 * part + most - 30, lambda part, most: 0 * part),
    "tiny": scaled(lambda part, most: 0 * part - most + 30, lambda part, most: 0 * part),
    "last column zero": cut(lambda order: order - 1),
    "half of the rank": cut(lambda order: order // 2),
    "zeros": cut(lambda order: 0),
}


def ours(kind, name, *arguments):
    """Calls tev_lapack_<kind><name>: integers and letters by address, arrays in place; returns info."""
    def address(x):
        if isinstance(x, np.ndarray):
            return x.ctypes.data_as(ctypes.c_void_p)
        return ctypes.byref(ctypes.c_char(x.encode()) if isinstance(x, str) else ctypes.c_int64(x))
    info = ctypes.c_int64(99)
    getattr(LIBRARY, f"tev_lapack_{kind}{name}")(*map(address, arguments), ctypes.byref(info))
    return info.value


def theirs(kind, name, *arguments, **options):
    return getattr(lapack, kind + name)(*arguments, **options)


def norm1(a):
    return np.abs(a).sum(axis=0).max(initial=0)


class SecondOpinion(unittest.TestCase):
    def for_each_matrix(self, judge):
        for name, build in MATRICES.items():
            for kind in KINDS:
                for order in ORDERS:
                    with self.subTest(matrix=name, kind=kind, order=order):
                        a = build(order, kind)
                        self.roundings = 30 * order * np.finfo(a.dtype).eps
                        judge(name, kind, order, a, np.abs(a).max() or 1)

    def assert_close(self, got, wanted, condition=1.0):
        """Relative to the largest element, within roundings that the condition multiplies."""
        bound = self.roundings * condition
        if bound < 1:
            self.assertLessEqual(np.abs(got - wanted).max(initial=0), bound * np.abs(wanted).max(initial=0))

    def condition(self, kind, routine, option, factor, norm):
        work, more = np.empty(4 * len(factor), factor.dtype), np.empty(2 * len(factor))
        norm, rcond = np.full(1, norm, factor.real.dtype), np.full(1, 7, factor.real.dtype)
        self.assertEqual(ours(kind, routine, option, len(factor), factor, len(factor), norm, rcond, work, more), 0)
        return float(rcond[0])

    def assert_alike(self, rcond, other):
        if other > self.roundings:
            self.assertTrue(0.3 < rcond / other < 3, (rcond, other))

    def test_lu(self):
        def judge(name, kind, order, a, size):
            lu, pivots = a.copy(order="F"), np.zeros(order, np.int64)
            info = ours(kind, "getrf", order, order, lu, order, pivots)
            other, other_pivots, other_info = theirs(kind, "getrf", a)
            self.assertEqual(info, other_info)
            rows = np.arange(order)
            for i, pivot in enumerate(pivots - 1):
                rows[[i, pivot]] = rows[[pivot, i]]
            product = (np.tril(lu, -1) + np.eye(order)) @ (np.triu(lu) / size)
            self.assertLessEqual(norm1(product - a[rows] / size), self.roundings * norm1(a / size))
            rcond = self.condition(kind, "gecon", "1", lu, norm1(a))
            if info:
                self.assertEqual(rcond, 0)
                return
            other_rcond = float(theirs(kind, "gecon", other, norm1(a))[0])
            self.assert_alike(rcond, other_rcond)
            if kind in "dz" or order < 50:  # candidates differ by more than roundings
                self.assertEqual(list(pivots - 1), list(other_pivots))
            b = random(order, kind, 2)
            x = b.copy(order="F")
            self.assertEqual(ours(kind, "gesv", order, order, a.copy(order="F"), order, pivots, x, order), 0)
            self.assert_close(x, theirs(kind, "getrs", other, other_pivots, b)[0], 1 / max(other_rcond, 1e-300))
        self.for_each_matrix(judge)

    def test_cholesky(self):
        def judge(name, kind, order, a, size):
            """A^H A + I at the scale of A; without the second half where the rank is half."""
            unscaled = a / size
            definite = size * (unscaled.conj().T @ unscaled + np.eye(order)).astype(a.dtype, order="F")
            if name == "half of the rank":
                definite[order // 2:, order // 2:] = 0
            b = random(order, kind, 2)
            for triangle in "LU":
                factor, x = definite.copy(order="F"), b.copy(order="F")
                info = ours(kind, "posv", triangle, order, order, factor, order, x, order)
                other, other_info = theirs(kind, "potrf", definite, lower=triangle == "L", clean=0)
                self.assertEqual(info, other_info)
                if info:
                    continue
                rcond = self.condition(kind, "pocon", triangle, factor, norm1(definite))
                other_rcond = float(theirs(kind, "pocon", other, norm1(definite), uplo=triangle)[0])
                self.assert_alike(rcond, other_rcond)
                self.assert_close(factor, other, 1 / other_rcond)
                self.assert_close(x, theirs(kind, "potrs", other, b, lower=triangle == "L")[0], 1 / other_rcond)
        self.for_each_matrix(judge)

    def test_qr(self):
        def judge(name, kind, order, a, size):
            """R is unique up to the condition, R^H R beyond it."""
            for routine in "geqrf", "geqp3":
                qr, tau, pivots = a.copy(order="F"), np.empty(order, a.dtype), np.zeros(order, np.int64)
                work, real_work = np.empty(64 * order + 64, a.dtype), [np.empty(2 * order)] * (kind in "cz")
                pivoted = [pivots] if routine == "geqp3" else []
                extra = real_work if pivoted else []
                info = ours(kind, routine, order, order, qr, order, *pivoted, tau, work, len(work), *extra)
                self.assertEqual(info, 0)
                r, other = np.triu(qr) / size, np.triu(theirs(kind, routine, a)[0]) / size
                if pivoted:
                    self.assert_close(np.abs(np.diag(r)), np.abs(np.diag(other)))
                else:
                    self.assert_close(r.conj().T @ r, other.conj().T @ other)
        self.for_each_matrix(judge)


if __name__ == "__main__":
    unittest.main()
