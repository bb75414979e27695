#!/usr/bin/env bash
# Runs each libFuzzer target of a fuzz build for the given number of seconds, on a
# scratch copy of its seed corpus (fuzz/seeds/<name>). Fails if any target finds a crash,
# a leak or a hang; the failing input is left in the scratch folder it names.
set -euo pipefail
build=${1:-build/fuzz}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
mapfile -t targets < <(find "$build/fuzz" -type f -name 'fuzz-*' -perm -u+x 2>/dev/null | sort)
if [ ${#targets[@]} -eq 0 ]; then
    echo "run-fuzzers: no fuzz targets in $build/fuzz" >&2
    exit 1
fi
for f in "${targets[@]}"; do
    name=$(basename "$f")
    work=$(mktemp -d)
    if [ -d "$root/fuzz/seeds/${name#fuzz-}" ]; then
        cp -r "$root/fuzz/seeds/${name#fuzz-}/." "$work/"
    fi
    echo "== $name for ${seconds}s (corpus $work)"
    "$f" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -artifact_prefix="$work/" "$work"
    rm -rf "$work"
done
