#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Whole programs over this library and over OpenBLAS, in turn: seconds of the fastest of each operation, and OpenBLAS's
seconds over ours. Here libtevlapack stands in front of the distribution's LAPACK, OpenBLAS has its own.

  whole_programs.py octave|R|hpl [--order N] [--rounds N] [--block N] [--ranks N]

tools/bootstrap clients installs the programs; libopenblas0-openmp is needed, too. OPENBLAS_CORETYPE forces its kernels,
which it may not choose by itself on a processor that it does not know.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/clients"))
import clients  # noqa: E402

OPENBLAS = clients.DEBIAN / "openblas-openmp"
REPEATS = "3"  # of an operation within a program


def command(asked: argparse.Namespace) -> list[str]:
    scripts = ROOT / "tests/clients"
    if asked.program == "octave":
        return ["octave-cli", "--norc", "--quiet", str(scripts / "operations.m"), str(asked.order), REPEATS]
    if asked.program == "R":
        return ["Rscript", str(scripts / "operations.R"), str(asked.order), REPEATS]
    return clients.hpl(asked.ranks).command


def seconds(asked: argparse.Namespace, library: pathlib.Path) -> dict[str, float]:
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        clients.hpl(asked.ranks, asked.order, asked.block).prepare()
        settings = clients.settings_of(clients.Way(""), library)
        if "OMP_NUM_THREADS" in os.environ:
            settings["OMP_NUM_THREADS"] = os.environ["OMP_NUM_THREADS"]
        if library == OPENBLAS:
            for path in ("LD_LIBRARY_PATH", "R_LD_LIBRARY_PATH"):
                settings[path] = f"{library}:{settings[path]}"
        else:
            settings["LD_PRELOAD"] = str(library.parent / "libtevlapack.so.0")
        settings["OPENBLAS_CORETYPE"] = os.environ.get("OPENBLAS_CORETYPE", "")
        done = subprocess.run(command(asked), env=settings, text=True, capture_output=True, check=True)
        if asked.program == "hpl":
            text = pathlib.Path("hpccoutf.txt").read_text()
            rate = float(re.search(r"^WR.* (\S+)$", text, re.M)[1])  # GFLOP/s; the time has two digits only
            return {"hpl": (2 / 3 * asked.order**3 + 3 / 2 * asked.order**2) / rate / 1e9}
    return {name: float(time) for name, time in re.findall(r"^(\S+) +([\d.]+) +[\d.]+$", done.stdout, re.M)}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", choices=("octave", "R", "hpl"))
    parser.add_argument("--order", type=int, default=1000)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--block", type=int, default=128)
    parser.add_argument("--ranks", type=int, default=2)
    asked = parser.parse_args()
    fastest: list[dict[str, float]] = [{}, {}]
    for _ in range(asked.rounds):
        for best, library in zip(fastest, (clients.this_library(), OPENBLAS)):
            for name, time in seconds(asked, library).items():
                best[name] = min(time, best.get(name, time))
    print(f"# {' '.join(sys.argv[1:])}: seconds here, OpenBLAS's, ratio")
    for name, ours in fastest[0].items():
        print(f"{name:10} {ours:9.4f} {fastest[1][name]:9.4f} {fastest[1][name] / ours:6.2f}")
    here, there = (sum(times.values()) for times in fastest)
    print(f"{'all':10} {here:9.4f} {there:9.4f} {there / here:6.2f}")


if __name__ == "__main__":
    main()
