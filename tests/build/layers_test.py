# SPDX-License-Identifier: BSD-3-Clause
"""Who may include whom. A file includes only from its own layer or a lower one; service includes nothing above it;
contest, host, loopback, request_check and shim share only the public headers with the library and the sink. docs/architecture.md
draws the same table."""
import pathlib
import re
import sys

MAY_INCLUDE = {
    "include": {"include"},
    "service": {"include", "service"},
    "kernels": {"include", "service", "kernels"},
    "blas_threading": {"include", "service", "kernels", "blas_threading"},
    "lapack_workers": {"include", "service", "kernels", "blas_threading", "lapack_workers"},
    "factorizations": {"include", "service", "kernels", "blas_threading", "factorizations"},
    "sink": {"include", "service", "kernels", "blas_threading", "lapack_workers", "sink"},
    "offload": {"include", "service", "kernels", "blas_threading", "factorizations", "offload"},
    "loopback": {"include", "loopback"},
    "request_check": {"include", "request_check"},
    "contest": {"contest"},
    "host": {"include", "contest", "host"},
    "shim": {"include", "shim"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.M)
SOURCES = {".h", ".hpp", ".c", ".cpp", ".inc"}


def layer_of(name, root):
    """The layer that an included name belongs to, or None for the system's headers."""
    top = name.split("/")[0]
    if top in MAY_INCLUDE and top != "include":
        return top
    return "include" if (root / "include" / name).exists() else None


def main(root):
    found = [p for layer in MAY_INCLUDE for p in (root / layer).rglob("*") if p.suffix in SOURCES]
    wrong = []
    for path in found:
        own = path.relative_to(root).parts[0]
        for mark, name in INCLUDE.findall(path.read_text()):
            layer = layer_of(name, root)
            quoted_beside = mark == '"' and layer is None and (path.parent / name).exists()
            if quoted_beside:
                wrong.append(f"{path.relative_to(root)}: include {name} by its full path from the root")
            elif layer is not None and layer not in MAY_INCLUDE[own]:
                wrong.append(f"{path.relative_to(root)}: {own} may not include {name}")
    print(*wrong, f"{len(found)} files, {len(wrong)} wrong includes", sep="\n")
    return 1 if wrong or not found else 0


sys.exit(main(pathlib.Path(sys.argv[1])))
