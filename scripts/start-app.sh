#!/usr/bin/env bash
# Starts Quorvale from a build tree. Until the application lands this shows the
# command-line tool's help; with no display available, the application runs under Xvfb.
set -euo pipefail
build=${1:-build/release}
shift || true
app="$build/src/app/quorvale"
if [ -x "$app" ]; then
    if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
        echo "start-app: no display; running under xvfb-run" >&2
        exec xvfb-run -a "$app" "$@"
    fi
    exec "$app" "$@"
fi
exec "$build/tools/quorvale-cli/quorvale-cli" --help
