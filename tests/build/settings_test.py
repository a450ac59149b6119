# SPDX-License-Identifier: BSD-3-Clause
"""docs/settings.md tells of every variable in service/settings.inc, in its words, and the library reads no other.

    settings_test.py ROOT [--update]
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
TEXT = r'((?:\s*"[^"]*")+)'
ROW = re.compile(r"^TEV_SETTING\((\w+), (\d+), \w+," + TEXT + "," + TEXT + r"\)$", re.MULTILINE)

table = ["| variable | values | otherwise | longest |", "| --- | --- | --- | --- |"]
source = (root / "service/settings.inc").read_text()
rows = ROW.findall(source)
for name, room, *texts in rows:
    values, otherwise = ("".join(re.findall('"([^"]*)"', text)) for text in texts)
    table.append(f"| {name} | {values} | {otherwise} | {int(room) - 1} |")
faults = [] if len(rows) == source.count("\nTEV_SETTING(") > 0 else ["service/settings.inc: a row is not understood"]

document = root / "docs/settings.md"
lines = document.read_text().splitlines()
start = next(i for i, line in enumerate(lines) if line.startswith("| variable |"))
end = next(i for i in range(start, len(lines)) if not lines[i].startswith("|"))
if lines[start:end] != table:
    if "--update" in sys.argv:
        document.write_text("\n".join(lines[:start] + table + lines[end:]) + "\n")
    else:
        faults.append(f"{document}: not as service/settings.inc; settings_test.py {root} --update writes it")

READ = re.compile(r'getenv\s*\(\s*"')
for layer in ("service", "kernels", "blas_threading", "lapack_workers"):
    faults += [f"{file}: reads a variable past service/settings.inc" for file in root.glob(f"{layer}/**/*.cpp")
               if READ.search(file.read_text())]
print(*faults, f"{len(rows)} settings", sep="\n")
sys.exit(1 if faults else 0)
