# SPDX-License-Identifier: BSD-3-Clause
"""Unchanged programs on this library with its settings: which calls go to a sink, what is said and traced.

    offload_test.py TEV-OFFLOAD LIBTEVBLAS [unittest's arguments]
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TOOL, LIBRARY = sys.argv[1:3]
FACTORIZATIONS = str(pathlib.Path(LIBRARY).with_name("libtevlapack.so.0"))
LINE = re.compile(r"(\w+) (?:\w+=\S+ )*flops=(\S+) class=([\d-]+) where=(here|sink) seconds=(\S+) process=(\d+)")

SOLUTION = """
import numpy as np
a = np.ones((200, 200)) + 200 * np.eye(200)
assert abs(np.linalg.solve(a, a @ np.arange(200.)) - np.arange(200)).max() < 1e-9
"""
PRODUCT = """
import numpy as np
a = np.ones((200, 200))
assert (a @ a.T == 200).all()
"""
MEMORY = """
import ctypes
import numpy as np
library = ctypes.CDLL(None)
library.tevblas_malloc.restype = ctypes.c_void_p
library.tevblas_free.argtypes = [ctypes.c_void_p]
address = library.tevblas_malloc(ctypes.c_size_t(8 * 200 * 200))
a = np.ctypeslib.as_array(ctypes.cast(address, ctypes.POINTER(ctypes.c_double)), (200, 200))
assert address % 64 == 0 and (a == 0).all()
a[:] = 1
assert (a @ np.ones((200, 200)) == 200).all()
library.tevblas_free(address)
library.tevblas_free(None)
"""
CHILDREN = """
import os
import numpy as np
assert (np.ones((200, 200)) @ np.ones((200, 200)) == 200).all()
if os.fork() == 0: os._exit(3)
ended = []
try:
    while True: ended.append(os.wait()[1])
except ChildProcessError:
    assert ended == [3 << 8], ended
"""
PROCESSES = """
import os, threading
import numpy as np
def work():
    a = np.ones((50, 60), np.complex64)
    for _ in range(20): assert (a @ a.conj().T == 60).all()
work()
if os.fork() == 0:
    work()
    os._exit(0)
threads = [threading.Thread(target=work) for _ in range(3)]
for thread in threads: thread.start()
for thread in threads: thread.join()
assert os.wait()[1] == 0
assert np.dot(np.ones(7), np.ones(7)) == 7
"""


def run(program, *libraries, **settings):
    preloaded = ":".join(filter(None, [*libraries, LIBRARY, os.environ.get("LD_PRELOAD")]))
    environment = {**os.environ, "LD_PRELOAD": preloaded, **{f"TEVBLAS_{name}": value for name, value in settings.items()}}
    return subprocess.run(["/usr/bin/python3", "-c", program], env=environment, capture_output=True, text=True, timeout=60)


def calls(text):
    """Of traced lines: routine, flops, class, place, seconds, process; and everything else."""
    lines = [line for line in text.splitlines() if not line.startswith("#")]
    return [LINE.fullmatch(line).groups() for line in lines if LINE.fullmatch(line)], \
        [line for line in lines if not LINE.fullmatch(line)]


class Settings(unittest.TestCase):
    CASES = (  # settings, where the product runs, what is said
        ({}, "here", None),
        ({"OFFLOAD": "never", "SINK": "/nowhere"}, "here", None),
        ({"OFFLOAD": "always"}, "sink", None),
        ({"OFFLOAD": "Always"}, "here", "TEVBLAS_OFFLOAD=Always: expected never, always or auto"),
        ({"OFFLOAD": "auto", "SINK_THREADS": "1"}, "here", None),
        ({"OFFLOAD": "always", "THRESHOLD": "1e9"}, "here", None),
        ({"OFFLOAD": "always", "THRESHOLD": "1e9x"}, "sink", "TEVBLAS_THRESHOLD=1e9x"),
        ({"OFFLOAD": "always", "TIMEOUT": "-1"}, "sink", "TEVBLAS_TIMEOUT=-1"),
        ({"OFFLOAD": "always", "SINK": "/nowhere"}, "here", "'/nowhere'"),
        ({"TRACE": "/nowhere/trace"}, None, "TEVBLAS_TRACE=/nowhere/trace"),
    )

    def test_each(self):
        for program, routine, *libraries in (PRODUCT, "dsyrk"), (SOLUTION, "dgesv", FACTORIZATIONS):
            for settings, place, said in self.CASES:
                with self.subTest(routine, **settings):
                    done = run(program, *libraries, **{"TRACE": "stderr", **settings})
                    self.assertEqual(done.returncode, 0, done.stderr)
                    traced, others = calls(done.stderr)
                    self.assertEqual({call[3] for call in traced if call[0] == routine}, {place} - {None}, done.stderr)
                    self.assertEqual(len(others), 1 if said else 0, others)
                    self.assertIn(said or "", "".join(others))

    def test_memory(self):
        for mode in "never", "always":
            with self.subTest(mode):
                done = run(MEMORY, OFFLOAD=mode)
                self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_a_sink_is_no_child(self):
        done = run(CHILDREN, OFFLOAD="always", TRACE="stderr")
        self.assertEqual((done.returncode, {call[3] for call in calls(done.stderr)[0]}), (0, {"here", "sink"}))


class Trace(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.file = pathlib.Path(folder.name) / "calls"

    def tool(self, *arguments):
        return subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, timeout=60)

    def test_threads_and_processes(self):
        self.assertEqual(run(PROCESSES, TRACE=str(self.file)).returncode, 0)
        traced, others = calls(self.file.read_text())
        self.assertEqual(others, [])
        products = [call for call in traced if call[0] == "cgemm"]
        self.assertEqual(len(products), 100)
        self.assertEqual({float(call[1]) for call in products}, {8.0 * 50 * 50 * 60})
        self.assertEqual(sorted(sum(call[5] == process for call in products) for process in {call[5] for call in products}),
                         [20, 80])
        self.assertEqual([call[0] for call in traced if call[0] == "ddot" and float(call[1]) == 14], ["ddot"])
        row = next(line for line in self.file.read_text().splitlines() if line.startswith("# cgemm"))
        self.assertEqual(row.split()[1:5], ["cgemm", "17-64", "here", "80"])

        picture = self.file.with_suffix(".svg")
        shown = self.tool("trace", self.file, "--svg", picture)
        self.assertEqual(shown.returncode, 0, shown.stderr)
        self.assertEqual(next(line for line in shown.stdout.splitlines() if "cgemm" in line).split()[1:4], ["17-64", "here", "100"])
        self.assertIn("cgemm 17-64", picture.read_text())

    def test_two_libraries_have_one_table(self):
        self.assertEqual(run(SOLUTION, FACTORIZATIONS, TRACE=str(self.file)).returncode, 0)
        lines = self.file.read_text().splitlines()
        self.assertEqual(sum(line.startswith("# process") for line in lines), 1)
        self.assertLess({"dgesv", "dgemv"}, {line.split()[1] for line in lines if line.startswith("# d")})

    def test_refusals(self):
        self.file.write_text("# nothing\nand nothing more\n")
        for arguments, said in ((("trace", self.file), "no traced calls"), (("trace", "/nowhere"), "/nowhere"),
                                (("exec",), "no program"), (("exec", "--", "/nowhere"), "/nowhere"),
                                (("exec", "--offload", "often", "--", "true"), "--offload"),
                                (("exec", "--threshold=-1", "--", "true"), "--threshold '-1'"),
                                (("exec", "--timeout", "0", "--", "true"), "--timeout '0'"),
                                (("exec", "--sink", "/nowhere", "--", "true"), "/nowhere")):
            with self.subTest(arguments):
                done = self.tool(*arguments)
                self.assertEqual(done.returncode, 2)
                self.assertIn(said, done.stderr)


unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
