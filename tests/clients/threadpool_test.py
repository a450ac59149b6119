# SPDX-License-Identifier: BSD-3-Clause
"""threadpoolctl knows no library of this name, but its OpenMP runtime, and limits it."""
import ctypes
import unittest

import numpy as np
import threadpoolctl

library = ctypes.CDLL("libblas.so.3")


class Limits(unittest.TestCase):
    def setUp(self):
        np.ones((300, 300)) @ np.ones((300, 300))
        self.unlimited = library.tevblas_get_num_threads()

    def test_limits_reach_the_team(self):
        self.assertGreater(self.unlimited, 1)
        for limits in {"limits": 1}, {"limits": 1, "user_api": "openmp"}:
            with self.subTest(limits), threadpoolctl.threadpool_limits(**limits):
                self.assertEqual(library.tevblas_get_num_threads(), 1)
            self.assertEqual(library.tevblas_get_num_threads(), self.unlimited)

    def test_its_name_for_blas_does_not(self):
        with threadpoolctl.threadpool_limits(limits=1, user_api="blas"):
            self.assertEqual(library.tevblas_get_num_threads(), self.unlimited)


if __name__ == "__main__":
    unittest.main()
