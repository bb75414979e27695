#!/usr/bin/env bash
# Runs every benchmark program of a release build tree, one after another. Extra
# arguments go to each program (for example --benchmark_filter=... or
# --benchmark_repetitions=5).
set -euo pipefail
build=${1:-build/release}
shift || true
mapfile -t programs < <(find "$build/bench" -type f -name 'bench-*' -perm -u+x 2>/dev/null | sort)
if [ ${#programs[@]} -eq 0 ]; then
    echo "run-benchmarks: no benchmark programs in $build/bench" >&2
    exit 1
fi
for b in "${programs[@]}"; do
    echo "== $(basename "$b")"
    "$b" "$@"
done
