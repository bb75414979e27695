#!/usr/bin/env bash
# Runs each libFuzzer target of a fuzz build for the given number of seconds, on a
# scratch copy of its seed corpus. Fails if any target finds a crash, leak or hang.
set -euo pipefail
build=${1:-build/fuzz}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
for f in "$build"/fuzz/fuzz-*; do
    [ -x "$f" ] || continue
    name=$(basename "$f")
    work=$(mktemp -d)
    if [ -d "$root/fuzz/seeds/${name#fuzz-}" ]; then
        cp -r "$root/fuzz/seeds/${name#fuzz-}/." "$work/"
    fi
    echo "== $name for ${seconds}s"
    "$f" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -artifact_prefix="$work/" "$work"
    rm -rf "$work"
done
