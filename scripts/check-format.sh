#!/usr/bin/env bash
# Fails, naming the files, when any tracked C++ source differs from what .clang-format makes
# of it. `./quorvale.sh format` applies the format.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h')
bad=()
for f in "${files[@]}"; do
    if ! clang-format --dry-run -Werror "$f" >/dev/null 2>&1; then
        bad+=("$f")
    fi
done
if [ ${#bad[@]} -gt 0 ]; then
    echo "check-format: not formatted (run ./quorvale.sh format):" >&2
    printf '  %s\n' "${bad[@]}" >&2
    exit 1
fi
echo "check-format: ${#files[@]} files formatted"
