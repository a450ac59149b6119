# SPDX-License-Identifier: BSD-3-Clause
"""The installed tree, moved to another place: programs built against it by pkg-config, its CMake package and FindBLAS; the
tool, which must find its sink and libraries; what `status` says of all this.

    install_test.py BUILD CMAKE
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD, CMAKE = sys.argv[1:3]
PROGRAM = pathlib.Path(__file__).with_name("program.c")
CMAKE_PROJECT = """cmake_minimum_required(VERSION 3.25)
project(stranger C)
find_package(tevalon REQUIRED)
find_package(BLAS REQUIRED)
add_executable(by_package {source})
target_compile_definitions(by_package PRIVATE WITH_HEADERS)
target_link_libraries(by_package PRIVATE tevalon::tevblas tevalon::tev_offload dl)
add_executable(by_plain_name {source})
target_link_libraries(by_plain_name PRIVATE BLAS::BLAS dl)
"""
SONAMES = {"libtev.so.0", "libtev_offload.so.0", "libtevblas.so.0", "libtevblas64.so.0", "libtevlapack.so.0",
           "libtevlapack64.so.0", "libvro_device.so.0", "libvro_host.so.0", "libblas.so.3", "libblas64.so.3"}


def run(*command, **environment):
    """What it says; LD_LIBRARY_PATH and LD_PRELOAD are as given only."""
    clean = {name: value for name, value in os.environ.items() if not name.startswith("LD_")}
    done = subprocess.run([*map(str, command)], env={**clean, **environment}, capture_output=True, text=True)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(tempfile.mkdtemp())
        run(CMAKE, "--install", BUILD, "--prefix", cls.work / "first", "--strip")
        cls.prefix = (cls.work / "first").rename(cls.work / "moved")
        cls.libraries = next(cls.prefix.rglob("libtev.so.0")).parent
        cls.tool = cls.prefix / "bin/tev-offload"

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work)

    def expect_ours(self, program, library, **environment):
        *product, path = run(program, **environment).split()
        self.assertEqual((product, pathlib.Path(path).resolve().name), (["7", "10", "15", "22"], library), path)
        self.assertTrue(pathlib.Path(path).resolve().is_relative_to(self.prefix), path)

    def test_every_library_has_its_soname_and_knows_no_folder_of_the_build(self):
        seen = set()
        for file in self.prefix.rglob("lib*.so.*"):
            text = run("readelf", "-d", file)
            seen.add(text.split("soname: [")[1].split("]")[0])
            self.assertNotIn(BUILD, text, file)
        self.assertLessEqual(SONAMES, seen)

    def test_pkg_config(self):
        found = {"PKG_CONFIG_PATH": str(self.libraries / "pkgconfig")}
        for name in ("tev", "tevblas", "tevblas64", "tev_offload", "tev_check", "vro_host", "vro_device"):
            run("cc", PROGRAM, "-c", "-o", self.work / "object.o", *run("pkg-config", "--cflags", name, **found).split())
            self.assertIn(f"-l{name}", run("pkg-config", "--libs", name, **found))
        flags = run("pkg-config", "--cflags", "--libs", "tevblas", **found).split()
        program = self.work / "by_pkg_config"
        run("cc", "-DWITH_HEADERS", PROGRAM, "-o", program, *flags, f"-Wl,-rpath,{self.libraries}")
        self.expect_ours(program, "libtevblas.so.0")

    def test_cmake(self):
        (self.work / "CMakeLists.txt").write_text(CMAKE_PROJECT.format(source=PROGRAM))
        run(CMAKE, "-S", self.work, "-B", self.work / "build", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_LIBRARY_PATH={self.libraries}/tevblas", "-DCMAKE_C_COMPILER=cc", CMAKE_C_COMPILER_LAUNCHER="")
        run(CMAKE, "--build", self.work / "build")
        self.expect_ours(self.work / "build/by_package", "libtevblas.so.0")
        calls = self.work / "calls.txt"
        self.expect_ours(self.work / "build/by_plain_name", "libblas.so.3", TEVBLAS_OFFLOAD="always",
                         TEVBLAS_THRESHOLD="0", TEVBLAS_TRACE=str(calls))
        self.assertIn("where=sink", calls.read_text())

    def test_the_tool_finds_what_it_needs(self):
        sink = json.loads(run(self.tool, "info", "--json"))["sink"]["executable"]
        self.assertEqual(sink, str(self.prefix / "libexec/tev_sink"))
        self.assertIn("passed", run(self.tool, "run", "gemm", "-m", 60, "--check"))
        run(self.tool, "bench", "--sizes", 30, "--repeat", 1, "--plot", self.work / "plot.svg")
        self.assertIn("libtevblas", (self.work / "plot.svg").read_text())

    def test_status(self):
        ours = {"LD_LIBRARY_PATH": str(self.libraries / "tevblas")}
        numpy = run(self.tool, "status", "/usr/bin/python3")
        self.assertIn("another library", numpy)
        self.assertIn("_multiarray_umath", numpy)
        for program in ((), ("/usr/bin/python3",)):
            text = run(self.tool, "status", *program, **ours)
            self.assertIn("libblas.so.3: this library", text)
            self.assertIn("because        LD_LIBRARY_PATH", text)
        preloaded = run(self.tool, "status", "/usr/bin/python3", LD_PRELOAD=str(self.libraries / "libtevblas.so.0"))
        self.assertIn("libtevblas.so.0: this library", preloaded)
        self.assertIn("because        LD_PRELOAD", preloaded)
        self.assertIn("no BLAS by itself", run(self.tool, "status", "/bin/true"))
        script = self.work / "script"
        script.write_text("#!/usr/bin/env /usr/bin/python3\n")
        script.chmod(0o755)
        self.assertIn("_multiarray_umath", run(self.tool, "status", script))
        module, own = self.work / "module.so", self.work / "package.libs"
        own.mkdir()
        run("cc", "-shared", "-x", "c", "/dev/null", "-o", own / "libx_openblas-1.so")
        run("cc", "-shared", "-x", "c", "/dev/null", "-x", "none", "-o", module, "-Wl,--no-as-needed",
            own / "libx_openblas-1.so", "-Wl,-rpath,$ORIGIN/package.libs")
        brought = run(self.tool, "status", module, LD_PRELOAD=str(self.libraries / "libtevblas.so.0"))
        self.assertIn("libx_openblas-1.so: another library", brought)
        wrong = subprocess.run([self.tool, "status", "no such program"], capture_output=True, text=True)
        self.assertEqual((wrong.returncode, wrong.stdout), (2, ""))


unittest.main(argv=sys.argv[:1] + sys.argv[3:])
