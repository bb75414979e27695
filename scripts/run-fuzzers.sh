#!/usr/bin/env bash
# Runs each libFuzzer target of a fuzz build for the given number of seconds, on a
# scratch copy of its seed corpus (fuzz/seeds/<name>), as many at once as there are cores.
# Fails if any target finds a crash, a leak or a hang; the failing input is kept in the
# scratch folder its log names, and the log is printed.
set -uo pipefail
build=${1:-build/fuzz}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${FUZZ_JOBS:-$(nproc)}
mapfile -t targets < <(find "$build/fuzz" -type f -name 'fuzz-*' -perm -u+x 2>/dev/null | sort)
if [ ${#targets[@]} -eq 0 ]; then
    echo "run-fuzzers: no fuzz targets in $build/fuzz" >&2
    exit 1
fi

run_one() {
    local f=$1 name work
    name=$(basename "$f")
    work=$(mktemp -d "/tmp/$name.XXXXXX")
    if [ -d "$root/fuzz/seeds/${name#fuzz-}" ]; then
        cp -r "$root/fuzz/seeds/${name#fuzz-}/." "$work/"
    fi
    if "$f" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$work/" "$work" >"$work.log" 2>&1; then
        echo "== $name: clean for ${seconds}s ($(grep -c '^#' "$work.log") status lines)"
        rm -rf "$work" "$work.log"
        return 0
    fi
    echo "== $name: FAILED (inputs in $work)"
    tail -n 60 "$work.log"
    return 1
}

failed=0
pids=()
for f in "${targets[@]}"; do
    run_one "$f" &
    pids+=($!)
    if [ ${#pids[@]} -ge "$jobs" ]; then
        wait "${pids[0]}" || failed=1
        pids=("${pids[@]:1}")
    fi
done
for p in "${pids[@]}"; do
    wait "$p" || failed=1
done
exit $failed
