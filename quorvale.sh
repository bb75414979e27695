#!/usr/bin/env bash
# One entry point for building and running Quorvale.
#   ./quorvale.sh run     install what is needed, build, start the application
#   ./quorvale.sh test    install what is needed, build with ASan+UBSan, run the whole suite
#   ./quorvale.sh tsan    build with ThreadSanitizer and run the threaded tests
#   ./quorvale.sh bench   build the release preset and run every benchmark
#   ./quorvale.sh fuzz [seconds]   build the fuzz targets with clang and run each briefly
#   ./quorvale.sh format  apply clang-format to all C++ sources
set -euo pipefail
cd "$(dirname "$0")"

jobs=$(nproc)

configure_and_build() {
    local preset=$1
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
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
    configure_and_build debug
    ctest --preset debug "$@"
    ;;
tsan)
    scripts/install-deps.sh
    configure_and_build tsan
    ctest --preset tsan "$@"
    ;;
bench)
    scripts/install-deps.sh
    configure_and_build release
    scripts/run-benchmarks.sh build/release "$@"
    ;;
fuzz)
    scripts/install-deps.sh
    configure_and_build fuzz
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
