#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Programs that know nothing of this library run on it: the test programs of the reference BLAS, of LAPACK and of
ScaLAPACK, and what people use. A line for each program, a word for each way of running it; what fails shows its output's
end, and the whole of it stays in the build's clients/.

  clients.py [--build FOLDER] [--ways REGEX] [PROGRAM-REGEX]
"""
import argparse
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
from typing import Callable, NamedTuple

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
BUILD = ROOT / "build/release"  # unless the command line names another
DEBIAN = pathlib.Path("/usr/lib/x86_64-linux-gnu")
PATIENCE = 600  # seconds for one command
MARK = "TEV_CLIENTS_RUN"


class Way(NamedTuple):
    """A way of running programs."""
    name: str
    settings: dict[str, str] = {}
    kills: bool = False  # every sink, again and again


class Part(NamedTuple):
    """A command of a program."""
    name: str
    command: list[str]
    input: pathlib.Path | None = None
    prepare: Callable[[], None] = lambda: None  # in the folder in which the command will run
    settings: dict[str, str] = {}
    failed: str = ""  # besides the program's


class Program(NamedTuple):
    name: str
    links: str           # pattern below /usr: a file that must find this library; or nothing
    passed: str          # in the output of each part
    failed: str          # nowhere there
    parts: list[Part]
    tiers: bool = False  # runs on each tier, with one thread and two


# Each tier, the setting that forces it, and what the processor must have.
TIERS = (("def", "TEV_DEBUG_CPU_TYPE=0", "sse2"), ("cnr_def", "TEV_CBWR=COMPATIBLE", "sse2"),
         ("mc", "TEV_DEBUG_CPU_TYPE=2", "ssse3"), ("mc3", "TEV_DEBUG_CPU_TYPE=3", "sse4_2"),
         ("avx", "TEV_DEBUG_CPU_TYPE=4", "avx"), ("avx2", "TEV_DEBUG_CPU_TYPE=5", "avx2 fma"),
         ("avx512_zel", "TEV_DEBUG_CPU_TYPE=6", "avx512f avx512cd"),
         ("avx512", "TEV_DEBUG_CPU_TYPE=7", "avx512f avx512dq avx512bw avx512vl"))


def this_library() -> pathlib.Path:
    return BUILD / "lib/blas"


def ways() -> list[Way]:
    flags = set(re.search("^flags.*", pathlib.Path("/proc/cpuinfo").read_text(), re.M)[0].split())
    found = [Way("best")]  # with the threads that the library chooses
    for tier, setting, needed in TIERS:
        if flags.issuperset(needed.split()):
            found += [Way(f"{tier}/{n}", dict([setting.split("=")], OMP_NUM_THREADS=str(n))) for n in (1, 2)]
    always = {"OMP_NUM_THREADS": "1", "TEVBLAS_OFFLOAD": "always", "TEVBLAS_THRESHOLD": "0",
              "LD_PRELOAD": str(BUILD / "lib/libtevlapack.so.0")}  # factorizations go, too
    return found + [Way("offloaded", always), Way("killed", always, kills=True)]


def level_testers() -> list[Part]:
    folder, parts = DEBIAN / "blas", []
    for p in "sdcz":
        for level in "123":
            fortran, c = folder / f"{p}blat{level}.in", folder / f"{p}in{level}"
            parts += [Part(f"xblat{level}{p}", [str(folder / f"xblat{level}{p}")], fortran if level > "1" else None),
                      Part(f"x{p}cblat{level}", [str(folder / f"x{p}cblat{level}")], c if level > "1" else None)]
    return parts


# These ask whether eigenvalues computed with and without vectors have the same bits (in nep.in: for ill-conditioned
# problems), and report by the number of that test: here the bits of an element of a product depend on the product's
# size, as docs/using.md tells.
SAME_BITS = {"nep": r"result +(?!8 )\d+ is", "ed": r"test\( *(?![57]\))\d+\)=", "gd": r"result +(?![57] )\d+ is"}


# One of thousands of problems, the same one everywhere, is too ill-conditioned for its tester, over OpenBLAS as well: a
# system in single precision; eigenvectors by inverse iteration, which rounding makes orthogonal or not.
ILL_CONDITIONED = {"xlintstrfs": "STFSM", "xlintstrfc": "CTFSM", "xeigtstc": "CST:"}


def lapack_testers() -> list[Part]:
    folder, parts = DEBIAN / "lapack", []

    def add(program: str, input: str, failed: str = "") -> None:
        if (folder / f"{input}.in").exists():
            counted = rf"^(?!.*{ILL_CONDITIONED.get(program, 'none')}.* 1 out of).*failed to pass"
            parts.append(Part(f"{program}-{input}", [str(folder / program)], folder / f"{input}.in",
                              failed=failed or counted))

    for p in "sdcz":
        add(f"xlintst{p}", f"{p}test")
        add(f"xlintstrf{p}", f"{p}test_rfp")
        for kind in ("nep", "sep", "se2", "svd", "glm", "gqr", "gsv", "csd", "lse"):
            add(f"xeigtst{p}", kind, SAME_BITS.get(kind, ""))
        for kind in ("ec", "ed", "gg", "gd", "sb", "sg", "bb", "bal", "bak", "gbal", "gbak"):
            add(f"xeigtst{p}", p + kind, SAME_BITS.get(kind, ""))
    add("xlintstds", "dstest")
    add("xlintstzc", "zctest")
    return parts


def mpi(ranks: int, *command: object) -> list[str]:
    return ["mpirun", "--oversubscribe", "-n", str(ranks), *map(str, command)]


SCALAPACK = DEBIAN / "scalapack/openmpi-tests"


# Two lines: rows of the grids, and their columns.
GRIDS = re.compile(r"^([\d \t]+)(values of P.*\n)([\d \t]+)(values of Q.*)$", re.M)


# One matrix that its tester cuts into blocks of one column, so that ranks call for each of them: that takes seconds over any
# BLAS, and through the sinks of four ranks on two processors an hour.
LARGE = re.compile(r"^500(?= +Matrix sizes)", re.M)


# The refinement of p?porfs and what estimates a condition beside it: over any BLAS, the reference's too, one of two ranks
# now and then goes on where the other stops, which MPI takes for an error or for ever.
DIVERGING = ("xsllt", "xdllt")
DIVERGES = re.compile(r"^T(?= .*Test Cond)", re.M)


def scalapack_inputs(tester: str, ranks: int) -> Callable[[], None]:
    """The testers' own, less large, with grids of all ranks instead of those that do not fit: some testers end there."""
    def fit(grids: re.Match[str]) -> str:
        fitting = [(p, q) if int(p) * int(q) <= ranks else ("1", str(ranks))
                   for p, q in zip(grids[1].split(), grids[3].split())]
        rows, columns = (" ".join(side) for side in zip(*fitting))
        return f"{rows} {grids[2]}{columns} {grids[4]}"

    def write() -> None:
        for path in (*SCALAPACK.glob("*.dat"), *(SCALAPACK / "PBLAS").glob("*.dat")):
            text = LARGE.sub("100", path.read_text(errors="replace"))
            if tester in DIVERGING and path.name == "LLT.dat":
                text = DIVERGES.sub("F", text)
            pathlib.Path(path.name).write_text(GRIDS.sub(fit, text))

    return write


# With four ranks these wait for one another for ever now and then, over the reference BLAS as well.
RANKS_PART = ("xsllt", "xdllt", "xcllt", "xzllt")


def scalapack_testers() -> list[Part]:
    programs = sorted(path for path in (*SCALAPACK.glob("x[sdcz]*"), *(SCALAPACK / "PBLAS").glob("?pb?tst")))
    return [Part(f"{path.name}-{ranks}", mpi(ranks, path), prepare=scalapack_inputs(path.name, ranks))
            for ranks in (4, 2, 1) for path in programs if ranks < 4 or path.name not in RANKS_PART]


# Single precision is asked for eight digits: whether that breaks down is decided by the last bit of the input, over the
# reference BLAS as well.
ILL_POSED = "not (x0_equals_Mb and bicgstab)"


def hpl_input(order: int, block: int, rows: int, columns: int) -> Callable[[], None]:
    # Two titles, the file and the device of the output (6: standard), sizes, blocks, mapping and grids, threshold; panels
    # factored by rows from the right, columns halved down to 4; broadcast and depth of lookahead; interchanges; forms of
    # L and U; equilibration, alignment. The rest is for the other tests of this program: nothing.
    fields = ["", "", "HPL.out", 6, 1, order, 1, block, 0, 1, rows, columns, 16.0, 1, 2, 1, 4, 1, 2, 1, 1, 1, 1, 1, 1, 2,
              64, 0, 0, 1, 8, "", 0, 0, 0, 0]
    return lambda: pathlib.Path("hpccinf.txt").write_text("".join(f"{field}\n" for field in fields))


def hpl(ranks: int, order: int = 1000, block: int = 128) -> Part:
    rows = 2 if ranks == 4 else 1
    return Part(f"hpl-{ranks}", mpi(ranks, "hpcc"), prepare=hpl_input(order, block, rows, ranks // rows))


def programs() -> list[Program]:
    numpy, scipy = (f"lib/python3/dist-packages/{module}.*.so" for module in ("numpy/linalg/_umath_linalg",
                                                                               "scipy/linalg/_fblas"))
    lapack = r"(?i)passed|Total number of examples|End of tests"
    # Some tests compare two results bit by bit: on a crowded machine, too, teams keep their size.
    steady = {"TEV_DYNAMIC": "FALSE"}
    pytest = ["/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", "--pyargs"]
    teams = [Part(f"{ranks}-{bound}", mpi(ranks, "--bind-to", bound, "/usr/bin/python3", HERE / "threads_of_ranks.py"))
             for ranks, bound in ((1, "none"), (2, "core"), (2, "none"), (4, "none"))]
    order = ["400", "1"]
    return [
        Program("reference BLAS testers", "lib/*/blas/xblat3d", "PASS", r"FAIL|SUSPECT|\*\*\*|ERROR(?!-EXIT)", level_testers(), True),
        Program("NumPy linalg", numpy, r"\d passed",
                r"\d failed|\d error", [Part("suite", [*pytest, "numpy.linalg"], settings=steady)]),
        Program("SciPy linalg", scipy, r"\d passed",
                r"\d failed|\d error", [Part("suite", [*pytest, "scipy.linalg"], settings=steady),
                                        Part("sparse", [*pytest, "scipy.sparse.linalg._isolve", "scipy.sparse.linalg._dsolve",
                                                        "-k", ILL_POSED], settings=steady)]),
        Program("Octave", "lib/*/octave/*/liboctave.so", "svd", "warning", [
            Part("operations", ["octave-cli", "--norc", "--quiet", str(HERE / "operations.m"), *order])]),
        Program("R", "lib/R/modules/lapack.so", "svd", "rror|arning", [
            Part("operations", ["Rscript", str(HERE / "operations.R"), *order])]),
        Program("threadpoolctl", numpy, "OK", "FAIL",
                [Part("limits", ["/usr/bin/python3", str(HERE / "threadpool_test.py")],
                      settings={"OMP_NUM_THREADS": "2"})]),
        Program("MPI: threads of ranks", "", "no more than processors", "more threads",
                teams),
        Program("HPL", "bin/hpcc", "PASSED", "FAILED", [hpl(1), hpl(2), hpl(4)]),
        Program("ScaLAPACK testers", "lib/*/scalapack/openmpi-tests/xdlu", "(?i)passed|End of tests",
                r"[1-9]\d* tests completed and failed|FAILED(?! +SKIPPED)",
                scalapack_testers()),
        Program("LAPACK testers", "lib/*/lapack/xlintstd", lapack, r"(?i)error exits.*failed|not valid", lapack_testers(),
                True),
    ]


def settings_of(way: Way, library: pathlib.Path | None = None) -> dict[str, str]:
    """`library`: a folder with a libblas.so.3, of another BLAS."""
    folders = f"{DEBIAN}/lapack:{library or this_library()}"
    mpi_settings = {"OMPI_ALLOW_RUN_AS_ROOT": "1", "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
                    "OMPI_MCA_btl_vader_single_copy_mechanism": "none", "OMPI_MCA_btl": "self,vader"}
    return {"PATH": "/usr/bin:/bin", "HOME": "/tmp", "LC_ALL": "C", "LD_LIBRARY_PATH": folders,
            "R_LD_LIBRARY_PATH": f"{folders}:/usr/lib/R/lib", **mpi_settings, **way.settings}


def sinks_of(mark: str) -> list[int]:
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if process.joinpath("comm").read_text() == "tev_sink\n" and mark in process.joinpath("environ").read_text():
                found.append(int(process.name))
        except OSError:  # it has ended
            pass
    return found


def kill_sinks(mark: str, stop: threading.Event) -> None:
    while not stop.wait(0.2):
        for process in sinks_of(mark):
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass


def run(program: Program, part: Part, way: Way) -> str:
    """Why it failed, or nothing."""
    folder = BUILD / "clients" / re.sub(r"\W+", "-", f"{program.name} {way.name} {part.name}")
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    os.chdir(folder)
    part.prepare()
    mark = f"{MARK}={folder.name}"
    stop = threading.Event()
    killer = threading.Thread(target=kill_sinks, args=(mark, stop))
    if way.kills:
        killer.start()
    with open(part.input or os.devnull, "rb") as given, open("output", "wb") as output:
        process = subprocess.Popen(part.command, stdin=given, stdout=output, stderr=subprocess.STDOUT,
                                   env=settings_of(way) | part.settings | dict([mark.split("=")]),
                                   start_new_session=True)
        try:
            status = f"exit status {process.wait(PATIENCE)}"
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            status = f"still running after {PATIENCE} s"
    stop.set()
    if way.kills:
        killer.join()
    text = "".join(path.read_text(errors="replace") for path in sorted(folder.iterdir()) if path.suffix != ".dat")
    bad = [line for line in text.splitlines() if any(re.search(p, line) for p in (program.failed, part.failed) if p)]
    if way.name == "offloaded":  # and everything was
        bad += re.findall("^libtevblas: .*", text, re.M)
    if status == "exit status 0" and not bad and re.search(program.passed, text):
        shutil.rmtree(folder)
        return ""
    return "\n".join(f"    {line}" for line in [f"{part.name}, {status}: {folder}", *(bad or text.splitlines())[-4:]])


def finds_this_library(program: Program) -> bool:
    if not program.links:
        return True
    file = next(pathlib.Path("/usr").glob(program.links))
    found = subprocess.run(["ldd", file], env=settings_of(Way("")), text=True, capture_output=True).stdout
    return f"{this_library()}/libblas.so.3" in found


def main() -> int:
    global BUILD
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=BUILD)
    parser.add_argument("--ways", default="", help="of running programs: best, def/1, avx2/2, offloaded, killed ...")
    parser.add_argument("programs", nargs="?", default="")
    asked = parser.parse_args()
    BUILD = asked.build.resolve()
    failures = 0
    for program in programs():
        if not re.search(asked.programs, program.name):
            continue
        print(f"{program.name:24}", end="", flush=True)
        complaints = [] if finds_this_library(program) else [f"    {program.links} does not find this library"]
        begin = time.monotonic()
        for way in ways():
            if not re.search(asked.ways, way.name) or "/" in way.name and not program.tiers:
                continue
            wrong = [why for part in program.parts if (why := run(program, part, way))]
            print(f" {way.name}{f': {len(wrong)} FAILED' if wrong else ''}", end="", flush=True)
            complaints += [f"  {way.name}:", *wrong[:5]] if wrong else []
        print(f"  {time.monotonic() - begin:.0f} s", *complaints, sep="\n" if complaints else "")
        failures += len(complaints)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
