#!/usr/bin/env bash
# Starts Quorvale from a build tree: the application opens the file given, or else the
# sample scene, rendered. With no display available, it runs under Xvfb. In a build
# without the application (QUORVALE_BUILD_APP=OFF) this renders the sample scene with
# the command-line tool instead, says where the pictures are, and shows the tool's help.
set -euo pipefail
build=${1:-build/release}
shift || true
root=$(cd "$(dirname "$0")/.." && pwd)
app="$build/src/app/quorvale"
if [ -x "$app" ]; then
    if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
        echo "start-app: no display; running under xvfb-run" >&2
        exec xvfb-run -a "$app" "$@"
    fi
    exec "$app" "$@"
fi
cli="$build/tools/quorvale-cli/quorvale-cli"
out="$build/sample"
mkdir -p "$out"
"$cli" render "$root/data/samples/house.dxf" "$out/house.zmp" --png "$out/house.png" \
    --depth-png "$out/house-depth.png" --material-png "$out/house-material.png"
echo "The sample scene, rendered: $out/house.zmp (colour: $out/house.png, depth:"
echo "$out/house-depth.png, materials: $out/house-material.png). Try: $cli info $out/house.zmp"
echo
exec "$cli" --help
