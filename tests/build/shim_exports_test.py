# SPDX-License-Identifier: BSD-3-Clause
"""shim/symbols.txt is what libtevblas shows, sorted; libtevblas64 shows the names among them that have no suffix, and the
libraries under other names show the same. Likewise shim/lapack_symbols.txt and libtevlapack. None of them needs more than
the C library.

    shim_exports_test.py ROOT LIBTEVBLAS LIBTEVBLAS64 LIBBLAS LIBBLAS64 LIBTEVLAPACK LIBTEVLAPACK64 [--update]
"""
import pathlib
import subprocess
import sys

root, *libraries = (pathlib.Path(argument) for argument in sys.argv[1:8])


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported(library):
    return sorted(line.split()[-1] for line in output("nm", "-D", "--defined-only", library).splitlines())


faults = []
for listed, group in ("shim/symbols.txt", libraries[:4]), ("shim/lapack_symbols.txt", libraries[4:]):
    if "--update" in sys.argv:
        (root / listed).write_text("".join(f"{name}\n" for name in exported(group[0])))
    narrow = (root / listed).read_text().split()
    wide = [name for name in narrow if not name.endswith(("_64_", "_64", "64_"))]
    if not narrow:
        faults.append(f"{listed} is empty")
    for number, library in enumerate(group):
        names = wide if number % 2 else narrow
        faults += [f"{library.name}: {name} is {'missing' if name in names else 'not in ' + listed}"
                   for name in sorted({*exported(library)} ^ {*names})]
        needed = [line.split("[")[1] for line in output("readelf", "-d", library).splitlines() if "(NEEDED)" in line]
        faults += [f"{library.name}: needs {name[:-1]}" for name in needed if not name.startswith(("libc.", "ld-linux"))]
print(*faults, f"{len(faults)} faults", sep="\n")
sys.exit(1 if faults else 0)
