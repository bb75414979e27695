#!/usr/bin/env bash
# One entry point for building and running Quorvale.
#   ./quorvale.sh run     install what is needed, build, start the application
#   ./quorvale.sh test    install what is needed, then what CI checks: the format, the gcc
#                         build with ASan+UBSan and the whole suite, the clang build with
#                         ThreadSanitizer of the threaded test programs and those tests
#                         under it, and each fuzz target for 30 s on its corpus
#                         (QUORVALE_QUICK=1: only the first three, for a quick local run)
#   ./quorvale.sh tsan    build with ThreadSanitizer and run the threaded tests
#   ./quorvale.sh bench   build the release preset and run every benchmark
#   ./quorvale.sh fuzz [seconds]   build the fuzz targets with clang and run each briefly
#   ./quorvale.sh format  apply clang-format to all C++ sources
set -euo pipefail
cd "$(dirname "$0")"

jobs=$(nproc)

configure_and_build() {
    local preset=$1
    shift
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs" "$@"
}

cmd=${1:-run}
shift || true
case "$cmd" in
run)
    scripts/install-deps.sh
    configure_and_build release
    exec scripts/start-app.sh build/release "$@"
    ;;
test)
    scripts/install-deps.sh
    log=$(mktemp)
    times=()
    stage() {
        local name=$1 start=$SECONDS
        shift
        echo "=== $name"
        "$@"
        times+=("$(printf '%-34s %4d s' "$name" $((SECONDS - start)))")
    }
    suite() { ctest --preset ci "$@" 2>&1 | tee "$log"; }
    stage "format check" scripts/check-format.sh
    stage "gcc build (ASan+UBSan, -Werror)" configure_and_build ci
    stage "whole suite" suite "$@"
    if [ "${QUORVALE_QUICK:-0}" != 1 ]; then
        stage "clang build (TSan, -Werror)" configure_and_build tsan --target threaded-tests
        stage "threaded tests under TSan" ctest --preset tsan
        stage "fuzz targets build (clang)" configure_and_build fuzz --target fuzzers
        stage "fuzz targets, 30 s each" scripts/run-fuzzers.sh build/fuzz 30
    fi
    echo "=== times (total $SECONDS s)"
    printf '%s\n' "${times[@]}"
    echo "=== the whole suite closed with:"
    grep -E "tests passed|tests failed out of" "$log" || true
    rm -f "$log"
    ;;
tsan)
    scripts/install-deps.sh
    configure_and_build tsan --target threaded-tests
    ctest --preset tsan "$@"
    ;;
bench)
    scripts/install-deps.sh
    configure_and_build release
    scripts/run-benchmarks.sh build/release "$@"
    ;;
fuzz)
    scripts/install-deps.sh
    configure_and_build fuzz --target fuzzers
    scripts/run-fuzzers.sh build/fuzz "${1:-60}"
    ;;
format)
    git ls-files '*.cpp' '*.h' | xargs clang-format -i
    ;;
*)
    echo "usage: $0 run|test|tsan|bench|fuzz [seconds]|format" >&2
    exit 2
    ;;
esac
