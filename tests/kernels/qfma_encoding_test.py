# SPDX-License-Identifier: BSD-3-Clause
"""The built object holds the four-iteration multiply-add: qfma_encoding_test.py <objdump> <object files>...

Every one must take its four vectors from zmm28 on, the block that the loads before it fill, and add to a register outside
it.
"""
import re
import subprocess
import sys

objdump, objects = sys.argv[1], sys.argv[2].split(";")
text = "".join(subprocess.run([objdump, "-d", "--no-show-raw-insn", path], check=True, capture_output=True, text=True).stdout
               for path in objects if "gemm_small" in path)
found = re.findall(r"v4fmaddps\s+(\S+),\s*(%zmm\d+),\s*(%zmm\d+)", text)
problems = [line for line in found if line[1] != "%zmm28" or line[2] in ("%zmm28", "%zmm29", "%zmm30", "%zmm31")]
if len(found) < 8 or problems:
    sys.exit(f"{len(found)} instructions found, wrong operands: {problems}")
print(f"{len(found)} instructions")
