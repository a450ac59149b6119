#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""What a BLAS costs a process before it computes: medians over fresh processes of the milliseconds that loading it takes
and its first call, a dgemm of order 4, and of the memory in KiB that the process has more after each.

  loading.py [--rounds N] LIBRARY...
"""
import argparse
import ctypes
import os
import pathlib
import statistics
import subprocess
import sys
import time


def resident() -> int:
    return int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * os.sysconf("SC_PAGESIZE") // 1024


def measure(file: str) -> None:
    start, memory = time.perf_counter(), resident()
    dgemm = ctypes.CDLL(file, mode=os.RTLD_NOW).dgemm_
    loaded, memory_loaded = time.perf_counter(), resident()
    order, one, matrix = ctypes.byref(ctypes.c_int(4)), ctypes.byref(ctypes.c_double(1)), (ctypes.c_double * 16)()
    before = time.perf_counter()
    dgemm(b"N", b"N", order, order, order, one, matrix, order, matrix, order, one, matrix, order)
    called = time.perf_counter()
    print(1e3 * (loaded - start), 1e3 * (called - before), memory_loaded - memory, resident() - memory)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=21)
    parser.add_argument("--once", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("libraries", nargs="+")
    asked = parser.parse_args()
    if asked.once:
        return measure(asked.libraries[0])
    print("# load ms, first call ms, KiB loaded, KiB called")
    for file in asked.libraries:
        command = [sys.executable, __file__, "--once", file]
        runs = [subprocess.run(command, text=True, capture_output=True, check=True).stdout.split()
                for _ in range(asked.rounds)]
        medians = [statistics.median(map(float, column)) for column in zip(*runs)]
        print(*(f"{value:8.4g}" for value in medians), file)


if __name__ == "__main__":
    main()
