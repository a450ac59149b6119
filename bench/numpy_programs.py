# SPDX-License-Identifier: BSD-3-Clause
"""Whole NumPy programs on this library and on Debian's OpenBLAS, taking turns: best times, and OpenBLAS's over ours.

    python3 bench/numpy_programs.py LIBRARIES [--core NAME] [--sizes 100,500,2000] [--seconds 1] [--programs solve,eigh]

LIBRARIES is the folder of libtevblas (build/release/lib). --core is the name that OpenBLAS has for the machine's
instruction set (OPENBLAS_CORETYPE): its processes are told to use it, in another column they decide for themselves.
Ours has libtevlapack before the distribution's LAPACK, in another column the BLAS alone. OMP_NUM_THREADS holds for all.
"""
import argparse
import math
import os
import signal
import subprocess
import sys
import time

DEBIAN = "/usr/lib/x86_64-linux-gnu"
PROGRAMS = {"A @ B": lambda np, a, spd: a @ spd, "solve": lambda np, a, spd: np.linalg.solve(a, a[0]),
            "cholesky": lambda np, a, spd: np.linalg.cholesky(spd), "eigh": lambda np, a, spd: np.linalg.eigh(spd),
            "svd": lambda np, a, spd: np.linalg.svd(a), "inv": lambda np, a, spd: np.linalg.inv(a),
            "qr": lambda np, a, spd: np.linalg.qr(a), "lstsq": lambda np, a, spd: np.linalg.lstsq(a, a[0], rcond=None)}


def serve():
    """Answers each line "program size seconds" by the best time of some calls."""
    import numpy as np
    made = {}
    for line in sys.stdin:
        program, size, seconds = line.rstrip("\n").split("\t")
        n = int(size)
        if n not in made:
            a = np.random.default_rng(n).standard_normal((n, n))
            made = {n: (a, a @ a.T + n * np.eye(n))}
        best, end = math.inf, time.perf_counter() + float(seconds)
        while best == math.inf or time.perf_counter() < end:
            start = time.perf_counter()
            PROGRAMS[program](np, *made[n])
            best = min(best, time.perf_counter() - start)
        print(best, flush=True)


class Contestant:
    """A process with a BLAS of its own, which sleeps while others have their turn: idle teams spin for a while."""

    def __init__(self, name, path, **variables):
        self.name = name
        environment = os.environ | {"LD_LIBRARY_PATH": path} | variables
        self.process = subprocess.Popen([sys.executable, __file__, "--serve"], env=environment, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.process.send_signal(signal.SIGSTOP)

    def best(self, *job):
        self.process.send_signal(signal.SIGCONT)
        print(*job, sep="\t", file=self.process.stdin, flush=True)
        seconds = float(self.process.stdout.readline())
        self.process.send_signal(signal.SIGSTOP)
        return seconds

    def end(self):
        self.process.kill()
        self.process.wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("libraries")
    parser.add_argument("--core")
    parser.add_argument("--sizes", default="100,500,2000")
    parser.add_argument("--programs", default="A @ B,solve,eigh,svd,cholesky")
    parser.add_argument("--seconds", type=float, default=1)
    parser.add_argument("--turns", type=int, default=3)
    options = parser.parse_args()
    libraries = os.path.abspath(options.libraries)
    ours, theirs = f"{libraries}/blas:{DEBIAN}/lapack", f"{DEBIAN}/openblas-openmp:{DEBIAN}/openblas-pthread"
    contestants = [Contestant("ours", ours, LD_PRELOAD=f"{libraries}/libtevlapack.so.0"), Contestant("BLAS alone", ours),
                   Contestant("OpenBLAS", theirs)]
    if options.core:
        contestants.append(Contestant("forced", theirs, OPENBLAS_CORETYPE=options.core))
    print(f"{'':8} {'n':>5}", *(f"{one.name + ' ms':>14}" for one in contestants),
          *(f"{one.name + ' ratio':>16}" for one in contestants[1:]))
    ratios = []
    for program in options.programs.split(","):
        for size in options.sizes.split(","):
            turns = [[one.best(program, size, options.seconds) for one in contestants] for _ in range(options.turns)]
            best = [min(times) for times in zip(*turns)]
            ratios.append([other / best[0] for other in best[1:]])
            print(f"{program:8} {size:>5}", *(f"{1e3 * t:14.3f}" for t in best), *(f"{r:16.2f}" for r in ratios[-1]),
                  flush=True)
    means = [math.exp(sum(math.log(ratio) for ratio in column) / len(column)) for column in zip(*ratios)]
    print(f"{'geometric mean':14}" + " " * 15 * len(contestants), *(f"{mean:16.2f}" for mean in means))
    for one in contestants:
        one.end()


serve() if "--serve" in sys.argv else main()
