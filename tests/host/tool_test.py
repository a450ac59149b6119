# SPDX-License-Identifier: BSD-3-Clause
"""The host tool from outside, with the real sink: results against NumPy, the words for wrong input, the sink's death.

    tool_test.py TEV-OFFLOAD TEV_SINK [unittest's arguments]
"""
import json
import os
import pathlib
import pty
import re
import resource
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile
from xml.etree import ElementTree

import numpy as np

TOOL, SINK = sys.argv[1:3]
DTYPES = {"s": np.float32, "d": np.float64, "c": np.complex64, "z": np.complex128}
OPERATIONS = ("gemm", "symm", "trmm", "trsm")


def command(*arguments):
    return [TOOL, *map(str, arguments), "--sink", SINK]


def modulus(x):
    return np.abs(x.real) + np.abs(x.imag)


def random_matrix(rng, shape, dtype):
    x = rng.uniform(-1, 1, shape)
    return (x + 1j * rng.uniform(-1, 1, shape) if np.issubdtype(dtype, np.complexfloating) else x).astype(dtype)


def processor_flags():
    lines = pathlib.Path("/proc/cpuinfo").read_text().splitlines()
    return set(next(line for line in lines if line.startswith("flags")).split())


# Their code in the sink's environment, and what they need; the best ones first.
TIERS = {"avx512": ("7", "avx512f avx512dq avx512bw avx512vl"), "avx512_zel": ("6", "avx512f avx512cd"),
         "avx2": ("5", "avx2 fma bmi1 bmi2 abm"), "avx": ("4", "avx"), "mc3": ("3", "sse4_2"), "mc": ("2", "ssse3"),
         "def": ("0", "sse2")}
RUNNING_TIERS = [name for name, (_, features) in TIERS.items() if processor_flags().issuperset(features.split())]


def children_of(pid):
    return [int(child) for child in pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def cpu_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def wait_for(condition, seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "nothing happened for too long"
        time.sleep(0.01)


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_tool(self, *arguments, status=0, **settings):
        done = subprocess.run(command(*arguments), env={**os.environ, **settings}, capture_output=True, text=True,
                              timeout=120)
        self.assertEqual(done.returncode, status, (arguments, done.stdout, done.stderr))
        return done

    def report(self, *arguments, **settings):
        return json.loads(self.run_tool(*arguments, "--json", **settings).stdout)

    def save(self, name, matrix):
        np.save(self.folder / name, matrix)
        return self.folder / name

    def assert_refused(self, culprit, *arguments):
        """Exit status 2, one line with the culprit in it, and the folder as it was."""
        before = sorted(os.listdir(self.folder))
        done = self.run_tool(*arguments, status=2)
        self.assertEqual(done.stdout, "", arguments)
        self.assertRegex(done.stderr, r"\Atev-offload: [^\n]+\n\Z", arguments)
        self.assertIn(culprit, done.stderr, arguments)
        self.assertEqual(sorted(os.listdir(self.folder)), before)


class Files(ToolTest):
    def test_products_agree_with_numpy_in_every_layout(self):
        m, n, k = 37, 29, 41
        rng = np.random.default_rng(5)
        layouts = {"fortran": np.asfortranarray, "c": np.ascontiguousarray,
                   "big-endian": lambda x: x.astype(x.dtype.newbyteorder(">"))}
        for letter, dtype in DTYPES.items():
            a, b, c = (random_matrix(rng, shape, dtype) for shape in ((k, m), (k, n), (m, n)))
            wide = [x.astype(np.clongdouble if letter in "cz" else np.longdouble) for x in (a, b, c)]
            expected = 1.5 * (wide[0].conj().T @ wide[1]) - 0.5 * wide[2]
            roundings = (2 * k + 8 if letter in "cz" else k + 4) * np.finfo(dtype).eps / 2
            sums = 1.5 * modulus(wide[0]).T @ modulus(wide[1]) + 0.5 * modulus(wide[2])
            bound = roundings / (1 - roundings) * sums
            for layout, change in layouts.items():
                with self.subTest(precision=letter, layout=layout):
                    files = [self.save(f"{name}.npy", change(x)) for name, x in zip("abc", (a, b, c))]
                    out = self.folder / "out.npy"
                    report = self.report("run", "gemm", "--a", files[0], "--b", files[1], "--c", files[2], "--transa",
                                         "c", "--alpha=1.5", "--beta", "-0.5", "--out", out, "--check")
                    self.assertEqual((report["m"], report["n"], report["k"]), (m, n, k))
                    self.assertTrue(report["check"]["passed"])
                    result = np.load(out)
                    self.assertEqual((result.dtype, result.flags.f_contiguous), (dtype, True))
                    error = result - expected
                    self.assertTrue((np.maximum(np.abs(error.real), np.abs(error.imag)) <= bound).all())

    def test_one_triangular_solve_round_trip(self):
        """B := A X by NumPy, then the tool finds X again, over the file that B came from."""
        rng = np.random.default_rng(6)
        a = np.tril(rng.uniform(-1, 1, (50, 50))) + 50 * np.eye(50)
        x = rng.uniform(-1, 1, (20, 50))
        lower = a.copy()
        lower[np.triu_indices(50, 1)] = np.nan
        b = self.save("b.npy", x @ a.T)
        self.run_tool("run", "trsm", "--side", "R", "--uplo", "L", "--transa", "T", "--a", self.save("a.npy", lower),
                      "--b", b, "--out", b, "--repeat", "3", "--check")
        np.testing.assert_allclose(np.load(b), x, rtol=1e-12, atol=1e-14)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.npy", "b.npy"])

    def test_wrong_files_are_named(self):
        a = self.save("a.npy", np.ones((3, 4)))
        b = self.save("b.npy", np.ones((5, 6)))
        single = self.save("single.npy", np.ones((4, 6), np.float32))
        text = self.folder / "line\nbreak.npy"
        text.write_text("no matrix")
        out = ("--out", self.folder / "out.npy")
        for culprit, *operands in (("b.npy: is 5 x 6", "gemm", "--a", a, "--b", b),
                                   ("single.npy: holds float32", "gemm", "--a", a, "--b", single),
                                   ("break.npy: is not a .npy file", "gemm", "--a", text, "--b", b),
                                   ("none.npy: cannot be opened", "gemm", "--a", self.folder / "none.npy", "--b", b),
                                   ("a.npy: is 3 x 4", "trsm", "--a", a, "--b", b),
                                   ("a.npy: is 3 x 4", "symm", "--a", a, "--b", a, "--side", "R"),
                                   ("--b: is missing", "gemm", "--a", a),
                                   ("--precision s", "gemm", "--a", a, "--b", b, "--precision", "s"),
                                   ("-m 4", "gemm", "--a", a, "--b", a, "--transb", "T", "-m", "4"),
                                   ("--c: is missing", "gemm", "--a", a, "--b", a, "--transb", "T", "--beta", "2")):
            self.assert_refused(culprit, "run", *operands, *out)
        self.assert_refused("no-folder", "run", "gemm", "--out", self.folder / "no-folder" / "out.npy")
        self.assert_refused("/dev/null", "run", "gemm", "--out", "/dev/null")


class Options(ToolTest):
    def test_wrong_options_are_named(self):
        for culprit, *arguments in (("subcommand",), ("gem", "run", "gem"), ("operation", "run"),
                                    ("-m", "run", "gemm", "-m", "x"), ("-m '-5'", "run", "gemm", "-m", "-5"),
                                    ("-n", "run", "gemm", "-n", "9" * 20), ("--seed", "run", "gemm", "--seed", "-1"),
                                    ("--alpha", "run", "gemm", "--alpha="), ("--out", "run", "gemm", "--out", ""),
                                    ("--side 'X'", "run", "trsm", "--side", "X"),
                                    ("--transb", "run", "trmm", "--transb", "T"), ("-k", "run", "symm", "-k", "5"),
                                    ("-m", "run", "syrk", "-m", "5"), ("--out", "run", "laswp", "--out", "x"),
                                    ("-k 9: must not be greater than 8", "run", "lu_step", "-m", "8", "-k", "9"),
                                    ("complex syrk", "run", "syrk", "--transa", "C", "--precision", "z"),
                                    ("--alpha", "run", "gemm", "--alpha", "1,2"), ("--foo", "run", "gemm", "--foo"),
                                    ("processor 0", "run", "gemm", "--pin", "0-1"),
                                    ("processor 1024", "run", "gemm", "--pin", "1024"),
                                    ("--threads", "run", "gemm", "--threads", "0"),
                                    ("--repeat", "run", "gemm", "--repeat", "0"),
                                    ("--sizes", "bench", "--sizes", "1:2"),
                                    ("memory", "run", "gemm", "-m", "99999999999", "-n", "99999999999")):
            self.assert_refused(culprit, *arguments)
        done = subprocess.run([TOOL, "info"], env={"TEV_SINK": "/nowhere/sink"}, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr.count("\n")), (2, 1))
        self.assertIn("/nowhere/sink: cannot be started", done.stderr)

    def test_threads_and_pinning_reach_the_sink(self):
        self.assertEqual(self.report("info", "--threads", "3")["sink"]["threads"], 3)
        allowed = sorted(os.sched_getaffinity(0) - {0})
        if allowed:
            pinned = self.report("info", "--pin", ",".join(map(str, allowed)))
            self.assertEqual(pinned["sink"]["threads"], len(allowed))

    def test_tier_reaches_the_sink(self):
        """A stand-in tells the environment it was started with, and ends."""
        sink = self.folder / "sink"
        sink.write_text(f"#!/bin/sh\nenv > {self.folder}/environment\n")
        sink.chmod(0o755)

        def processor_type(*arguments, **settings):
            clean = {k: v for k, v in os.environ.items() if not k.startswith("TEV_")}
            done = subprocess.run([TOOL, "info", "--sink", sink, *arguments], env={**clean, **settings},
                                  capture_output=True, text=True, timeout=60)
            self.assertEqual(done.returncode, 1, done.stderr)
            values = [line.partition("=")[2] for line in (self.folder / "environment").read_text().splitlines()
                      if line.startswith("TEV_DEBUG_CPU_TYPE=")]
            return values[0] if values else None

        for name, (code, _) in TIERS.items():
            if name in RUNNING_TIERS:
                self.assertEqual(processor_type("--tier", name, TEV_DEBUG_CPU_TYPE="1"), code)
            else:
                self.assert_refused(f"--tier {name}: this machine lacks", "info", "--tier", name)
        self.assert_refused("--tier 'fast'", "info", "--tier", "fast")
        for tier in ("auto", "detect"):
            self.assertEqual(processor_type("--tier", tier, TEV_DEBUG_CPU_TYPE="2"), "2")
            self.assertIsNone(processor_type("--tier", tier))

    def test_tier_auto_vouches_for_the_processor(self):
        """What the features allow runs, ceilings and branches count; detection alone knows one maker's only."""
        if "avx2" not in RUNNING_TIERS or "pclmulqdq" not in processor_flags() or "avx512er" in processor_flags():
            self.skipTest("needs AVX2, and knows the plain tiers only")

        def facts(tier, **settings):
            return self.report("info", "--tier", tier, **settings)["sink"]

        self.assertEqual(facts("auto")["tier"], "avx512" if "avx512" in RUNNING_TIERS else "avx2")
        self.assertEqual(facts("auto", TEV_ENABLE_INSTRUCTIONS="AVX")["tier"], "avx")
        self.assertEqual(facts("auto", TEV_CBWR="AVX2")["reproducibility"], "AVX2")
        self.assertEqual(facts("auto", TEV_DEBUG_CPU_TYPE="3")["tier"], "mc3")
        if facts("auto")["maker"] != "own":
            self.assertEqual(facts("detect")["tier"], "def")

    def test_unwritable_output_is_a_failure(self):
        out, matrix = self.folder / "out.npy", 8 * 100 * 100  # bytes; a file has a header, too
        product = ("run", "gemm", "-m", 100, "-n", 100, "-k", 100, "--out", out)
        for culprit, stdout, largest, *arguments in (
                ("cannot write the output: No space left", "/dev/full", resource.RLIM_INFINITY, "info"),
                ("cannot write the output: File too large", self.folder / "text", 10, "--version"),
                ("out.npy: cannot be written: File too large", "/dev/null", matrix, *product)):
            with self.subTest(culprit), open(stdout, "w") as output:
                limit = (largest, resource.RLIM_INFINITY)
                done = subprocess.run(command(*arguments), stdout=output, stderr=subprocess.PIPE, text=True, timeout=60,
                                      preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, limit))
                self.assertEqual(done.returncode, 1, done.stderr)
                self.assertIn(culprit, done.stderr)
        self.assertFalse(out.exists())

    def test_memory_is_reckoned_before_it_is_taken(self):
        """What one more row or column takes, against what a refusal says of it."""
        def peak(*arguments):
            tool = subprocess.Popen(command(*arguments), stdout=subprocess.DEVNULL)
            _, tool.returncode, usage = os.wait4(tool.pid, 0)
            self.assertEqual(tool.returncode, 0)
            return usage.ru_maxrss * 1024

        huge = 10**11
        for size, *arguments in (("-m", "gemm", "-n", 30, "-k", 100), ("-n", "trsm", "-m", 100)):
            with self.subTest(arguments):
                arguments = ("run", *arguments, "--check", size)
                refusal = self.run_tool(*arguments, huge, status=2).stderr
                reckoned = float(re.search(r"needs ([\d.e+]+) GB", refusal)[1]) * 1e9 / huge
                taken = (peak(*arguments, 100000) - peak(*arguments, 50000)) / 50000
                self.assertLess(taken, 1.2 * reckoned)  # an address sanitizer takes an eighth more


class Computing(ToolTest):
    def test_checks_pass_for_all_operations_and_precisions(self):
        options = {"gemm": ("-k", 45, "--transa", "C", "--transb", "T", "--beta", "0.5"),
                   "symm": ("--side", "R", "--uplo", "L", "--beta", "0.5"),
                   "trmm": ("--side", "R", "--transa", "C", "--diag", "U"),
                   "trsm": ("--uplo", "L", "--transa", "C"),
                   "gemm_step": ("-k", 45, "--transa", "C", "--beta", "0.5"), "trsm_step": ("--side", "R"),
                   "syrk": ("-k", 45, "--uplo", "L", "--transa", "T", "--beta", "0.5"),
                   "larfb": ("-k", 33, "--side", "R", "--transa", "C", "--direct", "B", "--storev", "R"),
                   "laswp": ("-k", 33), "lu_step": ("-k", 33)}
        for operation in options:
            for letter in DTYPES:
                with self.subTest(operation=operation, precision=letter):
                    sizes = ("-n", 77) if operation == "syrk" else ("-m", 130, "-n", 77)
                    alpha = () if operation in ("larfb", "laswp", "lu_step") else (
                        "--alpha", "-1.5,2" if letter in "cz" else "-1.5")
                    report = self.report("run", operation, "--precision", letter, *sizes, *alpha, "--check",
                                         "--repeat", 2, *options[operation])
                    self.assertTrue(report["check"]["passed"])
                    self.assertGreater(report["gbytes_per_second" if operation == "laswp" else "gflops"], 0)
                    self.assertTrue(0 < report["busy_share"] <= 1, report)

    def test_empty_problems(self):
        for arguments in (("gemm", "-m", 0), ("gemm", "-k", 0, "--beta", "2"), ("trsm", "-n", 0), ("symm", "-m", 0),
                          ("syrk", "-n", 0)):
            self.run_tool("run", *arguments, "--check", "--out", self.folder / "out.npy")
        for step in ("laswp", "lu_step", "larfb"):
            for size in ("-m", "-n", "-k"):
                self.run_tool("run", step, size, 0, "--check")

    def test_pictures_of_speeds(self):
        picture, page = pathlib.Path(self.folder, "speeds.svg"), pathlib.Path(self.folder, "speeds.html")
        self.run_tool("bench", "--op", "gemm,syrk,lu", "--precision", "s,d", "--sizes", "40,80", "--repeat", 1,
                      "--threads", 1, "--report", page)
        text = page.read_text()
        drawings = [ElementTree.fromstring(svg) for svg in re.findall("<svg.*?</svg>", text, re.S)]
        self.assertEqual(len(drawings), 6)
        self.assertTrue(all("100 %" in "".join(svg.itertext()) for svg in drawings), "percent of peak")
        self.assertEqual(text.count("<th>libtevblas</th>"), 4, "factorizations are none of its")
        self.assertFalse(re.findall("(src|href)=", text), "a page that needs others")
        self.run_tool("bench", "--op", "laswp", "--sizes", 40, "--plot", picture)
        self.assertIn("GB/s", "".join(ElementTree.parse(picture).getroot().itertext()))
        self.assert_refused("--plot", "bench", "--op", "gemm,trsm", "--plot", picture)
        self.assert_refused("nothing", "bench", "--op", "gemm,nothing", "--report", page)
        self.assert_refused("/nowhere", "bench", "--plot", "/nowhere/at/all.svg")

    def test_the_manual_has_every_command_and_option(self):
        manual = pathlib.Path(__file__).parents[2].joinpath("docs/man/tev-offload.1").read_text().replace("\\-", "-")

        def named_in_help(pattern, *arguments):
            text = subprocess.run([TOOL, *arguments, "--help"], capture_output=True, text=True, check=True).stdout
            found = re.findall(pattern, text, re.M)
            self.assertTrue(found, text)
            return found

        for command in named_in_help(r"^  ([a-z]+)  "):
            self.assertIn(command, manual)
            for option in named_in_help(r"^  (?:-h,)?(--?[a-z][-a-z]*)", command):
                self.assertTrue(option == "--help" or option in manual, f"docs/man/tev-offload.1 lacks {command} {option}")

    def test_bench_and_demo(self):
        rows = self.report("bench", "--op", "trmm", "--sizes", "50,100:200:50")["rows"]
        self.assertEqual([row["size"] for row in rows], [50, 100, 150, 200])
        table = self.run_tool("bench", "--sizes", "60,70", "--repeat", 1).stdout.splitlines()
        self.assertEqual([line.split()[0] for line in table[-2:]], ["60", "70"])
        self.assertIn("GB/s", self.run_tool("bench", "--op", "laswp", "--sizes", 60).stdout)
        demo = self.run_tool("demo").stdout
        self.assertEqual(demo.count("passed"), 16)


class Systems(ToolTest):
    def test_residuals_pass_with_a_sink_and_without(self):
        shapes = {"lu": ("-m", 540, "-n", 600), "cholesky": ("-n", 530), "qr": ("-m", 600, "-n", 520),
                  "solve": ("-n", 530, "--rhs", 3), "lstsq": ("-m", 600, "-n", 520, "--rhs", 2)}
        for index, (task, shape) in enumerate(shapes.items()):
            for where in ("sink", "here"):
                letter = "sdcz"[(index + (where == "here")) % 4]
                with self.subTest(task=task, where=where, precision=letter):
                    report = self.report("run", task, *shape, "--where", where, "--precision", letter, "--check")
                    self.assertTrue(report["passed"] and report["residuals"], report)
                    self.assertEqual(report["busy_share"] > 0, where == "sink")

    def test_factors_are_what_numpy_users_expect(self):
        rng = np.random.default_rng(10)
        wide = rng.uniform(-1, 1, (40, 60)) + 1j * rng.uniform(-1, 1, (40, 60))
        products = {"lu": (wide, lambda f: (wide[f["perm"]], f["L"] @ f["U"])),
                    "qr": (wide.T, lambda f: (wide.T, f["Q"] @ f["R"])),
                    "cholesky": (wide @ wide.conj().T, lambda f: (wide @ wide.conj().T, f["L"] @ f["L"].conj().T))}
        for task, (matrix, product) in products.items():
            path = self.folder / "factors.npz"
            self.run_tool("run", task, "--a", self.save("a.npy", matrix), "--factors", path)
            self.assertIsNone(zipfile.ZipFile(path).testzip())
            factors = dict(np.load(path))
            np.testing.assert_allclose(*product(factors), rtol=1e-12, atol=1e-12)
            if task == "lu":
                rows = np.arange(40)
                for i, j in enumerate(factors["piv"]):
                    rows[[i, j]] = rows[[j, i]]
                self.assertTrue((rows == factors["perm"]).all())

    def test_trace_has_what_both_sides_did(self):
        path = self.folder / "trace.json"
        self.run_tool("run", "solve", "-n", 640, "--host-threads", 2, "--threads", 1, "--trace", path, "--check")
        events = json.loads(path.read_text())["traceEvents"]
        named = {(e["pid"], e["tid"]) for e in events if e["name"] == "thread_name"}
        tracks = {}
        for event in events:
            if event["ph"] == "X":
                self.assertIn((event["pid"], event["tid"]), named)
                self.assertGreaterEqual(event["dur"], 0)
                tracks.setdefault((event["pid"], event["tid"]), []).append(event)
        for track in tracks.values():  # one thing after the other
            track.sort(key=lambda e: e["ts"])
            for before, after in zip(track, track[1:]):
                self.assertLessEqual(before["ts"] + before["dur"], after["ts"] + 0.01, (before, after))
        phases = {e["name"]: e for e in tracks[1, 0]}
        computing = phases["this process and the sink compute"]
        self.assertIn("solving", phases)
        for track, steps in tracks.items():
            if track != (1, 0):
                self.assertLessEqual(computing["ts"], steps[0]["ts"], track)
                self.assertLessEqual(steps[-1]["ts"] + steps[-1]["dur"], computing["ts"] + computing["dur"] + 1000, track)
        self.assertEqual({e["cat"] for e in tracks[2, 1]}, {"update"})
        self.assertEqual([e["name"] for e in tracks[1, 1] if e["cat"] == "panel"], [f"panel {i}" for i in range(10)])

    def test_tables_have_shares(self):
        for where, threads in (("sink", 1), ("here", 2)):
            small, large = self.report("bench", "--op", "lu", "--where", where, "--host-threads", threads, "--sizes",
                                       "100,600")["rows"]
            self.assertEqual((small["where"], large["where"]), ("here", where))
            self.assertIsNone(small["panel_share"])
            self.assertTrue(0 < large["panel_share"] < 1 and 0 < large["update_share"] < 1, large)
        self.assertIn("too small for a sink", self.run_tool("run", "qr", "-n", 100).stdout)

    def test_singular_matrices_are_told(self):
        a = np.random.default_rng(9).uniform(-1, 1, (30, 30))
        b, out = self.save("b.npy", np.ones((30, 1))), self.folder / "out.npy"
        near = a.copy()
        near[:, 7] = near[:, 3] + 1e-15 * near[:, 5]
        zero = a.copy()
        zero[:, 7] = 0
        self.assertIn("singular to working precision",
                      self.run_tool("run", "solve", "--a", self.save("a.npy", near), "--b", b).stderr)
        for task, culprit in (("solve", "pivot 8 is zero"), ("lstsq", "column 8")):
            done = self.run_tool("run", task, "--a", self.save("a.npy", zero), "--b", b, "--out", out, status=1)
            self.assertIn(culprit, done.stderr)
        self.assertIn("order 1 ", self.run_tool("run", "cholesky", "--a", self.save("a.npy", -np.eye(3)), status=1).stderr)
        self.assertFalse(out.exists())

    def test_wrong_requests_are_named(self):
        wide, short = self.save("wide.npy", np.ones((3, 4))), self.save("short.npy", np.ones((2, 1)))
        for culprit, *arguments in (("wide.npy: is 3 x 4", "solve", "--a", wide, "--b", short),
                                    ("wide.npy: is 3 x 4", "lstsq", "--a", wide, "--b", short),
                                    ("short.npy: has 2 rows", "lstsq", "--a", self.save("tall.npy", np.ones((4, 3))),
                                     "--b", short),
                                    ("--b: is missing", "solve", "--a", wide), ("--uplo", "lu", "--uplo", "U"),
                                    ("--where 'there'", "lu", "--where", "there"), ("--rhs", "qr", "--rhs", "2"),
                                    ("--rhs", "gemm", "--rhs", "2"), ("--pin", "lu", "--pin", "1"),
                                    ("--threads", "lu", "--where", "here", "--threads", "2"),
                                    ("--trace", "gemm", "--trace", "t.json"), ("memory", "lu", "-n", "99999999")):
            self.assert_refused(culprit, "run", *arguments)

    def test_a_sink_that_dies_is_made_up_for(self):
        tool = subprocess.Popen(command("run", "solve", "-n", 1000, "--check", "--repeat", 200), stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)
        wait_for(lambda: children_of(tool.pid) and cpu_seconds(children_of(tool.pid)[0]) > 0.2)
        os.kill(children_of(tool.pid)[0], signal.SIGKILL)
        text, errors = tool.communicate(timeout=120)
        self.assertEqual(tool.returncode, 0, errors)
        self.assertIn("started again in this process", errors)
        self.assertIn("check  passed", text)


class Death(ToolTest):
    def start(self, *arguments, **options):
        tool = subprocess.Popen(command("run", *arguments, "--repeat", 1000000, "--out", self.folder / "out.npy"),
                                stdout=subprocess.PIPE, text=True, **options)
        self.addCleanup(tool.stdout.close)
        self.addCleanup(tool.kill)
        return tool

    def test_killed_sink_ends_the_tool_within_a_second(self):
        """Whatever else keeps the processors busy, one of several times."""
        for _ in range(8):
            tool = self.start("gemm", "--json", stderr=subprocess.PIPE)
            wait_for(lambda: children_of(tool.pid))
            sink, = children_of(tool.pid)
            wait_for(lambda: cpu_seconds(sink) > 0.5)  # the request is under way: starting takes far less
            os.kill(sink, signal.SIGKILL)
            killed = time.monotonic()
            stdout, stderr = tool.communicate(timeout=60)
            seconds = time.monotonic() - killed
            self.assertEqual((tool.returncode, stdout), (1, ""))
            self.assertRegex(stderr, r"\Atev-offload: the sink \(process \d+\) [^\n]+\n\Z")
            self.assertEqual(os.listdir(self.folder), [])
            if seconds < 1:
                return
        self.fail(f"took {seconds} s and never less than one")

    def test_terminal_sees_progress_and_an_interrupt_leaves_nothing(self):
        for arguments in (("gemm",), ("lu", "-n", 600), ("lu", "-n", 600, "--where", "here")):
            with self.subTest(arguments):
                ours, theirs = pty.openpty()
                tool = self.start(*arguments, stderr=theirs)
                os.close(theirs)
                shown = b""
                while b"compu" not in shown:
                    shown += os.read(ours, 200)
                sinks = children_of(tool.pid)
                tool.send_signal(signal.SIGINT)
                self.assertEqual(tool.wait(60), -signal.SIGINT)
                while select.select([ours], [], [], 0)[0]:
                    try:
                        shown += os.read(ours, 200)
                    except OSError:  # nobody has the other end
                        break
                os.close(ours)
                self.assertTrue(shown.endswith(b"\r\x1b[K"), f"{shown!r} is still there")
                self.assertEqual([name for name in os.listdir("/dev/shm") if str(tool.pid) in name], [])
                self.assertEqual(os.listdir(self.folder), [])
                for sink in sinks:
                    wait_for(lambda: not os.path.exists(f"/proc/{sink}"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
