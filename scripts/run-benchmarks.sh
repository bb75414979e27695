#!/usr/bin/env bash
# Runs every benchmark program of a release build tree, one after another.
set -euo pipefail
build=${1:-build/release}
shift || true
found=0
for b in "$build"/bench/*/bench-*; do
    [ -x "$b" ] || continue
    found=1
    echo "== $(basename "$b")"
    "$b" "$@"
done
[ "$found" = 1 ] || echo "run-benchmarks: no benchmark programs in $build/bench"
