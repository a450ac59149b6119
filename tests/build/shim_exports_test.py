# SPDX-License-Identifier: BSD-3-Clause
"""shim/symbols.txt is what libtevblas shows, sorted; libtevblas64 shows the names among them that have no suffix, and the
libraries under other names show the same. None of them needs more than the C library.

    shim_exports_test.py ROOT LIBTEVBLAS LIBTEVBLAS64 LIBBLAS LIBBLAS64 [--update]
"""
import pathlib
import subprocess
import sys

root, *libraries = (pathlib.Path(argument) for argument in sys.argv[1:6])


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported(library):
    return sorted(line.split()[-1] for line in output("nm", "-D", "--defined-only", library).splitlines())


listed = root / "shim/symbols.txt"
if "--update" in sys.argv:
    listed.write_text("".join(f"{name}\n" for name in exported(libraries[0])))
narrow = listed.read_text().split()
wide = [name for name in narrow if not name.endswith(("_64_", "_64", "64_"))]

faults = []
for library, names in zip(libraries, (narrow, wide) * 2):
    seen = exported(library)
    faults += [f"{library.name}: {name} is {'missing' if name in names else 'not in shim/symbols.txt'}"
               for name in sorted({*seen} ^ {*names})]
    needed = [line.split("[")[1] for line in output("readelf", "-d", library).splitlines() if "(NEEDED)" in line]
    faults += [f"{library.name}: needs {name[:-1]}" for name in needed if not name.startswith(("libc.", "ld-linux"))]
print(*faults, f"{len(narrow)} names", sep="\n")
sys.exit(1 if faults or not narrow else 0)
