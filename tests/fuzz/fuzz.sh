#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# fuzz.sh PROGRAM LENGTH: a fuzzer for five seconds, or a minute when TEV_TEST_LONG is set, from the corpus in the tree
# and what earlier runs have added to it beside PROGRAM. An input that makes it fail is kept there, too.
set -eu
seconds=5
[ -z "${TEV_TEST_LONG:-}" ] || seconds=60
found=$1.found
mkdir -p "$found"
exec "$1" -seed="${TEV_TEST_SEED:-0}" -max_len="$2" -max_total_time=$seconds -timeout=10 -artifact_prefix="$found/" -print_final_stats=1 \
  "$found" "$(dirname "$0")/corpus/$(basename "$1" _fuzz)"
