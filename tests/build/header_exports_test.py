# SPDX-License-Identifier: BSD-3-Clause
"""The public headers are the list of what the libraries of our own names export: every exported name stands in a header,
and every function of a header is exported. Each library has the soname that programs are linked with.

    header_exports_test.py ROOT LIBRARY...
"""
import pathlib
import re
import subprocess
import sys

root, *libraries = map(pathlib.Path, sys.argv[1:])
REQUESTS_NAME_IT = re.compile(r"tev_lapack_[sdcz]\w+_worker")  # include/tev/request.h tells its record
STATIC = {"tev_check_request"}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


text = "".join(output("cc", "-E", "-P", "-I", root / "include", header) for header in (root / "include").rglob("*.h"))
in_headers = set(re.findall(r"\w+", text))
functions = set(re.findall(r"^(?!typedef).*?\b((?:tev|vro)_\w+)\s*\((?!\*)", text.replace(";", ";\n"), re.M)) - STATIC
exported, faults = set(), []
for library in libraries:
    names = {line.split()[-1] for line in output("nm", "-D", "--defined-only", library).splitlines()}
    faults += [f"{library.name}: {name} stands in no public header"
               for name in sorted(names - in_headers) if not REQUESTS_NAME_IT.fullmatch(name)]
    exported |= names
    if f"soname: [{library.name}]" not in output("readelf", "-d", library):
        faults.append(f"{library.name}: has another soname")
faults += [f"{name}: declared and not exported" for name in sorted(functions - exported) if not name.startswith("tevblas_")]
print(*faults, f"{len(functions)} functions", sep="\n")
sys.exit(1 if faults or not functions else 0)
