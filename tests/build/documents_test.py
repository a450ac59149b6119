# SPDX-License-Identifier: BSD-3-Clause
"""File names in the project's documents exist: every `path/name.ext` or `folder/` in backticks, and every link."""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
documents = [*root.glob("*.md"), *root.glob("docs/**/*.md"), *root.glob("kernels/*.md")]
NAME = re.compile(r"`([\w.{}-]+(?:/[\w.{}-]+)*(?:/|\.(?:h|cpp|inc|c|py|md|txt|json)))`|\]\(([^)#:]+)\)")
missing = []
for document in documents:
    for quoted, link in NAME.findall(document.read_text()):
        name = quoted or link
        bases = (root, root / "include", document.parent)
        if "{" not in name and not any((base / name).exists() for base in bases) and not name.startswith("build/"):
            missing.append(f"{document.relative_to(root)}: {name} does not exist")
print(*missing, f"{len(documents)} documents", sep="\n")
sys.exit(1 if missing or not documents else 0)
