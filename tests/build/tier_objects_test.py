# SPDX-License-Identifier: BSD-3-Clause
"""What keeps the tiers of kernels apart, checked on their objects: names, instructions, start-up code. And that a tier
exports what its list says, kernels/<tier>/symbols.txt.

    tier_objects_test.py SOURCE-FOLDER [--update] dispatch: OBJECT... TIER: OBJECT... TIER: ...

Instructions are checked by the assembler: everything that was disassembled must assemble again for the tier's
instruction set alone. --update writes kernels/<tier>/symbols.txt anew; read the difference before you commit it.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

VERSION1 = ["def", "cnr_def", "mc", "mc3", "avx"]
VERSION2 = ["avx2", "avx512_zel", "avx512"]
TIERS = VERSION1 + VERSION2

# What the assembler is allowed to know; generic64 has SSE2.
AVX2 = "+avx2+fma+bmi+bmi2+lzcnt"
LEVEL = {"def": "", "cnr_def": "", "mc": "+ssse3", "mc3": "+sse4.2", "avx": "+avx", "avx2": AVX2,
         "avx512_zel": AVX2 + "+avx512f+avx512cd",
         "avx512": AVX2 + "+avx512f+avx512cd+avx512dq+avx512bw+avx512vl"}
QFMA = "+avx512_4fmaps"  # in functions named so

# What a tier may need from outside.
UNDEFINED = {"tev_serv_allocate", "tev_serv_deallocate", "tev_serv_check_ptr_and_warn", "tev_serv_lock",
             "tev_serv_unlock", "tev_serv_trylock", "tev_serv_divbythreads", "tev_serv_divbythreadsnb",
             "tev_serv_divbythreadstr", "tev_serv_cpuisvesta", "tev_serv_cpuhalves512", "tev_barrier_wait",
             "getPointer_notrans", "getPointer_trans", "getPointer_buffer", "memcpy", "memset", "_GLOBAL_OFFSET_TABLE_"}

faults = []


def fault(text):
    faults.append(text)


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def symbols(objects):
    """(kind, name) of every symbol of the objects."""
    lines = run("nm", *objects).splitlines()
    return {tuple(line.split()[-2:]) for line in lines if len(line.split()) > 1}


def check_names(tier, objects):
    own = re.compile(rf"_Z(Z|T[VSI])?N[rVK]*3tev{len(tier)}{tier}[^a-z]")
    found = symbols(objects)
    strong = {name for kind, name in found if kind in "TDBRC"}
    for kind, name in sorted(found):
        if kind in "WVwvu" and not own.match(name):
            fault(f"{tier}: weak symbol of another tier or of none: {name}")
        if kind in "TDBRC" and not name.startswith(f"tev_blas_{tier}_"):
            fault(f"{tier}: strong symbol without the tier's name: {name}")
        if kind == "U" and name not in strong and name not in UNDEFINED and not own.match(name):
            fault(f"{tier}: needs {name}")
    for line in run("readelf", "-SW", *objects).splitlines():
        if re.search(r"\.(init_array|ctors|tdata|tbss)", line):
            fault(f"{tier}: code or data of start-up or of threads: {line.strip()}")
    return strong


def disassembled(objects):
    """(function, instruction) without what depends on the place in the object."""
    function = ""
    for line in run("objdump", "-d", "--no-show-raw-insn", *objects).splitlines():
        if line.endswith(">:"):
            function = line.split("<")[1][:-2]
        elif "\t" in line:
            text = re.sub(r"\s*(#.*|<[^>]*>.*)$", "", line.split("\t", 1)[1]).strip()
            # Branches, padding and BSF, whose longer form old processors read as BSF, are of every level.
            if text and not re.match(r"(j[a-z]+|call|ret|bnd|leave|int3|tzcnt|xchg +%ax,%ax)\b|.*\bnop", text):
                yield function, text


def check_instructions(tier, objects):
    where = {}
    for function, text in disassembled(objects):
        where.setdefault(("qfma" in function, text), function)
    for qfma in (False, True):
        lines = [text for (is_qfma, text) in where if is_qfma == qfma]
        with tempfile.NamedTemporaryFile("w", suffix=".s") as source:
            source.write("\n".join(lines) + "\n")
            source.flush()
            level = "generic64" + LEVEL[tier] + (QFMA if qfma else "")
            done = subprocess.run(["as", f"-march={level}", "-o", "/dev/null", source.name], capture_output=True, text=True)
        for number, text in re.findall(r"\.s:(\d+): Error: (.*)", done.stderr)[:20]:
            line = lines[int(number) - 1]
            fault(f"{tier}: above its level: {line} in {where[qfma, line]}: {text}")
    fused = any(text.startswith("vfm") for _, text in where)
    if fused != (tier in VERSION2):
        fault(f"{tier}: {'has' if fused else 'lacks'} fused multiply-adds")
    return len(where)


def check_reproducible_twin(strong):
    """cnr_def has def's routines, less what its s and z blocks have no use for."""
    spare = re.compile(r"[sz]gemm_(copy..|freebufs)_bdz$")
    plain = {name.removeprefix("tev_blas_def_") for name in strong["def"]}
    twin = {name.removeprefix("tev_blas_cnr_def_") for name in strong["cnr_def"]}
    for name in sorted(plain ^ twin):
        if not (name in plain and spare.match(name)):
            fault(f"in one of def and cnr_def only: {name}")


def check_list(source, tier, strong, update):
    path = source / "kernels" / tier / "symbols.txt"
    listed = "".join(name + "\n" for name in sorted(strong))
    if update:
        path.write_text(listed)
    elif not path.exists() or path.read_text() != listed:
        old = set(path.read_text().split()) if path.exists() else set()
        fault(f"{path.relative_to(source)} is not what the objects export; new {len(strong - old)}, "
              f"gone {len(old - strong)}: build the target update_kernel_symbols and look at the difference")


def check_trampolines(objects, entries):
    """Every entry point is a load, a test, a branch and a jump."""
    defined = {name for kind, name in symbols(objects) if kind == "T" and name.startswith("tev_blas_")}
    if defined != {f"tev_blas_{name}" for name in entries}:
        fault(f"dispatch: not the entry points: {sorted(defined ^ {f'tev_blas_{name}' for name in entries})}")
    code = {}
    for line in run("objdump", "-d", "--no-show-raw-insn", *objects).splitlines():
        if line.endswith(">:"):
            current = code.setdefault(line.split("<")[1][:-2], [])
        elif "\t" in line:
            current.append(line.split("\t", 1)[1].split()[0])
    for name in entries:
        if code.get(f"tev_blas_{name}", [])[:4] != ["mov", "test", "je", "jmp"]:
            fault(f"dispatch: tev_blas_{name} begins with {code.get(f'tev_blas_{name}', [])[:4]}")


def main(source, *arguments):
    source, update = pathlib.Path(source), "--update" in arguments
    objects = {}
    for argument in arguments:
        if argument.endswith(":"):
            current = objects.setdefault(argument[:-1], [])
        elif argument != "--update":
            current.append(argument)
    lists = ("entry_points.inc", "further_entry_points.inc")
    text = "".join((source / "kernels/dispatch" / name).read_text() for name in lists)
    entries = re.findall(r"^TEV_ENTRY\((\w+)\)", text, re.M)
    strong = {}
    for tier in TIERS:
        strong[tier] = check_names(tier, objects[tier])
        instructions = check_instructions(tier, objects[tier])
        check_list(source, tier, strong[tier], update)
        print(f"{tier}: {len(strong[tier])} routines, {instructions} different instructions")
    check_reproducible_twin(strong)
    check_trampolines(objects["dispatch"], entries)
    print(*faults, f"{len(faults)} faults", sep="\n")
    return 1 if faults else 0


sys.exit(main(*sys.argv[1:]))
